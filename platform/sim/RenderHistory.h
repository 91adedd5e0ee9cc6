// What a render stream has played, channel by channel after its endpoint's volume, on the
// clock's time line, so that capture streams can hear it later through a route's delay.
#pragma once

#include <cstdint>
#include <deque>
#include <vector>

namespace sim {

class RenderHistory {
public:
    // Appends frames of `channels` interleaved samples played from time `start` (100-ns
    // units) on at `rate`.
    void append(double start, std::uint32_t rate, std::uint32_t channels, const float* samples,
                std::uint32_t frames);
    // Every channel's sample at a time, interpolated, into out (channels() values); 0 where
    // nothing was played.
    void at(double time, float* out) const;
    std::uint32_t channels() const { return m_channels; }
    // Forgets what ended before time.
    void forgetBefore(double time);
    // Forgets what would play from time on.
    void forgetFrom(double time);
    bool empty() const { return m_chunks.empty(); }

private:
    struct Chunk {
        double start;
        std::uint32_t rate;
        std::vector<float> samples; // interleaved
        std::uint32_t frames(std::uint32_t channels) const {
            return std::uint32_t(samples.size() / channels);
        }
        double end(std::uint32_t channels) const {
            return start + double(frames(channels)) * 1e7 / rate;
        }
    };
    static constexpr std::size_t kNone = ~std::size_t(0);
    // The index of the chunk playing at time; kNone when none is.
    std::size_t chunkAt(double time) const;
    // The frame of a chunk at an index, or what follows the chunk when the index is its end.
    const float* frame(std::size_t chunk, std::size_t index) const;

    std::uint32_t m_channels = 1;
    std::deque<Chunk> m_chunks;
};

} // namespace sim
