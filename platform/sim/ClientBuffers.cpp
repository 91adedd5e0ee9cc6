#include "platform/sim/ClientBuffers.h"
#include "platform/sim/Runtime.h"

#include <algorithm>
#include <cstring>

namespace sim {

namespace {
// Not silence in any sample format: 8-bit PCM reads it as 37, 16-bit as -23131.
constexpr std::uint8_t kStaleByte = 0xA5;
} // namespace

RenderRing::RenderRing(const SampleFormat& format, std::uint32_t frames)
    : m_format(format), m_capacity(frames), m_ring(std::size_t(frames) * format.blockAlign) {}

std::uint32_t RenderRing::pull(std::uint32_t frames, float* out) {
    std::uint32_t n = std::min(frames, padding());
    for (std::uint32_t done = 0; done < n;) {
        std::uint32_t at = std::uint32_t(m_read % m_capacity);
        std::uint32_t run = std::min(n - done, m_capacity - at);
        decodeFrames(m_format, &m_ring[std::size_t(at) * m_format.blockAlign], run,
                     out + std::size_t(done) * m_format.channels);
        done += run;
        m_read += run;
    }
    return n;
}

HRESULT RenderRing::getBuffer(std::uint32_t frames, BYTE** data) {
    if (!data) {
        return E_POINTER;
    }
    *data = nullptr;
    if (m_pending) {
        return AUDCLNT_E_OUT_OF_ORDER;
    }
    if (frames == 0) {
        return S_OK; // nothing to hand out, and nothing to release after it
    }
    if (frames > m_capacity - padding()) {
        return AUDCLNT_E_BUFFER_TOO_LARGE;
    }
    m_staging.assign(std::size_t(frames) * m_format.blockAlign, 0);
    m_requested = frames;
    m_pending = true;
    *data = m_staging.data();
    return S_OK;
}

HRESULT RenderRing::releaseBuffer(std::uint32_t frames, DWORD flags) {
    if (!m_pending) {
        return frames == 0 ? S_OK : AUDCLNT_E_OUT_OF_ORDER;
    }
    if (frames > m_requested) {
        return AUDCLNT_E_INVALID_SIZE;
    }
    if (flags & AUDCLNT_BUFFERFLAGS_SILENT) {
        std::fill(m_staging.begin(), m_staging.end(), std::uint8_t(0));
    }
    for (std::uint32_t done = 0; done < frames;) {
        std::uint32_t at = std::uint32_t(m_written % m_capacity);
        std::uint32_t run = std::min(frames - done, m_capacity - at);
        std::memcpy(&m_ring[std::size_t(at) * m_format.blockAlign],
                    &m_staging[std::size_t(done) * m_format.blockAlign],
                    std::size_t(run) * m_format.blockAlign);
        done += run;
        m_written += run;
    }
    m_pending = false;
    return S_OK;
}

void RenderRing::clear() {
    m_read = m_written = 0;
}

CaptureQueue::CaptureQueue(const SampleFormat& format, std::uint32_t capacity,
                           std::uint32_t packetFrames, std::string endpoint)
    : m_format(format), m_capacity(capacity), m_packetFrames(std::max(1u, packetFrames)),
      m_endpoint(std::move(endpoint)) {}

void CaptureQueue::push(const float* samples, std::uint32_t frames, std::uint64_t position,
                        Hns time, bool silent) {
    const std::size_t block = m_format.blockAlign;
    for (std::uint32_t done = 0; done < frames;) {
        if (m_filling.frames == 0) {
            m_filling.position = position + done;
            m_filling.time = time + Hns(double(done) * 1e7 / m_format.rate);
            m_filling.flags = silent ? AUDCLNT_BUFFERFLAGS_SILENT : 0;
        }
        if (!silent) {
            m_filling.flags &= ~DWORD(AUDCLNT_BUFFERFLAGS_SILENT);
        }
        std::uint32_t run = std::min(frames - done, m_packetFrames - m_filling.frames);
        m_filling.bytes.resize((m_filling.frames + run) * block);
        encodeFrames(m_format, samples + std::size_t(done) * m_format.channels, run,
                     &m_filling.bytes[m_filling.frames * block]);
        m_filling.frames += run;
        done += run;
        if (m_filling.frames == m_packetFrames) {
            // A driver that flags a packet silent need not clear it: the flag alone says
            // what it holds. Its bytes here are what a DMA buffer kept from earlier use.
            if (m_filling.flags & AUDCLNT_BUFFERFLAGS_SILENT) {
                std::fill(m_filling.bytes.begin(), m_filling.bytes.end(), kStaleByte);
            }
            // A device may flag a packet whose sound it has in full: the flag alone.
            if (injectedFault("DataDiscontinuity", m_endpoint)) {
                m_filling.flags |= AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY;
            }
            m_queuedFrames += m_filling.frames;
            m_packets.push_back(std::move(m_filling));
            m_filling = Packet{};
            dropOverflow();
        }
    }
}

// A device whose buffer overflows loses the oldest sound, and says so on the next packet.
void CaptureQueue::dropOverflow() {
    while (m_queuedFrames > m_capacity && m_packets.size() > (m_pending ? 1u : 0u)) {
        auto victim = m_packets.begin() + (m_pending ? 1 : 0);
        m_queuedFrames -= victim->frames;
        m_packets.erase(victim);
        m_discontinuity = true;
    }
}

std::uint32_t CaptureQueue::nextPacketFrames() const {
    return m_packets.empty() ? 0 : m_packets.front().frames;
}

HRESULT CaptureQueue::getBuffer(BYTE** data, UINT32* frames, DWORD* flags, UINT64* position,
                                UINT64* time) {
    if (!data || !frames || !flags) {
        return E_POINTER;
    }
    *data = nullptr;
    if (m_pending) {
        return AUDCLNT_E_OUT_OF_ORDER; // the packet's numbers are left as they were
    }
    *frames = 0;
    *flags = 0;
    if (m_packets.empty()) {
        return AUDCLNT_S_BUFFER_EMPTY;
    }
    Packet& packet = m_packets.front();
    if (m_discontinuity) {
        packet.flags |= AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY;
        m_discontinuity = false;
    }
    *data = packet.bytes.data();
    *frames = packet.frames;
    *flags = packet.flags;
    if (position) {
        *position = packet.position;
    }
    if (time) {
        *time = UINT64(packet.time);
    }
    m_pending = true;
    return S_OK;
}

HRESULT CaptureQueue::releaseBuffer(std::uint32_t frames) {
    if (!m_pending) {
        // Releasing none is what follows an empty GetBuffer.
        return frames == 0 ? S_OK : AUDCLNT_E_OUT_OF_ORDER;
    }
    if (frames != 0 && frames != m_packets.front().frames) {
        return AUDCLNT_E_INVALID_SIZE;
    }
    m_pending = false;
    if (frames != 0) {
        m_queuedFrames -= m_packets.front().frames;
        m_packets.pop_front();
    }
    return S_OK;
}

void CaptureQueue::clear() {
    m_packets.clear();
    m_filling = Packet{};
    m_queuedFrames = 0;
    m_discontinuity = false;
}

} // namespace sim
