// The simulated audio engine: moves samples from the streams of render endpoints along the
// machine's routes into the streams of capture endpoints, at the rate of each stream's
// format, on the platform's clock. Streams come from audio clients and legacy wave devices.
#pragma once

#include "platform/sim/Clock.h"
#include "platform/sim/SampleCodec.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace sim {

// Where a render stream's samples come from.
class RenderFeed {
public:
    virtual ~RenderFeed() = default;
    // Writes up to frames frames of floats; returns how many it had. Runs under the
    // engine's lock.
    virtual std::uint32_t pull(std::uint32_t frames, float* out) = 0;
    // Whether the feed has work for the clock to wait for; an idle one does not hold
    // virtual time up.
    virtual bool active() const { return true; }
    // Whether running out of samples while running is a glitch (an audio client's buffer),
    // or the end of what was queued (a wave device's blocks).
    virtual bool glitchesWhenDry() const { return false; }
};

// Where a capture stream's samples go.
class CaptureFeed {
public:
    virtual ~CaptureFeed() = default;
    // Takes frames frames of floats recorded at device position `position`; silent when
    // nothing was routed to the endpoint. Runs under the engine's lock.
    virtual void push(const float* samples, std::uint32_t frames, std::uint64_t position, Hns time,
                      bool silent) = 0;
    virtual bool active() const { return true; }
};

struct StreamSetup {
    std::string endpoint;
    bool render = true;
    bool exclusive = false;
    SampleFormat format;
    Hns period = 100000;    // how often an event-driven stream is signalled
    HANDLE event = nullptr; // signalled once a period while running; may be null
    // An exclusive stream cuts off the endpoint's shared streams (Windows' default, "Give
    // exclusive mode applications priority"); without it, it is refused while they are open.
    bool preemptsShared = true;
};

typedef std::uint64_t StreamId;

class AudioEngine {
public:
    static AudioEngine& instance();

    // Opens a stream; AUDCLNT_E_DEVICE_IN_USE when the endpoint is held exclusively by
    // another stream, or when an exclusive stream that may not preempt meets a shared one.
    // An exclusive stream that may cuts the endpoint's shared streams off for good.
    HRESULT open(const StreamSetup& setup, std::shared_ptr<RenderFeed> render,
                 std::shared_ptr<CaptureFeed> capture, StreamId& id);
    void close(StreamId id);
    // Running streams move with the clock; the thread that starts one is its owner.
    void start(StreamId id);
    void stop(StreamId id);
    // Back to device position 0.
    void resetPosition(StreamId id);
    void setEvent(StreamId id, HANDLE event);
    bool isRunning(StreamId id) const;
    // Whether an exclusive stream has cut this shared stream off.
    bool isPreempted(StreamId id) const;
    std::uint64_t position(StreamId id) const;
    bool isStreaming(const std::string& endpoint);
    // Times a render stream of the endpoint ran dry since the last call.
    std::uint64_t takeGlitches(const std::string& endpoint);

    // Brings every stream up to the clock's time (real time moves on its own; virtual time
    // brings streams along as it moves). Locks nothing the caller holds.
    void catchUp();
    // Runs f under the engine's lock: feeds change only there.
    template <class F> auto locked(F&& f) {
        std::lock_guard lock(m_mutex);
        return f();
    }

    struct Stream; // the engine's record of one stream
    struct State;

private:
    AudioEngine();
    void advanceTo(Hns time);
    void ensurePump();
    void pump();
    std::vector<std::thread::id> owners();
    void ownerGone(std::thread::id owner);
    friend struct OwnerThreadExit;

    mutable std::recursive_mutex m_mutex;
    std::unique_ptr<State> m_state;
};

} // namespace sim
