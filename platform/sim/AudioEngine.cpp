#include "platform/sim/AudioEngine.h"
#include "platform/sim/RenderHistory.h"
#include "platform/sim/Runtime.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <map>
#include <random>
#include <utility>
#include <vector>

namespace sim {

namespace {

constexpr double kHnsPerSecond = 1e7;
// What a route can still reach back to, beyond its delay.
constexpr double kHistoryHns = 2 * kHnsPerSecond;
// One pass of the engine never makes more than this much sound: a clock that jumps further
// (a process stopped in a debugger) is a gap, not audio.
constexpr Hns kLongestStep = 10 * 10000000LL;
constexpr auto kPumpInterval = std::chrono::milliseconds(2);
// How far a render device reads ahead of what it plays: its DMA FIFO. A client that refills
// only once the buffer has run dry is too late by this much, in virtual time as in real time.
constexpr double kReadAheadHns = 10000; // 1 ms

double linear(double db) {
    return std::pow(10.0, db / 20.0);
}

// Per channel, what an endpoint's volume and mute leave of its signal.
struct EndpointGain {
    std::vector<double> channels;
    bool usable = false; // present and active
    double of(std::uint32_t channel) const {
        if (channels.empty()) {
            return 1.0;
        }
        return channels[std::min<std::size_t>(channel, channels.size() - 1)];
    }
};

struct RouteInfo {
    std::string render;
    double gain;
    double delay;                         // 100-ns units
    double noise;                         // RMS
    std::vector<std::vector<double>> mix; // empty: channel to channel

    // The weight of render channel r (of renderChannels) in capture channel c.
    double weight(std::uint32_t c, std::uint32_t r, std::uint32_t renderChannels) const {
        if (mix.empty()) {
            return std::min(c, renderChannels - 1) == r ? 1.0 : 0.0;
        }
        // A mix names channels the stream may lack: those are its last channel.
        const std::vector<double>& row = mix[std::min<std::size_t>(c, mix.size() - 1)];
        double sum = 0;
        for (std::size_t named = 0; named < row.size(); ++named) {
            sum += std::min<std::size_t>(named, renderChannels - 1) == r ? row[named] : 0.0;
        }
        return sum;
    }
};

// What one pass needs of the machine, read once under its lock.
struct MachineView {
    std::map<std::string, EndpointGain> gains;
    std::multimap<std::string, RouteInfo> routesTo; // by capture endpoint
    double longestDelay = 0;
};

MachineView viewMachine() {
    MachineView view;
    withMachine([&](model::Machine& m) {
        for (const model::Endpoint& e : m.endpoints) {
            EndpointGain& gain = view.gains[e.id];
            gain.usable = e.state == model::STATE_ACTIVE;
            for (float db : e.volume.levelsDb) {
                gain.channels.push_back(e.muted ? 0.0 : linear(db));
            }
        }
        for (const model::Route& r : m.routes) {
            double delay = r.delayMs * 10000.0;
            view.routesTo.emplace(r.capture, RouteInfo{r.render, linear(r.gainDb), delay,
                                                       linear(r.noiseDb), r.channelMix});
            view.longestDelay = std::max(view.longestDelay, delay);
        }
    });
    return view;
}

} // namespace

struct AudioEngine::Stream {
    StreamSetup setup;
    std::shared_ptr<RenderFeed> render;
    std::shared_ptr<CaptureFeed> capture;
    bool running = false;
    bool closed = false;
    bool preempted = false; // cut off by an exclusive stream: it never moves again
    std::thread::id owner;
    Hns anchorTime = 0;
    std::uint64_t anchorFrame = 0;
    std::uint64_t position = 0;
    std::uint64_t periodsSignalled = 0;
    bool starved = false; // the last pass found the client's buffer short
    RenderHistory history;
    std::mt19937 noise;

    std::uint64_t framesAt(Hns time) const {
        if (time <= anchorTime) {
            return anchorFrame;
        }
        std::int64_t elapsed = std::min(time - anchorTime, kLongestStep * 1000);
        return anchorFrame +
               std::uint64_t(double(elapsed) * setup.format.rate / kHnsPerSecond + 1e-6);
    }
    double timeOf(std::uint64_t frame) const {
        return double(anchorTime) +
               (double(frame) - double(anchorFrame)) * kHnsPerSecond / setup.format.rate;
    }
    // Frames the device has taken by time: a render device reads ahead of what it plays.
    std::uint64_t takenAt(Hns time) const {
        std::uint64_t frames = framesAt(time);
        if (setup.render && time >= anchorTime) {
            frames += std::max<std::uint64_t>(
                1, std::uint64_t(kReadAheadHns * setup.format.rate / kHnsPerSecond));
        }
        return frames;
    }
    // A stopped device plays nothing more: what it had read ahead is not heard.
    void halt(Hns time) {
        if (running && setup.render) {
            history.forgetFrom(timeOf(framesAt(time)));
        }
        running = false;
    }
    bool holdsTime() const {
        return running && !closed && (render ? render->active() : capture->active());
    }
};

struct AudioEngine::State {
    std::map<StreamId, Stream> streams;
    std::map<std::string, std::uint64_t> glitches; // by render endpoint
    StreamId next = 1;
    Hns now = 0;
    bool pumping = false;
};

// Forgets the streams of a thread when it ends, so that a stream left running by a thread
// that has gone does not hold virtual time up.
struct OwnerThreadExit {
    ~OwnerThreadExit() {
        AudioEngine::instance().ownerGone(std::this_thread::get_id());
        Clock::instance().ownersChanged();
    }
};

AudioEngine& AudioEngine::instance() {
    static AudioEngine* engine = new AudioEngine; // used by threads until the process ends
    return *engine;
}

AudioEngine::AudioEngine() : m_state(std::make_unique<State>()) {
    Clock::instance().setAdvanceHook([this](Hns time) { advanceTo(time); });
    Clock::instance().setOwners([this] { return owners(); });
}

HRESULT AudioEngine::open(const StreamSetup& setup, std::shared_ptr<RenderFeed> render,
                          std::shared_ptr<CaptureFeed> capture, StreamId& id) {
    catchUp();
    std::unique_lock lock(m_mutex);
    std::vector<Stream*> cutOff;
    for (auto& [other, stream] : m_state->streams) {
        if (stream.closed || stream.preempted || stream.setup.endpoint != setup.endpoint) {
            continue;
        }
        if (stream.setup.exclusive || (setup.exclusive && !setup.preemptsShared)) {
            return AUDCLNT_E_DEVICE_IN_USE;
        }
        if (setup.exclusive) {
            cutOff.push_back(&stream);
        }
    }
    for (Stream* stream : cutOff) {
        stream->halt(m_state->now);
        stream->preempted = true;
    }
    id = m_state->next++;
    Stream& stream = m_state->streams[id];
    stream.setup = setup;
    stream.render = std::move(render);
    stream.capture = std::move(capture);
    stream.noise.seed(std::uint32_t(id * 2654435761u));
    lock.unlock();
    if (!cutOff.empty()) {
        Clock::instance().ownersChanged(); // their threads no longer hold time up
    }
    return S_OK;
}

void AudioEngine::close(StreamId id) {
    catchUp();
    {
        std::lock_guard lock(m_mutex);
        auto it = m_state->streams.find(id);
        if (it == m_state->streams.end()) {
            return;
        }
        // Kept while its sound may still travel a route; forgotten by a later pass.
        it->second.halt(m_state->now);
        it->second.closed = true;
        it->second.render.reset();
        it->second.capture.reset();
    }
    Clock::instance().ownersChanged();
}

void AudioEngine::start(StreamId id) {
    thread_local OwnerThreadExit forgetOnExit;
    (void)forgetOnExit;
    catchUp();
    {
        std::lock_guard lock(m_mutex);
        auto it = m_state->streams.find(id);
        if (it == m_state->streams.end() || it->second.running) {
            return;
        }
        Stream& s = it->second;
        if (s.preempted) {
            return;
        }
        s.running = true;
        s.starved = false;
        s.owner = std::this_thread::get_id();
        s.anchorTime = std::max(Clock::instance().now(), m_state->now);
        s.anchorFrame = s.position;
        ensurePump();
    }
    Clock::instance().ownersChanged();
}

void AudioEngine::stop(StreamId id) {
    catchUp();
    {
        std::lock_guard lock(m_mutex);
        auto it = m_state->streams.find(id);
        if (it != m_state->streams.end()) {
            it->second.halt(m_state->now);
        }
    }
    Clock::instance().ownersChanged();
}

void AudioEngine::resetPosition(StreamId id) {
    std::lock_guard lock(m_mutex);
    auto it = m_state->streams.find(id);
    if (it != m_state->streams.end()) {
        it->second.position = 0;
        it->second.anchorFrame = 0;
        it->second.periodsSignalled = 0;
    }
}

void AudioEngine::setEvent(StreamId id, HANDLE event) {
    std::lock_guard lock(m_mutex);
    auto it = m_state->streams.find(id);
    if (it != m_state->streams.end()) {
        it->second.setup.event = event;
    }
}

bool AudioEngine::isPreempted(StreamId id) const {
    std::lock_guard lock(m_mutex);
    auto it = m_state->streams.find(id);
    return it != m_state->streams.end() && it->second.preempted;
}

bool AudioEngine::isRunning(StreamId id) const {
    std::lock_guard lock(m_mutex);
    auto it = m_state->streams.find(id);
    return it != m_state->streams.end() && it->second.running;
}

std::uint64_t AudioEngine::position(StreamId id) const {
    std::lock_guard lock(m_mutex);
    auto it = m_state->streams.find(id);
    return it == m_state->streams.end() ? 0 : it->second.position;
}

void AudioEngine::catchUp() {
    advanceTo(Clock::instance().now());
}

std::vector<std::thread::id> AudioEngine::owners() {
    std::lock_guard lock(m_mutex);
    std::vector<std::thread::id> threads;
    for (const auto& [id, stream] : m_state->streams) {
        if (stream.holdsTime() && stream.owner != std::thread::id()) {
            threads.push_back(stream.owner);
        }
    }
    return threads;
}

void AudioEngine::ownerGone(std::thread::id owner) {
    std::lock_guard lock(m_mutex);
    for (auto& [id, stream] : m_state->streams) {
        if (stream.owner == owner) {
            stream.owner = std::thread::id();
        }
    }
}

namespace {

std::uint32_t dueFrames(const AudioEngine::Stream& s, Hns time) {
    std::uint64_t target = s.takenAt(time);
    return target > s.position ? std::uint32_t(std::min<std::uint64_t>(target - s.position,
                                                                       s.setup.format.rate * 10ull))
                               : 0;
}

// Takes what the stream plays up to time (and the device reads ahead) into its history,
// each channel after the endpoint's volume. A client that has not written enough is heard
// as silence, and counts as a glitch once per shortage.
void playInto(AudioEngine::Stream& s, Hns time, const EndpointGain& gain, std::uint64_t& glitches) {
    std::uint32_t frames = dueFrames(s, time);
    if (frames == 0) {
        return;
    }
    const std::uint32_t channels = s.setup.format.channels;
    std::vector<float> samples(std::size_t(frames) * channels, 0.0f);
    std::uint32_t got = s.render->pull(frames, samples.data()); // what it lacks stays silent
    if (s.render->glitchesWhenDry()) {
        // A new shortage: after a full pass, or after new samples that ran out as well.
        if (got < frames && (!s.starved || got > 0)) {
            ++glitches;
        }
        s.starved = got < frames;
    }
    for (std::uint32_t f = 0; f < frames; ++f) {
        for (std::uint32_t c = 0; c < channels; ++c) {
            samples[std::size_t(f) * channels + c] *= float(gain.of(c));
        }
    }
    s.history.append(s.timeOf(s.position), s.setup.format.rate, channels, samples.data(), frames);
    s.position = s.takenAt(time);
}

struct Heard {
    const RouteInfo* route;
    std::vector<const AudioEngine::Stream*> sources;
};

// What the capture channels hear at time t along their routes, into out.
void hear(double t, const std::vector<Heard>& routes, std::uint32_t channels, float* out,
          std::normal_distribution<double>& gauss, std::mt19937& noise) {
    std::vector<double> sum(channels, 0.0);
    std::vector<float> played;
    for (const Heard& heard : routes) {
        for (const AudioEngine::Stream* source : heard.sources) {
            const std::uint32_t renderChannels = source->history.channels();
            played.resize(renderChannels);
            source->history.at(t - heard.route->delay, played.data());
            for (std::uint32_t c = 0; c < channels; ++c) {
                double signal = 0;
                for (std::uint32_t r = 0; r < renderChannels; ++r) {
                    signal += heard.route->weight(c, r, renderChannels) * played[r];
                }
                sum[c] += heard.route->gain * signal;
            }
        }
        for (std::uint32_t c = 0; c < channels; ++c) {
            sum[c] += heard.route->noise * gauss(noise);
        }
    }
    for (std::uint32_t c = 0; c < channels; ++c) {
        out[c] = float(sum[c]);
    }
}

void recordFrom(AudioEngine::Stream& s, Hns time, const MachineView& view,
                const std::map<StreamId, AudioEngine::Stream>& streams) {
    std::uint32_t frames = dueFrames(s, time);
    if (frames == 0) {
        return;
    }
    std::vector<Heard> routes;
    auto [first, last] = view.routesTo.equal_range(s.setup.endpoint);
    for (auto it = first; it != last; ++it) {
        Heard heard{&it->second, {}};
        for (const auto& [id, other] : streams) {
            if (other.setup.render && other.setup.endpoint == it->second.render) {
                heard.sources.push_back(&other);
            }
        }
        routes.push_back(std::move(heard));
    }
    const EndpointGain& gain = view.gains.at(s.setup.endpoint);
    const std::uint32_t channels = s.setup.format.channels;
    std::vector<float> samples(std::size_t(frames) * channels, 0.0f);
    std::normal_distribution<double> gauss;
    for (std::uint32_t f = 0; routes.size() && f < frames; ++f) {
        float* frame = &samples[std::size_t(f) * channels];
        hear(s.timeOf(s.position + f), routes, channels, frame, gauss, s.noise);
        for (std::uint32_t c = 0; c < channels; ++c) {
            frame[c] = float(frame[c] * gain.of(c));
        }
    }
    s.capture->push(samples.data(), frames, s.position, Hns(s.timeOf(s.position)), routes.empty());
    s.position = s.framesAt(time);
}

void signalPeriods(AudioEngine::Stream& s) {
    std::uint64_t periodFrames =
        std::max<std::uint64_t>(1, std::uint64_t(s.setup.period) * s.setup.format.rate / 10000000);
    std::uint64_t periods = s.position / periodFrames;
    if (s.setup.event && periods > s.periodsSignalled) {
        SetEvent(s.setup.event);
    }
    s.periodsSignalled = std::max(s.periodsSignalled, periods);
}

} // namespace

void AudioEngine::advanceTo(Hns time) {
    std::lock_guard lock(m_mutex);
    State& state = *m_state;
    if (time <= state.now) {
        return;
    }
    MachineView view = viewMachine();
    auto usable = [&](const Stream& s) {
        auto gain = view.gains.find(s.setup.endpoint);
        return s.running && !s.closed && gain != view.gains.end() && gain->second.usable;
    };
    // Render first: a capture at time t may hear what was played up to t.
    for (auto& [id, s] : state.streams) {
        if (s.setup.render && usable(s)) {
            playInto(s, time, view.gains.at(s.setup.endpoint), state.glitches[s.setup.endpoint]);
        }
    }
    for (auto& [id, s] : state.streams) {
        if (!s.setup.render && usable(s)) {
            recordFrom(s, time, view, state.streams);
        }
    }
    const double forget = double(time) - kHistoryHns - view.longestDelay;
    for (auto it = state.streams.begin(); it != state.streams.end();) {
        Stream& s = it->second;
        if (usable(s)) {
            signalPeriods(s);
        }
        s.history.forgetBefore(forget);
        it = s.closed && s.history.empty() ? state.streams.erase(it) : std::next(it);
    }
    state.now = time;
}

// In real time nobody else moves the streams of legacy wave devices, whose progress is
// only visible in their headers: a pump does while any stream runs.
void AudioEngine::ensurePump() {
    if (m_state->pumping || Clock::instance().mode() != ClockMode::Real) {
        return;
    }
    m_state->pumping = true;
    std::thread([this] { pump(); }).detach();
}

void AudioEngine::pump() {
    for (;;) {
        std::this_thread::sleep_for(kPumpInterval);
        catchUp();
        std::lock_guard lock(m_mutex);
        bool anyRunning = std::any_of(m_state->streams.begin(), m_state->streams.end(),
                                      [](const auto& entry) { return entry.second.running; });
        if (!anyRunning || Clock::instance().mode() != ClockMode::Real) {
            m_state->pumping = false;
            return;
        }
    }
}

} // namespace sim

namespace sim {

bool AudioEngine::isStreaming(const std::string& endpoint) {
    std::lock_guard lock(m_mutex);
    return std::any_of(m_state->streams.begin(), m_state->streams.end(), [&](const auto& entry) {
        return entry.second.setup.endpoint == endpoint && entry.second.holdsTime();
    });
}

bool isStreaming(const std::string& endpointId) {
    return AudioEngine::instance().isStreaming(endpointId);
}

std::uint64_t AudioEngine::takeGlitches(const std::string& endpoint) {
    std::lock_guard lock(m_mutex);
    return std::exchange(m_state->glitches[endpoint], 0);
}

std::uint64_t takeRenderGlitches(const std::string& endpointId) {
    AudioEngine& engine = AudioEngine::instance();
    engine.catchUp();
    return engine.takeGlitches(endpointId);
}

} // namespace sim
