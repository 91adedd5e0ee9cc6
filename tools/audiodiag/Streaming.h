// What play, record and loopback share: picking and opening an endpoint for a stream,
// test tones, running a renderer or a capture to its end with progress on a terminal, and
// the measurements of a recording.
#pragma once

#include "EndpointCatalog.h"

#include "foundation/qelThread.h"
#include "libAudio/AudioCapture.h"
#include "libAudio/AudioRenderer.h"
#include "libAudio/StaticPCMBuffer.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace audiodiag {

// Streams through the audio client, or through the legacy wave devices.
enum class StreamApi { Client, Legacy };
std::string apiName(StreamApi api);

// An endpoint opened for streaming.
struct StreamEndpoint {
    const EndpointEntry* entry = nullptr;
    CComPtr<IMMDevice> device;
    // 16-bit PCM at the endpoint's own rate and channel count.
    WAVEFORMATEXTENSIBLE format{};
};

// The interface that streams, and why it is not the one asked for (empty when it is).
struct ApiChoice {
    StreamApi api = StreamApi::Client;
    std::string why;
};
// Opens the endpoints for a stream: through the audio client, or the legacy wave devices
// when asked (--legacy) or when an endpoint does not allow the exclusive mode the client
// classes ask for. On failure the message is printed and the exit code returned.
int openEndpoints(const std::vector<std::pair<const EndpointEntry*, StreamEndpoint*>>& endpoints,
                  bool legacy, ApiChoice& choice);
// "api" and, when the choice fell back, "api_reason".
void reportApi(nlohmann::ordered_json& report, const ApiChoice& choice);

// The endpoint the user named, checked to be of the flow; on failure the message is
// printed and the exit code returned, EXIT_OK otherwise.
int resolveEndpoint(const EndpointCatalog& catalog, const std::string& wanted, EDataFlow flow,
                    const EndpointEntry*& out);
// Opens an endpoint for a stream through the api: it must be active, report its device
// format and, for the legacy api, have a legacy wave device of its own.
int openEndpoint(const EndpointEntry& entry, StreamApi api, StreamEndpoint& out);

// A tone of the given number of blocks in every channel of the format.
bool makeTone(const WAVEFORMATEXTENSIBLE& format, double hz, unsigned int amplitude,
              unsigned int blocks, libAudio::StaticPCMBuffer& out);
// The length of a tone that can be looped without a click: about half a second of whole
// cycles (to a fraction of a sample when the period is no whole number of samples).
unsigned int loopBlocks(double hz, unsigned int rate);
// A silent buffer of the format that holds the given seconds.
bool makeRecordingBuffer(const WAVEFORMATEXTENSIBLE& format, double seconds,
                         libAudio::StaticPCMBuffer& out);

class Player {
public:
    explicit Player(StreamApi api);
    ~Player();
    // Opens the endpoint with the tone and starts it, once or looping; false with why.
    bool start(const StreamEndpoint& endpoint, libAudio::StaticPCMBuffer& tone, bool loop,
               std::string& why);
    bool playing() const;
    void stop();

private:
    StreamApi m_api;
    std::unique_ptr<libAudio::AudioRenderer> m_renderer;
    bool m_started = false;
};

class Recorder {
public:
    explicit Recorder(StreamApi api);
    ~Recorder();
    // Opens the endpoint and starts filling the buffer; false with why.
    bool start(const StreamEndpoint& endpoint, libAudio::StaticPCMBuffer& buffer, std::string& why);
    // Waits until the buffer is full, showing progress under the label, and stops; false
    // with why.
    bool finish(const std::string& label, std::string& why);
    void stop();

private:
    // The seconds recorded so far and the level of the latest of them, when known.
    double recordedSeconds(double elapsed) const;
    std::optional<double> recentLevel(double recorded) const;

    StreamApi m_api;
    std::unique_ptr<libAudio::AudioCapture> m_capture;
    libAudio::StaticPCMBuffer* m_buffer = nullptr;
    bool m_started = false;
};

// Ctrl-C asks the running stream to end; the commands then stop their streams and fail.
void catchInterrupt();
bool interrupted();

// Seconds since the stopwatch started, on the platform's clock: a simulated machine on
// virtual time runs waits and time-outs on that time too.
double secondsSince(const qel::Stopwatch& stopwatch);

// A time limit in real time that guards against a stream that never ends. Not on the
// platform's clock: a simulated clock on virtual time may race ahead of a busy stream.
class Deadline {
public:
    explicit Deadline(double seconds);
    bool passed() const { return std::chrono::steady_clock::now() >= m_end; }

private:
    std::chrono::steady_clock::time_point m_end;
};

// level_dbfs, mean, std_dev and frequency_hz of every channel.
nlohmann::ordered_json measureChannels(const libAudio::StaticPCMBuffer& buffer);
// The channel with the highest level.
unsigned int loudestChannel(const libAudio::StaticPCMBuffer& buffer);
// id and name of an endpoint.
nlohmann::ordered_json endpointIdentity(const EndpointEntry& entry);

} // namespace audiodiag
