// audiodiag play: a 16-bit test tone through one render endpoint, in the endpoint's own
// rate and channel count.
#include "Commands.h"
#include "Report.h"
#include "Streaming.h"
#include "Terminal.h"

#include "foundation/qelSystem.h"
#include "libAudio/PCMSupport.h"

#include <cstdio>
#include <memory>

namespace audiodiag {

namespace {

struct PlayOptions {
    std::string endpoint;
    double frequency = 1000.0;
    unsigned int amplitude = 16384;
    double seconds = 1.0;
    bool loop = false;
    bool legacy = false;
};

// Waits for the end of the tone (once) or for the time to pass (loop), counted on the
// clock started before the playback; false with why.
bool waitForPlayback(Player& player, const PlayOptions& o, const qel::Stopwatch& clock,
                     std::string& why) {
    // A tone played once ends by itself; the margin covers the device's queue.
    const double limit = 2 * o.seconds + 5;
    const Deadline deadline(limit);
    Progress progress("playing", o.seconds);
    while (!o.loop || secondsSince(clock) < o.seconds) {
        if (deadline.passed()) {
            why = "the playback did not end within " + std::to_string(int(limit)) + " s";
            return false;
        }
        if (interrupted()) {
            why = "interrupted";
            return false;
        }
        if (!player.playing()) {
            // A tone played once lasts its length; ending well before means it never played.
            double played = secondsSince(clock);
            if (o.loop || played < o.seconds / 2) {
                char text[96];
                std::snprintf(text, sizeof text, "the playback ended after %.2f s of %.2f s",
                              played, o.seconds);
                why = text;
                return false;
            }
            return true;
        }
        progress.update(secondsSince(clock));
        qel::System::mssleep(10);
    }
    return true;
}

int play(const PlayOptions& o, const GlobalOptions& global) {
    EndpointCatalog catalog;
    if (int code = requireAdministrator(catalog); code != EXIT_OK) {
        return code;
    }
    const EndpointEntry* entry = nullptr;
    if (int code = resolveEndpoint(catalog, o.endpoint, eRender, entry); code != EXIT_OK) {
        return code;
    }
    StreamEndpoint endpoint;
    ApiChoice choice;
    if (int code = openEndpoints({{entry, &endpoint}}, o.legacy, choice); code != EXIT_OK) {
        return code;
    }
    const StreamApi api = choice.api;
    const WAVEFORMATEX& format = endpoint.format.Format;
    if (o.frequency >= format.nSamplesPerSec / 2.0) {
        printError("the frequency must lie below half the endpoint's sample rate (" +
                   std::to_string(format.nSamplesPerSec / 2) + " Hz)");
        return EXIT_USAGE;
    }
    const unsigned int blocks = o.loop ? loopBlocks(o.frequency, format.nSamplesPerSec)
                                       : libAudio::numPCMBlock(format, o.seconds);
    libAudio::StaticPCMBuffer tone;
    if (!makeTone(endpoint.format, o.frequency, o.amplitude, blocks, tone)) {
        printError("cannot make a tone of " + std::to_string(blocks) + " blocks");
        return EXIT_FAILED;
    }
    catchInterrupt();
    Player player(api);
    std::string why;
    // Started first: a simulated clock may move on while this thread is busy.
    const qel::Stopwatch clock;
    if (!player.start(endpoint, tone, o.loop, why) || !waitForPlayback(player, o, clock, why)) {
        player.stop();
        printError(why);
        return EXIT_FAILED;
    }
    player.stop();
    nlohmann::ordered_json report = {{"endpoint", endpointIdentity(*entry)}};
    reportApi(report, choice);
    report.update(nlohmann::ordered_json{{"frequency_hz", o.frequency},
                                         {"amplitude", o.amplitude},
                                         {"seconds", o.seconds},
                                         {"looped", o.loop},
                                         {"sample_rate", format.nSamplesPerSec},
                                         {"channels", format.nChannels}});
    printReport(report, global.json);
    return EXIT_OK;
}

} // namespace

Action addPlayCommand(CLI::App& app, const GlobalOptions& global) {
    auto o = std::make_shared<PlayOptions>();
    app.add_option("id", o->endpoint, "Render endpoint: id, a unique prefix of it, or its name")
        ->required();
    app.add_option("--freq", o->frequency, "Frequency in Hz")
        ->check(CLI::Range(1.0, 200000.0))
        ->capture_default_str();
    app.add_option("--amp", o->amplitude, "Peak amplitude of the 16-bit samples")
        ->check(CLI::Range(0u, 32767u))
        ->capture_default_str();
    app.add_option("--seconds", o->seconds, "How long to play")
        ->check(CLI::Range(0.01, 3600.0))
        ->capture_default_str();
    app.add_flag("--loop", o->loop, "Loop a short tone for the time instead of playing it once");
    app.add_flag("--legacy", o->legacy, "Play through the legacy wave device");
    return [o, &global] {
        return play(*o, global);
    };
}

} // namespace audiodiag
