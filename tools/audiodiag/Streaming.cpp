#include "Streaming.h"

#include "Commands.h"
#include "Report.h"
#include "Terminal.h"

#include "foundation/qelSystem.h"
#include "libAudio/LegacyWave.h"
#include "libAudio/PCMSupport.h"
#include "libAudio/SignalAnalysis.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>

namespace audiodiag {

namespace {

std::atomic<bool> interruptFlag{false};
static_assert(std::atomic<bool>::is_always_lock_free, "set from a signal handler");

extern "C" void onInterrupt(int) {
    interruptFlag = true;
}

std::string describe(const WAVEFORMATEX& f) {
    return std::to_string(f.wBitsPerSample) + "-bit PCM, " + std::to_string(f.nSamplesPerSec) +
           " Hz, " + std::to_string(f.nChannels) + " channel" + (f.nChannels == 1 ? "" : "s");
}

const std::function<bool()> abortWhenInterrupted = [] {
    return interrupted();
};

// What waveLegacyDeviceID answers for an endpoint without a legacy device. It is also
// WAVE_MAPPER, which a wave device opens as the default device: never pass it on.
constexpr unsigned int kNoLegacyDevice = 0xFFFFFFFF;

// The level in dBFS of the loudest channel of the 16-bit blocks in [begin, end) of the
// buffer, as libAudio::levelDbfs measures a whole buffer.
double levelOfBlocks(const libAudio::StaticPCMBuffer& buffer, std::uint64_t begin,
                     std::uint64_t end) {
    const unsigned int channels = buffer.format().Format.nChannels;
    const unsigned int align = buffer.format().Format.nBlockAlign;
    if (end <= begin || channels == 0 || align < channels * 2) {
        return libAudio::kSilenceDbfs;
    }
    double loudest = 0.0;
    for (unsigned int c = 0; c < channels; ++c) {
        double squares = 0.0;
        for (std::uint64_t b = begin; b < end; ++b) {
            std::int16_t sample;
            std::memcpy(&sample, buffer.pcmArray().data() + b * align + c * 2, 2);
            squares += double(sample) * sample;
        }
        loudest = std::max(loudest, squares / double(end - begin));
    }
    return loudest > 0.0 ? 10.0 * std::log10(loudest / (32768.0 * 32768.0))
                         : libAudio::kSilenceDbfs;
}

} // namespace

int resolveEndpoint(const EndpointCatalog& catalog, const std::string& wanted, EDataFlow flow,
                    const EndpointEntry*& out) {
    std::string why;
    out = catalog.find(wanted, why);
    if (!out) {
        printError(why);
        return EXIT_USAGE;
    }
    if (out->flow != flow) {
        printError(displayName(out->device) + " is a " + flowName(out->flow) + " endpoint; a " +
                   flowName(flow) + " endpoint is needed here");
        return EXIT_USAGE;
    }
    return EXIT_OK;
}

int openEndpoint(const EndpointEntry& entry, StreamApi api, StreamEndpoint& out) {
    const AudioDevice::Properties& p = entry.device.deviceProperty();
    if (p.state != DEVICE_STATE_ACTIVE) {
        printError(displayName(entry.device) + " is " + stateName(p.state) +
                   "; only an active endpoint can stream");
        return EXIT_FAILED;
    }
    const WAVEFORMATEX& device = p.deviceFormat.Format;
    if (device.nSamplesPerSec == 0 || device.nChannels == 0) {
        printError(displayName(entry.device) + " does not report its device format");
        return EXIT_FAILED;
    }
    if (api == StreamApi::Legacy && entry.device.waveLegacyDeviceID() == kNoLegacyDevice) {
        printError(displayName(entry.device) +
                   " has no legacy wave device of its own; --legacy would stream through the "
                   "default device instead");
        return EXIT_FAILED;
    }
    out.entry = &entry;
    out.device = openDevice(entry.device);
    if (!out.device) {
        printError("cannot open " + displayName(entry.device) + " (has it gone?)");
        return EXIT_FAILED;
    }
    out.format = WAVEFORMATEXTENSIBLE{};
    if (device.nChannels <= 2) {
        libAudio::createWaveformatEx(device.nChannels, 16, device.nSamplesPerSec,
                                     out.format.Format);
    } else {
        // More than two channels need the extension to say which speaker is which.
        libAudio::createWaveformatExtend(device.nChannels, 16, device.nSamplesPerSec,
                                         p.deviceFormat.dwChannelMask, 16, out.format);
    }
    return EXIT_OK;
}

// Asks the endpoint's audio client, as the client classes do before they stream; an
// endpoint that cannot be asked is left to fail in the stream itself.
bool exclusiveModeAllowed(const StreamEndpoint& endpoint) {
    CComPtr<IAudioClient> client = endpoint.entry->device.audioClient();
    return !client ||
           client->IsFormatSupported(AUDCLNT_SHAREMODE_EXCLUSIVE, &endpoint.format.Format,
                                     nullptr) != AUDCLNT_E_EXCLUSIVE_MODE_NOT_ALLOWED;
}

int openEndpoints(const std::vector<std::pair<const EndpointEntry*, StreamEndpoint*>>& endpoints,
                  bool legacy, ApiChoice& choice) {
    choice = {legacy ? StreamApi::Legacy : StreamApi::Client, ""};
    for (const auto& [entry, out] : endpoints) {
        if (int code = openEndpoint(*entry, choice.api, *out); code != EXIT_OK) {
            return code;
        }
    }
    if (choice.api == StreamApi::Legacy) {
        return EXIT_OK;
    }
    const EndpointEntry* refusing = nullptr;
    for (const auto& [entry, out] : endpoints) {
        if (!exclusiveModeAllowed(*out)) {
            refusing = entry;
            break;
        }
    }
    if (!refusing) {
        return EXIT_OK;
    }
    const std::string notAllowed = displayName(refusing->device) +
                                   " does not allow exclusive mode, which the audio client needs";
    for (const auto& [entry, out] : endpoints) {
        if (entry->device.waveLegacyDeviceID() == kNoLegacyDevice) {
            printError(notAllowed + ", and " + displayName(entry->device) +
                       " has no legacy wave device to stream through instead");
            return EXIT_FAILED;
        }
        if (int code = openEndpoint(*entry, StreamApi::Legacy, *out); code != EXIT_OK) {
            return code;
        }
    }
    choice = {StreamApi::Legacy,
              notAllowed + " (\"Allow applications to take exclusive control of this device\" "
                           "is off, or a policy forbids it); the legacy wave devices streamed "
                           "instead"};
    return EXIT_OK;
}

void reportApi(nlohmann::ordered_json& report, const ApiChoice& choice) {
    report["api"] = apiName(choice.api);
    if (!choice.why.empty()) {
        report["api_reason"] = choice.why;
    }
}

bool makeTone(const WAVEFORMATEXTENSIBLE& format, double hz, unsigned int amplitude,
              unsigned int blocks, libAudio::StaticPCMBuffer& out) {
    // The library writes a tone into one channel; a mono tone is copied into every channel.
    WAVEFORMATEXTENSIBLE mono{};
    libAudio::createWaveformatEx(1, 16, format.Format.nSamplesPerSec, mono.Format);
    libAudio::StaticPCMBuffer tone;
    tone.initialize(blocks, mono);
    if (!libAudio::createSinusoid(libAudio::PCMTrack::LEFT, amplitude, hz, tone)) {
        return false;
    }
    out.initialize(blocks, format);
    const unsigned int channels = format.Format.nChannels, align = format.Format.nBlockAlign;
    if (out.numBlocks() != blocks || tone.numBlocks() != blocks || align < channels * 2) {
        return false;
    }
    const unsigned char* from = tone.pcmArray().data();
    unsigned char* to = out.pcmArray().data();
    for (unsigned int i = 0; i < blocks; ++i) {
        for (unsigned int c = 0; c < channels; ++c) {
            std::memcpy(to + std::size_t(i) * align + c * 2, from + std::size_t(i) * 2, 2);
        }
    }
    return true;
}

unsigned int loopBlocks(double hz, unsigned int rate) {
    double cycles = std::max(1.0, std::round(0.5 * hz));
    return unsigned(std::lround(cycles * rate / hz));
}

bool makeRecordingBuffer(const WAVEFORMATEXTENSIBLE& format, double seconds,
                         libAudio::StaticPCMBuffer& out) {
    if (!libAudio::createPCMBuffer(format.Format, seconds, out)) {
        return false;
    }
    out.setFormat(format); // createPCMBuffer keeps only the base record
    return true;
}

std::string apiName(StreamApi api) {
    return api == StreamApi::Legacy ? "legacy wave" : "audio client";
}

Player::Player(StreamApi api) : m_api(api) {}

Player::~Player() {
    stop();
}

bool Player::start(const StreamEndpoint& endpoint, libAudio::StaticPCMBuffer& tone, bool loop,
                   std::string& why) {
    const std::string name = displayName(endpoint.entry->device);
    unsigned int mode;
    if (m_api == StreamApi::Legacy) {
        m_renderer = std::make_unique<libAudio::AudioRendererLegacyWave>();
        mode = loop ? unsigned(libAudio::AudioRendererLegacyWave::LOOP) : 1u;
    } else {
        m_renderer = std::make_unique<libAudio::AudioRendererEx>();
        mode = loop ? 0u : unsigned(libAudio::AudioRendererEx::PLAY_ONCE);
    }
    // The legacy renderer opens its device in initialize but answers false there until
    // play has handed it the data; a device that cannot play shows as a playback that ends
    // at once.
    if (!m_renderer->initialize(endpoint.device, &tone) && m_api == StreamApi::Client) {
        why = "cannot open " + name + " for playback of " + describe(tone.format().Format) +
              " (in use, or the format refused?)";
        return false;
    }
    if (!m_renderer->play(mode, abortWhenInterrupted)) {
        why = interrupted() ? "interrupted" : "playback on " + name + " did not start";
        return false;
    }
    m_started = true;
    return true;
}

bool Player::playing() const {
    return m_started && m_renderer->isStillPlaying();
}

void Player::stop() {
    if (m_started) {
        m_renderer->stop();
        m_started = false;
    }
}

Recorder::Recorder(StreamApi api) : m_api(api) {}

Recorder::~Recorder() {
    stop();
}

bool Recorder::start(const StreamEndpoint& endpoint, libAudio::StaticPCMBuffer& buffer,
                     std::string& why) {
    const std::string name = displayName(endpoint.entry->device);
    if (m_api == StreamApi::Legacy) {
        m_capture = std::make_unique<libAudio::AudioCaptureLegacyWave>();
    } else {
        m_capture = std::make_unique<libAudio::AudioCaptureEx>();
    }
    if (!m_capture->initialize(endpoint.device, &buffer)) {
        why = "cannot open " + name + " for recording of " + describe(buffer.format().Format) +
              " (in use, or the format refused?)";
        return false;
    }
    buffer.resetWriteMarker();
    if (!m_capture->start(abortWhenInterrupted)) {
        why = interrupted() ? "interrupted" : "recording on " + name + " did not start";
        return false;
    }
    m_buffer = &buffer;
    m_started = true;
    return true;
}

bool Recorder::finish(const std::string& label, std::string& why) {
    if (!m_started) {
        why = "no recording is running";
        return false;
    }
    const double seconds = m_buffer->durationSeconds();
    // Far beyond any device latency: a stream that delivers nothing must not hang us.
    const double limit = 2 * seconds + 5;
    const Deadline deadline(limit);
    Progress progress(label, seconds);
    qel::Stopwatch clock;
    bool late = false;
    while (m_capture->isStillRecording() && !interrupted()) {
        if (deadline.passed()) {
            late = true;
            break;
        }
        if (progress.shown()) {
            const double recorded = recordedSeconds(secondsSince(clock));
            progress.update(recorded, recentLevel(recorded));
        }
        qel::System::mssleep(10);
    }
    stop();
    const int code = m_capture->threadExitCode();
    if (interrupted()) {
        why = "interrupted";
        return false;
    }
    if (late) {
        why = "the recording did not finish within " + std::to_string(int(limit)) + " s";
        return false;
    }
    if (code != 0) {
        why = "the recording ended with code " + std::to_string(code) +
              (code == 128 ? " (timed out before the buffer was full)" : "");
        return false;
    }
    // The legacy devices write into the buffer directly and leave its write marker alone.
    const std::uint64_t size = m_buffer->pcmArray().size();
    if (m_api == StreamApi::Client && m_buffer->writeMarker() < size) {
        why = "the recording stopped after " + std::to_string(m_buffer->writeMarker()) + " of " +
              std::to_string(size) + " bytes";
        return false;
    }
    return true;
}

double Recorder::recordedSeconds(double elapsed) const {
    const WAVEFORMATEX& format = m_buffer->format().Format;
    // The audio client moves the buffer's write marker as packets arrive (read here while
    // its worker writes, for a display only); the legacy device fills the buffer without
    // it, so only the time tells how far it is.
    if (m_api == StreamApi::Client && format.nAvgBytesPerSec > 0) {
        return double(m_buffer->writeMarker()) / format.nAvgBytesPerSec;
    }
    return std::min(elapsed, m_buffer->durationSeconds());
}

std::optional<double> Recorder::recentLevel(double recorded) const {
    const WAVEFORMATEX& format = m_buffer->format().Format;
    // The legacy device hands over what it has with some delay: leave its latest period out.
    const double end = m_api == StreamApi::Legacy ? recorded - 0.05 : recorded;
    const std::uint64_t window = format.nSamplesPerSec / 10;
    const std::uint64_t last = std::min<std::uint64_t>(
        std::uint64_t(std::max(end, 0.0) * format.nSamplesPerSec), m_buffer->numBlocks());
    if (window == 0 || last < window) {
        return std::nullopt;
    }
    return levelOfBlocks(*m_buffer, last - window, last);
}

void Recorder::stop() {
    if (m_started) {
        m_capture->stop();
        m_started = false;
    }
}

void catchInterrupt() {
    std::signal(SIGINT, onInterrupt);
}

bool interrupted() {
    return interruptFlag.load();
}

Deadline::Deadline(double seconds)
    : m_end(std::chrono::steady_clock::now() +
            std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                std::chrono::duration<double>(seconds))) {}

double secondsSince(const qel::Stopwatch& stopwatch) {
    return stopwatch.getElapsedMilliseconds() / 1000.0;
}

nlohmann::ordered_json measureChannels(const libAudio::StaticPCMBuffer& buffer) {
    nlohmann::ordered_json channels = nlohmann::ordered_json::array();
    for (unsigned int c = 0; c < buffer.format().Format.nChannels; ++c) {
        channels.push_back({{"channel", c},
                            {"level_dbfs", libAudio::levelDbfs(buffer, c)},
                            {"mean", libAudio::mean(buffer, c)},
                            {"std_dev", libAudio::stdDev(buffer, c)},
                            {"frequency_hz", libAudio::dominantFrequency(buffer, c)}});
    }
    return channels;
}

unsigned int loudestChannel(const libAudio::StaticPCMBuffer& buffer) {
    unsigned int loudest = 0;
    double level = libAudio::kSilenceDbfs;
    for (unsigned int c = 0; c < buffer.format().Format.nChannels; ++c) {
        double l = libAudio::levelDbfs(buffer, c);
        if (l > level) {
            loudest = c;
            level = l;
        }
    }
    return loudest;
}

nlohmann::ordered_json endpointIdentity(const EndpointEntry& entry) {
    return {{"id", text(entry.device.deviceProperty().deviceId)},
            {"name", displayName(entry.device)}};
}

} // namespace audiodiag
