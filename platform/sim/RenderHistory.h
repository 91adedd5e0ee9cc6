// What a render stream has played, as one averaged channel on the clock's time line, so
// that capture streams can hear it later through a route's delay.
#pragma once

#include <cstdint>
#include <deque>
#include <vector>

namespace sim {

class RenderHistory {
public:
    // Appends frames played from time `start` (100-ns units) on at `rate`.
    void append(double start, std::uint32_t rate, const float* samples, std::uint32_t frames);
    // The sample at a time, interpolated; 0 where nothing was played.
    float at(double time) const;
    // Forgets what ended before time.
    void forgetBefore(double time);
    bool empty() const { return m_chunks.empty(); }
    double end() const;

private:
    struct Chunk {
        double start;
        std::uint32_t rate;
        std::vector<float> samples;
        double end() const { return start + double(samples.size()) * 1e7 / rate; }
    };
    const Chunk* chunkAt(double time) const;

    std::deque<Chunk> m_chunks;
};

} // namespace sim
