// The grabsys commands. Each registration function adds its command to the
// application with every check CLI11 can make on its options, and sets
// `run` when the command line picks that command; main runs it once parsing
// is done. `output` is read when the command runs, after the global flags
// are parsed.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>

#include "cli_common.h"

namespace grabsys {

// A parsed command, ready to run; returns the process exit code.
using Runner = std::function<int()>;

void RegisterDemo(CLI::App& app, const Output& output, Runner& run);
void RegisterArm(CLI::App& app, const Output& output, Runner& run);
void RegisterPackage(CLI::App& app, const Output& output, Runner& run);
void RegisterInfo(CLI::App& app, const Output& output, Runner& run);
void RegisterPreview(CLI::App& app, const Output& output, Runner& run);
// grab and cameras
void RegisterGrab(CLI::App& app, const Output& output, Runner& run);

// Makes `run` the given command once `command` has been parsed.
inline void RunWhenParsed(CLI::App* command, Runner& run, Runner body) {
    command->callback([&run, body = std::move(body)] { run = body; });
}

}  // namespace grabsys
