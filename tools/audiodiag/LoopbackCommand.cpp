// audiodiag loopback: play a looping tone on one endpoint, record another meanwhile, and
// pass when the recording carries the tone loudly enough at the right frequency.
#include "Commands.h"
#include "Plot.h"
#include "Report.h"
#include "Streaming.h"

#include "libAudio/PCMSupport.h"
#include "libAudio/SignalAnalysis.h"

#include <cctype>
#include <cmath>
#include <cstdio>
#include <memory>

namespace audiodiag {

namespace {

struct LoopbackOptions {
    std::string render;
    std::string capture;
    double frequency = 1000.0;
    double seconds = 1.0;
    bool legacy = false;
    double minLevel = -60.0;
    double tolerance = 2.0;
    std::string plot;
    std::string out;
};

constexpr std::uint32_t kSpeakersFormFactor = 1;

bool isActive(const EndpointEntry& e, EDataFlow flow) {
    return e.flow == flow && e.device.deviceProperty().state == DEVICE_STATE_ACTIVE;
}

bool onHdAudio(const AudioDevice& device) {
    std::string name = text(device.deviceProperty().enumeratorName);
    for (char& c : name) {
        c = char(std::toupper(static_cast<unsigned char>(c)));
    }
    return name == "HDAUDIO";
}

// The laptop's own speakers: a Speakers form factor on the HD Audio codec (a USB headset
// and a virtual cable call their outputs speakers too).
const EndpointEntry* internalSpeakers(const EndpointCatalog& catalog) {
    for (const EndpointEntry& e : catalog.entries()) {
        if (isActive(e, eRender) && onHdAudio(e.device) &&
            formFactor(e.device) == kSpeakersFormFactor) {
            return &e;
        }
    }
    return nullptr;
}

// The built-in microphone array, preferably on the same adapter as the speakers.
const EndpointEntry* internalMicrophoneArray(const EndpointCatalog& catalog,
                                             const EndpointEntry* speakers) {
    const EndpointEntry* found = nullptr;
    for (const EndpointEntry& e : catalog.entries()) {
        const GUID& node = e.device.deviceProperty().nodeGuid;
        if (!isActive(e, eCapture) || (node != KSNODETYPE_MICROPHONE_ARRAY &&
                                       node != KSNODETYPE_PROCESSING_MICROPHONE_ARRAY)) {
            continue;
        }
        if (speakers && e.device.deviceProperty().instancePath ==
                            speakers->device.deviceProperty().instancePath) {
            return &e;
        }
        found = found ? found : &e;
    }
    return found;
}

const EndpointEntry* defaultEndpoint(const EndpointCatalog& catalog, EDataFlow flow) {
    for (const EndpointEntry& e : catalog.entries()) {
        if (isActive(e, flow) && e.device.isDefaultEndpoint()) {
            return &e;
        }
    }
    return nullptr;
}

// The endpoint named by the user, or the built-in one, or the default one; how it was
// chosen goes to `how`.
int chooseEndpoint(const EndpointCatalog& catalog, const std::string& wanted, EDataFlow flow,
                   const EndpointEntry* speakers, const EndpointEntry*& out, std::string& how) {
    if (!wanted.empty()) {
        how = "given";
        return resolveEndpoint(catalog, wanted, flow, out);
    }
    out = flow == eRender ? internalSpeakers(catalog) : internalMicrophoneArray(catalog, speakers);
    how = flow == eRender ? "speakers on the HD Audio adapter" : "microphone array";
    if (!out) {
        out = defaultEndpoint(catalog, flow);
        how = "default console endpoint";
    }
    if (!out) {
        printError("this machine has no active " + flowName(flow) + " endpoint to test");
        return EXIT_FAILED;
    }
    return EXIT_OK;
}

std::string figure(const char* pattern, double value) {
    char text[64];
    std::snprintf(text, sizeof text, pattern, value);
    return text;
}

int loopback(const LoopbackOptions& o, const GlobalOptions& global) {
    EndpointCatalog catalog;
    if (int code = requireAdministrator(catalog); code != EXIT_OK) {
        return code;
    }
    const EndpointEntry *renderEntry = nullptr, *captureEntry = nullptr;
    std::string renderHow, captureHow;
    if (int code = chooseEndpoint(catalog, o.render, eRender, nullptr, renderEntry, renderHow);
        code != EXIT_OK) {
        return code;
    }
    if (int code =
            chooseEndpoint(catalog, o.capture, eCapture, renderEntry, captureEntry, captureHow);
        code != EXIT_OK) {
        return code;
    }
    StreamEndpoint render, capture;
    ApiChoice choice;
    if (int code =
            openEndpoints({{renderEntry, &render}, {captureEntry, &capture}}, o.legacy, choice);
        code != EXIT_OK) {
        return code;
    }
    const StreamApi api = choice.api;
    const unsigned int renderRate = render.format.Format.nSamplesPerSec;
    const unsigned int captureRate = capture.format.Format.nSamplesPerSec;
    if (o.frequency >= std::min(renderRate, captureRate) / 2.0) {
        printError("the frequency must lie below half of both endpoints' sample rates (" +
                   std::to_string(std::min(renderRate, captureRate) / 2) + " Hz)");
        return EXIT_USAGE;
    }

    libAudio::StaticPCMBuffer tone, recording;
    if (!makeTone(render.format, o.frequency, 16384, loopBlocks(o.frequency, renderRate), tone) ||
        !makeRecordingBuffer(capture.format, o.seconds, recording)) {
        printError("cannot make the buffers for the test");
        return EXIT_FAILED;
    }
    catchInterrupt();
    Player player(api);
    Recorder recorder(api);
    std::string why;
    // The tone loops for as long as the recording needs; the recording sets the time.
    bool recorded = player.start(render, tone, true, why) &&
                    recorder.start(capture, recording, why) && recorder.finish("loopback", why);
    recorder.stop();
    player.stop();
    if (!recorded) {
        printError(why);
        return EXIT_FAILED;
    }

    const unsigned int channel = loudestChannel(recording);
    const double level = libAudio::levelDbfs(recording, channel);
    const double measured = libAudio::dominantFrequency(recording, channel);
    const double error = std::fabs(measured - o.frequency) / o.frequency * 100.0;
    std::vector<std::string> failures;
    if (level <= o.minLevel) {
        failures.push_back("the level " + figure("%.1f", level) + " dBFS is not above " +
                           figure("%.1f", o.minLevel) + " dBFS");
    }
    if (error > o.tolerance) {
        failures.push_back("the measured frequency " + figure("%.1f", measured) + " Hz is " +
                           figure("%.2f", error) + " % off the played " +
                           figure("%.1f", o.frequency) + " Hz (tolerance " +
                           figure("%g", o.tolerance) + " %)");
    }
    nlohmann::ordered_json renderReport = endpointIdentity(*renderEntry);
    renderReport["chosen"] = renderHow;
    nlohmann::ordered_json captureReport = endpointIdentity(*captureEntry);
    captureReport["chosen"] = captureHow;
    nlohmann::ordered_json report = {{"render", renderReport}, {"capture", captureReport}};
    reportApi(report, choice);
    report.update(nlohmann::ordered_json{{"seconds", recording.durationSeconds()},
                                         {"played_frequency_hz", o.frequency},
                                         {"measured_frequency_hz", measured},
                                         {"frequency_error_percent", error},
                                         {"tolerance_percent", o.tolerance},
                                         {"channel", channel},
                                         {"level_dbfs", level},
                                         {"min_level_dbfs", o.minLevel},
                                         {"mean", libAudio::mean(recording, channel)},
                                         {"std_dev", libAudio::stdDev(recording, channel)},
                                         {"channels", measureChannels(recording)},
                                         {"result", failures.empty() ? "pass" : "fail"}});
    if (!failures.empty()) {
        report["failures"] = failures;
    }

    int result = failures.empty() ? EXIT_OK : EXIT_FAILED;
    if (!o.out.empty()) {
        if (libAudio::writePCMToWaveFile(qel::String::fromUtf8(o.out), recording)) {
            report["file"] = o.out;
        } else {
            printError("cannot write " + o.out);
            result = EXIT_FAILED;
        }
    }
    if (!o.plot.empty()) {
        PlotRequest request{"Loopback " + figure("%g", o.frequency) +
                                " Hz: " + (failures.empty() ? "pass" : "FAIL"),
                            displayName(renderEntry->device) + " → " +
                                displayName(captureEntry->device) + ", channel " +
                                std::to_string(channel),
                            channel};
        if (writePlot(o.plot, recording, request, why)) {
            report["plot"] = o.plot;
        } else {
            printError(why);
            result = EXIT_FAILED;
        }
    }
    printReport(report, global.json);
    for (const std::string& failure : failures) {
        printError("loopback failed: " + failure);
    }
    return result;
}

} // namespace

Action addLoopbackCommand(CLI::App& app, const GlobalOptions& global) {
    auto o = std::make_shared<LoopbackOptions>();
    app.add_option("--play", o->render,
                   "Render endpoint (default: the internal speakers, else the default one)");
    app.add_option("--record", o->capture,
                   "Capture endpoint (default: the internal microphone array, else the default "
                   "one)");
    app.add_option("--freq", o->frequency, "Frequency of the tone in Hz")
        ->check(CLI::Range(1.0, 200000.0))
        ->capture_default_str();
    app.add_option("--seconds", o->seconds, "How long to record")
        ->check(CLI::Range(0.01, 3600.0))
        ->capture_default_str();
    app.add_flag("--legacy", o->legacy, "Stream through the legacy wave devices");
    app.add_option("--min-level", o->minLevel, "Lowest passing level in dBFS")
        ->check(CLI::Range(-200.0, 0.0))
        ->capture_default_str();
    app.add_option("--tolerance", o->tolerance, "Largest passing frequency error in percent")
        ->check(CLI::Range(0.0, 100.0))
        ->capture_default_str();
    app.add_option("--plot", o->plot, "Draw the recording's waveform and spectrum to this SVG");
    app.add_option("--out", o->out, "Write the recording to this WAV file");
    return [o, &global] {
        return loopback(*o, global);
    };
}

} // namespace audiodiag
