// audiodiag: what libAudio sees and does, from the command line.
#include "Commands.h"
#include "LibraryLog.h"
#include "Machines.h"
#include "Report.h"

int main(int argc, char** argv) {
    using namespace audiodiag;
    CLI::App app{"audiodiag: audio diagnostics on top of libAudio", "audiodiag"};
    app.require_subcommand(1);
    // The global options below may follow the command too: a command passes the options
    // it does not know on to here.
    app.fallthrough();
    app.footer("The options above may stand before or after the command.");
    GlobalOptions global;
    app.add_flag("--json", global.json, "Machine-readable output");
    app.add_option("--machine", global.machine, "Simulated machine: a bundled name or a JSON file")
        ->type_name("NAME|FILE")
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    app.add_flag("-v,--verbose", global.verbosity,
                 "Show libAudio's log on stderr as it is written (-vv: also its trace)");
    app.add_option("--log", global.logPath, "Write libAudio's log to this file")
        ->type_name("FILE")
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);

    std::vector<std::pair<CLI::App*, Action>> commands;
    CLI::App* tone = app.add_subcommand("tone", "Write a test tone to a WAV file");
    commands.emplace_back(tone, addToneCommand(*tone, global));
    CLI::App* info = app.add_subcommand("wav-info", "Describe and measure a WAV file");
    commands.emplace_back(info, addWavInfoCommand(*info, global));
    CLI::App* endpoints = app.add_subcommand("endpoints", "List every endpoint by state");
    commands.emplace_back(endpoints, addEndpointsCommand(*endpoints, global));
    CLI::App* endpoint = app.add_subcommand("endpoint", "Show one endpoint in full");
    commands.emplace_back(endpoint, addEndpointCommand(*endpoint, global));
    CLI::App* volume = app.add_subcommand("volume", "Read or set an endpoint's volume and mute");
    commands.emplace_back(volume, addVolumeCommand(*volume, global));
    CLI::App* play = app.add_subcommand("play", "Play a test tone on a render endpoint");
    commands.emplace_back(play, addPlayCommand(*play, global));
    CLI::App* record = app.add_subcommand("record", "Record a capture endpoint to a WAV file");
    commands.emplace_back(record, addRecordCommand(*record, global));
    CLI::App* loopback =
        app.add_subcommand("loopback", "Play a tone on one endpoint, record another, measure");
    commands.emplace_back(loopback, addLoopbackCommand(*loopback, global));
    CLI::App* cards =
        app.add_subcommand("cards", "List the sound cards, their endpoints and what each is");
    commands.emplace_back(cards, addCardsCommand(*cards, global));
    CLI::App* topology = app.add_subcommand("topology", "Show a card's connector map");
    commands.emplace_back(topology, addTopologyCommand(*topology, global));
    CLI::App* volumePath = app.add_subcommand(
        "volume-path", "Show or set the hardware volume nodes on an endpoint's signal paths");
    commands.emplace_back(volumePath, addVolumePathCommand(*volumePath, global));
    CLI::App* selectors =
        app.add_subcommand("input-selectors", "Show or change a card's recording multiplexers");
    commands.emplace_back(selectors, addInputSelectorsCommand(*selectors, global));
    CLI::App* watch = app.add_subcommand("watch", "Show endpoint and card changes as they happen");
    commands.emplace_back(watch, addWatchCommand(*watch, global));
    CLI::App* machines = app.add_subcommand("machines", "List the bundled simulated machines");
    commands.emplace_back(machines, addMachinesCommand(*machines, global));
    for (auto& [command, action] : commands) {
        command->footer("Global options (--json, --machine, -v, --log) may stand anywhere: "
                        "audiodiag --help lists them.");
    }

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_OK : EXIT_USAGE;
    }
    LibraryLog log;
    std::string why;
    if (!log.open(global, why)) {
        printError(why);
        return EXIT_USAGE;
    }
    int code = EXIT_USAGE;
    if (!global.machine.empty() && !useMachine(global.machine)) {
        code = EXIT_USAGE;
    } else {
        for (auto& [command, action] : commands) {
            if (command->parsed()) {
                code = action();
                break;
            }
        }
    }
    log.finish(code);
    return code;
}
