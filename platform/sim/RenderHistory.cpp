#include "platform/sim/RenderHistory.h"

#include <algorithm>
#include <cmath>

namespace sim {

namespace {
// Chunks stay short so that forgetting old sound frees it soon.
constexpr std::size_t kChunkSeconds = 1;
// Positions this close to a sample are that sample: the clock's ticks fall on whole frames.
constexpr double kOnSample = 1e-6;
} // namespace

void RenderHistory::append(double start, std::uint32_t rate, const float* samples,
                           std::uint32_t frames) {
    if (frames == 0) {
        return;
    }
    bool extends = !m_chunks.empty() && m_chunks.back().rate == rate &&
                   std::abs(m_chunks.back().end() - start) < 1.0 &&
                   m_chunks.back().samples.size() < kChunkSeconds * rate;
    if (!extends) {
        m_chunks.push_back(Chunk{start, rate, {}});
    }
    m_chunks.back().samples.insert(m_chunks.back().samples.end(), samples, samples + frames);
}

const RenderHistory::Chunk* RenderHistory::chunkAt(double time) const {
    auto after = std::upper_bound(m_chunks.begin(), m_chunks.end(), time,
                                  [](double t, const Chunk& c) { return t < c.start; });
    if (after == m_chunks.begin()) {
        return nullptr;
    }
    const Chunk& chunk = *std::prev(after);
    return time < chunk.end() ? &chunk : nullptr;
}

float RenderHistory::at(double time) const {
    const Chunk* chunk = chunkAt(time);
    if (!chunk) {
        return 0.0f;
    }
    double position = (time - chunk->start) * chunk->rate / 1e7;
    double whole = std::floor(position);
    double fraction = position - whole;
    std::size_t index = std::size_t(whole);
    if (fraction > 1.0 - kOnSample) {
        ++index;
        fraction = 0.0;
    }
    if (index >= chunk->samples.size()) {
        return index == chunk->samples.size() ? at(chunk->end()) : 0.0f;
    }
    float here = chunk->samples[index];
    if (fraction < kOnSample) {
        return here;
    }
    float next = index + 1 < chunk->samples.size() ? chunk->samples[index + 1] : at(chunk->end());
    return float(here + (next - here) * fraction);
}

void RenderHistory::forgetBefore(double time) {
    while (!m_chunks.empty() && m_chunks.front().end() < time) {
        m_chunks.pop_front();
    }
}

double RenderHistory::end() const {
    return m_chunks.empty() ? 0.0 : m_chunks.back().end();
}

} // namespace sim
