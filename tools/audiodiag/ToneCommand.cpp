// audiodiag tone: a sine tone of 16-bit PCM written to a WAV file.
#include "Commands.h"
#include "Report.h"

#include "libAudio/PCMSupport.h"
#include "libAudio/StaticPCMBuffer.h"

#include <memory>

namespace audiodiag {

namespace {

struct ToneOptions {
    std::string path;
    double frequency = 1000.0;
    unsigned int amplitude = 16384;
    double seconds = 1.0;
    unsigned int rate = 48000;
    unsigned int channels = 2;
    std::string channel = "both";
};

bool wantsChannel(const ToneOptions& o, int index) {
    return o.channel == "both" || (o.channel == "left" && index == 0) ||
           (o.channel == "right" && index == 1);
}

int writeTone(const ToneOptions& o, const GlobalOptions& global) {
    if (o.frequency >= o.rate / 2.0) {
        printError("the frequency must lie below half the sample rate (" +
                   std::to_string(o.rate / 2) + " Hz)");
        return EXIT_USAGE;
    }
    WAVEFORMATEX format{};
    libAudio::createWaveformatEx(o.channels, 16, o.rate, format);
    libAudio::StaticPCMBuffer buffer;
    if (!libAudio::createPCMBuffer(format, o.seconds, buffer)) {
        printError("cannot make a buffer for " + std::to_string(o.seconds) + " s");
        return EXIT_FAILED;
    }
    for (int c = 0; c < int(o.channels); ++c) {
        if (wantsChannel(o, c) && !libAudio::createSinusoid(libAudio::PCMTrack::Channel(c),
                                                            o.amplitude, o.frequency, buffer)) {
            printError("cannot generate the tone");
            return EXIT_FAILED;
        }
    }
    if (!libAudio::writePCMToWaveFile(qel::String::fromUtf8(o.path), buffer)) {
        printError("cannot write " + o.path);
        return EXIT_FAILED;
    }
    nlohmann::ordered_json report = {{"file", o.path},
                                     {"frequency_hz", o.frequency},
                                     {"amplitude", o.amplitude},
                                     {"seconds", buffer.durationSeconds()},
                                     {"sample_rate", o.rate},
                                     {"channels", o.channels},
                                     {"tone_in", o.channels == 1 ? "mono" : o.channel},
                                     {"blocks", buffer.numBlocks()}};
    printReport(report, global.json);
    return EXIT_OK;
}

} // namespace

Action addToneCommand(CLI::App& app, const GlobalOptions& global) {
    auto o = std::make_shared<ToneOptions>();
    app.add_option("file", o->path, "WAV file to write")->required();
    app.add_option("--freq", o->frequency, "Frequency in Hz")
        ->check(CLI::Range(1.0, 200000.0))
        ->capture_default_str();
    app.add_option("--amp", o->amplitude, "Peak amplitude of the 16-bit samples")
        ->check(CLI::Range(0u, 32767u))
        ->capture_default_str();
    app.add_option("--seconds", o->seconds, "Length in seconds")
        ->check(CLI::Range(0.001, 3600.0))
        ->capture_default_str();
    app.add_option("--rate", o->rate, "Sample rate in Hz")
        ->check(CLI::Range(1000u, 384000u))
        ->capture_default_str();
    app.add_option("--channels", o->channels, "1 (mono) or 2 (stereo)")
        ->check(CLI::Range(1u, 2u))
        ->capture_default_str();
    app.add_option("--channel", o->channel, "Which channel carries the tone in stereo")
        ->check(CLI::IsMember({"left", "right", "both"}))
        ->capture_default_str();
    return [o, &global] {
        return writeTone(*o, global);
    };
}

} // namespace audiodiag
