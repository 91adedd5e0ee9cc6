// The buffers between an audio client and the engine: what a render client has queued for
// the device, and the packets a capture client has still to read. Every method runs under
// the engine's lock.
#pragma once

#include "platform/sim/AudioEngine.h"

#include <deque>
#include <string>
#include <vector>

namespace sim {

class RenderRing final : public RenderFeed {
public:
    RenderRing(const SampleFormat& format, std::uint32_t frames);
    std::uint32_t pull(std::uint32_t frames, float* out) override;
    bool glitchesWhenDry() const override { return true; }

    std::uint32_t padding() const { return std::uint32_t(m_written - m_read); }
    std::uint32_t capacity() const { return m_capacity; }
    HRESULT getBuffer(std::uint32_t frames, BYTE** data);
    HRESULT releaseBuffer(std::uint32_t frames, DWORD flags);
    bool pending() const { return m_pending; }
    void clear();

private:
    SampleFormat m_format;
    std::uint32_t m_capacity;
    std::vector<std::uint8_t> m_ring;
    std::uint64_t m_read = 0;
    std::uint64_t m_written = 0;
    std::vector<std::uint8_t> m_staging;
    std::uint32_t m_requested = 0;
    bool m_pending = false;
};

class CaptureQueue final : public CaptureFeed {
public:
    CaptureQueue(const SampleFormat& format, std::uint32_t capacity, std::uint32_t packetFrames,
                 std::string endpoint);
    void push(const float* samples, std::uint32_t frames, std::uint64_t position, Hns time,
              bool silent) override;

    std::uint32_t nextPacketFrames() const;
    // Every frame waiting to be read, in all packets.
    std::uint32_t queuedFrames() const { return std::uint32_t(m_queuedFrames); }
    HRESULT getBuffer(BYTE** data, UINT32* frames, DWORD* flags, UINT64* position, UINT64* time);
    HRESULT releaseBuffer(std::uint32_t frames);
    bool pending() const { return m_pending; }
    void clear();

private:
    struct Packet {
        std::vector<std::uint8_t> bytes;
        std::uint32_t frames = 0;
        std::uint64_t position = 0;
        Hns time = 0;
        DWORD flags = 0;
    };
    void dropOverflow();

    SampleFormat m_format;
    std::uint32_t m_capacity;
    std::uint32_t m_packetFrames;
    std::string m_endpoint;
    std::deque<Packet> m_packets;
    Packet m_filling;
    std::uint64_t m_queuedFrames = 0;
    bool m_discontinuity = false;
    bool m_pending = false;
};

} // namespace sim
