#include "platform/sim/RenderHistory.h"

#include <algorithm>
#include <cmath>

namespace sim {

namespace {
// Chunks stay short so that forgetting old sound frees it soon.
constexpr std::size_t kChunkSeconds = 1;
// Positions this close to a sample are that sample: the clock's ticks fall on whole frames.
constexpr double kOnSample = 1e-6;
// Chunks this close (100-ns units) follow each other without a gap.
constexpr double kJoined = 1.0;
} // namespace

void RenderHistory::append(double start, std::uint32_t rate, std::uint32_t channels,
                           const float* samples, std::uint32_t frames) {
    if (frames == 0 || channels == 0) {
        return;
    }
    if (channels != m_channels) {
        m_chunks.clear(); // a stream keeps its format: only a first append gets here
        m_channels = channels;
    }
    bool extends = !m_chunks.empty() && m_chunks.back().rate == rate &&
                   std::abs(m_chunks.back().end(channels) - start) < kJoined &&
                   m_chunks.back().frames(channels) < kChunkSeconds * rate;
    if (!extends) {
        m_chunks.push_back(Chunk{start, rate, {}});
    }
    m_chunks.back().samples.insert(m_chunks.back().samples.end(), samples,
                                   samples + std::size_t(frames) * channels);
}

std::size_t RenderHistory::chunkAt(double time) const {
    auto after = std::upper_bound(m_chunks.begin(), m_chunks.end(), time,
                                  [](double t, const Chunk& c) { return t < c.start; });
    if (after == m_chunks.begin()) {
        return kNone;
    }
    std::size_t index = std::size_t(after - m_chunks.begin()) - 1;
    return time < m_chunks[index].end(m_channels) ? index : kNone;
}

// Where one chunk ends the next may begin a hair later: times are sums of floating-point
// steps. Sound that follows without a gap is one line.
const float* RenderHistory::frame(std::size_t chunk, std::size_t index) const {
    const Chunk& c = m_chunks[chunk];
    if (index < c.frames(m_channels)) {
        return &c.samples[index * m_channels];
    }
    if (index == c.frames(m_channels) && chunk + 1 < m_chunks.size() &&
        std::abs(m_chunks[chunk + 1].start - c.end(m_channels)) < kJoined) {
        return &m_chunks[chunk + 1].samples[0];
    }
    return nullptr;
}

void RenderHistory::at(double time, float* out) const {
    std::fill(out, out + m_channels, 0.0f);
    std::size_t chunk = chunkAt(time);
    if (chunk == kNone) {
        return;
    }
    double position = (time - m_chunks[chunk].start) * m_chunks[chunk].rate / 1e7;
    double whole = std::floor(position);
    double fraction = position - whole;
    std::size_t index = std::size_t(whole);
    if (fraction > 1.0 - kOnSample) {
        ++index;
        fraction = 0.0;
    }
    const float* here = frame(chunk, index);
    if (!here) {
        return;
    }
    const float* next = fraction < kOnSample ? nullptr : frame(chunk, index + 1);
    for (std::uint32_t c = 0; c < m_channels; ++c) {
        float after = next ? next[c] : 0.0f;
        out[c] = fraction < kOnSample ? here[c] : float(here[c] + (after - here[c]) * fraction);
    }
}

void RenderHistory::forgetBefore(double time) {
    while (!m_chunks.empty() && m_chunks.front().end(m_channels) < time) {
        m_chunks.pop_front();
    }
}

void RenderHistory::forgetFrom(double time) {
    while (!m_chunks.empty() && m_chunks.back().start >= time - kOnSample) {
        m_chunks.pop_back();
    }
    if (!m_chunks.empty() && m_chunks.back().end(m_channels) > time) {
        Chunk& last = m_chunks.back();
        double keep = std::max(0.0, std::round((time - last.start) * last.rate / 1e7));
        last.samples.resize(std::min(last.samples.size(), std::size_t(keep) * m_channels));
    }
}

} // namespace sim
