// The subcommands of audiodiag. Each registers its options on the parser and returns
// the action to run once the command line is parsed.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <string>

namespace audiodiag {

// Exit codes: the operation worked, the operation (the test) failed, the command was misused.
enum ExitCode { EXIT_OK = 0, EXIT_FAILED = 1, EXIT_USAGE = 2 };

// The options that may stand before or after the command.
struct GlobalOptions {
    bool json = false;
    std::string machine;
    int verbosity = 0;   // -v: the library's information records live; -vv: also its trace
    std::string logPath; // --log FILE: the library's records go to this file
};

using Action = std::function<int()>;

Action addToneCommand(CLI::App& app, const GlobalOptions& global);
Action addWavInfoCommand(CLI::App& app, const GlobalOptions& global);
Action addEndpointsCommand(CLI::App& app, const GlobalOptions& global);
Action addEndpointCommand(CLI::App& app, const GlobalOptions& global);
Action addVolumeCommand(CLI::App& app, const GlobalOptions& global);
Action addPlayCommand(CLI::App& app, const GlobalOptions& global);
Action addRecordCommand(CLI::App& app, const GlobalOptions& global);
Action addLoopbackCommand(CLI::App& app, const GlobalOptions& global);
Action addCardsCommand(CLI::App& app, const GlobalOptions& global);
Action addTopologyCommand(CLI::App& app, const GlobalOptions& global);
Action addVolumePathCommand(CLI::App& app, const GlobalOptions& global);
Action addInputSelectorsCommand(CLI::App& app, const GlobalOptions& global);
Action addWatchCommand(CLI::App& app, const GlobalOptions& global);

} // namespace audiodiag
