// audiodiag record: 16-bit PCM from one capture endpoint into a WAV file, measured.
#include "Commands.h"
#include "Plot.h"
#include "Report.h"
#include "Streaming.h"

#include "libAudio/PCMSupport.h"

#include <memory>

namespace audiodiag {

namespace {

struct RecordOptions {
    std::string endpoint;
    std::string path;
    double seconds = 1.0;
    bool legacy = false;
    std::string plot;
};

int record(const RecordOptions& o, const GlobalOptions& global) {
    EndpointCatalog catalog;
    if (int code = requireAdministrator(catalog); code != EXIT_OK) {
        return code;
    }
    const EndpointEntry* entry = nullptr;
    if (int code = resolveEndpoint(catalog, o.endpoint, eCapture, entry); code != EXIT_OK) {
        return code;
    }
    StreamEndpoint endpoint;
    ApiChoice choice;
    if (int code = openEndpoints({{entry, &endpoint}}, o.legacy, choice); code != EXIT_OK) {
        return code;
    }
    const StreamApi api = choice.api;
    libAudio::StaticPCMBuffer recording;
    if (!makeRecordingBuffer(endpoint.format, o.seconds, recording)) {
        printError("cannot make a buffer for " + std::to_string(o.seconds) + " s");
        return EXIT_FAILED;
    }
    catchInterrupt();
    Recorder recorder(api);
    std::string why;
    if (!recorder.start(endpoint, recording, why) || !recorder.finish("recording", why)) {
        printError(why);
        return EXIT_FAILED;
    }
    if (!libAudio::writePCMToWaveFile(qel::String::fromUtf8(o.path), recording)) {
        printError("cannot write " + o.path);
        return EXIT_FAILED;
    }
    const WAVEFORMATEX& format = recording.format().Format;
    nlohmann::ordered_json report = {{"endpoint", endpointIdentity(*entry)}};
    reportApi(report, choice);
    report.update(nlohmann::ordered_json{{"file", o.path},
                                         {"seconds", recording.durationSeconds()},
                                         {"sample_rate", format.nSamplesPerSec},
                                         {"channels", format.nChannels},
                                         {"bits_per_sample", format.wBitsPerSample},
                                         {"measurements", measureChannels(recording)}});
    if (!o.plot.empty()) {
        PlotRequest request{"Recording from " + displayName(entry->device),
                            o.path + ", " + apiName(api), loudestChannel(recording)};
        request.subtitle += ", channel " + std::to_string(request.channel);
        if (!writePlot(o.plot, recording, request, why)) {
            printError(why);
            return EXIT_FAILED;
        }
        report["plot"] = o.plot;
    }
    printReport(report, global.json);
    return EXIT_OK;
}

} // namespace

Action addRecordCommand(CLI::App& app, const GlobalOptions& global) {
    auto o = std::make_shared<RecordOptions>();
    app.add_option("id", o->endpoint, "Capture endpoint: id, a unique prefix of it, or its name")
        ->required();
    app.add_option("file", o->path, "WAV file to write")->required();
    app.add_option("--seconds", o->seconds, "How long to record")
        ->check(CLI::Range(0.01, 3600.0))
        ->capture_default_str();
    app.add_flag("--legacy", o->legacy, "Record through the legacy wave device");
    app.add_option("--plot", o->plot, "Also draw the waveform and spectrum to this SVG file");
    return [o, &global] {
        return record(*o, global);
    };
}

} // namespace audiodiag
