// audiodiag: what libAudio sees and does, from the command line.
#include "Commands.h"
#include "Machines.h"

int main(int argc, char** argv) {
    using namespace audiodiag;
    CLI::App app{"audiodiag: audio diagnostics on top of libAudio"};
    app.require_subcommand(1);
    GlobalOptions global;
    app.add_flag("--json", global.json, "Machine-readable output");
    std::string machine;
    app.add_option("--machine", machine, "Simulated machine: a bundled name or a JSON file");

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
    CLI::App* machines = app.add_subcommand("machines", "List the bundled simulated machines");
    commands.emplace_back(machines, addMachinesCommand(*machines, global));

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_OK : EXIT_USAGE;
    }
    if (!machine.empty() && !useMachine(machine)) {
        return EXIT_USAGE;
    }
    for (auto& [command, action] : commands) {
        if (command->parsed()) {
            return action();
        }
    }
    return EXIT_USAGE;
}
