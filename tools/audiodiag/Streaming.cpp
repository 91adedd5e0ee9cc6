#include "Streaming.h"

#include "Commands.h"
#include "Report.h"

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

#ifdef _WIN32
#include <io.h>
#define isatty _isatty
#else
#include <unistd.h>
#endif

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

int openEndpoint(const EndpointEntry& entry, StreamEndpoint& out) {
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
    if (m_api == StreamApi::Legacy && endpoint.entry->device.waveLegacyDeviceID() == 0xFFFFFFFF) {
        why = name + " has no legacy wave device";
        return false;
    }
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

bool Recorder::finish(std::string& why) {
    if (!m_started) {
        why = "no recording is running";
        return false;
    }
    const double seconds = m_buffer->durationSeconds();
    // Far beyond any device latency: a stream that delivers nothing must not hang us.
    const double limit = 2 * seconds + 5;
    const Deadline deadline(limit);
    Progress progress("recording", seconds);
    qel::Stopwatch clock;
    bool late = false;
    while (m_capture->isStillRecording() && !interrupted()) {
        if (deadline.passed()) {
            late = true;
            break;
        }
        progress.update(secondsSince(clock));
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

Progress::Progress(std::string what, double seconds)
    : m_what(std::move(what)), m_seconds(seconds), m_shown(seconds > 1.0 && isatty(2)) {}

Progress::~Progress() {
    if (m_shown && m_width > 0) {
        std::fprintf(stderr, "\r%s\r", std::string(m_width, ' ').c_str());
        std::fflush(stderr);
    }
}

void Progress::update(double done) {
    if (!m_shown) {
        return;
    }
    done = std::clamp(done, 0.0, m_seconds);
    const int width = 24, filled = int(width * done / m_seconds);
    char figures[64];
    std::snprintf(figures, sizeof figures, "] %.1f / %.1f s", done, m_seconds);
    std::string line =
        m_what + " [" + std::string(filled, '#') + std::string(width - filled, '.') + figures;
    if (line != m_last) {
        std::fprintf(stderr, "\r%s", line.c_str());
        std::fflush(stderr);
        m_width = std::max(m_width, line.size());
        m_last = line;
    }
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
