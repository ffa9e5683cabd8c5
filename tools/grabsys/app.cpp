// grabsys: the command-line face of the GrabSystem library. Main is apart
// from main so that the tests can run whole command lines.
#include <CLI/CLI.hpp>

#include <string>

#include "cli_common.h"
#include "commands.h"

namespace grabsys {

int Main(int argc, char** argv) {
    CLI::App app{"grabsys - camera frame pools, arm images and debug packages of the GrabSystem library"};
    app.require_subcommand(1);
    // Commands inherit both: --quiet and --verbose work before or after the
    // command, and a usage error is one line like every other error.
    app.fallthrough();
    app.failure_message(
        [](const CLI::App*, const CLI::Error& e) { return "grabsys: " + std::string(e.what()) + "\n"; });

    grabsys::Output output;
    app.add_flag("-q,--quiet", output.quiet, "Print only errors and results, no progress");
    app.add_flag("-v,--verbose", output.verbose, "Also print the library's timing log lines on stderr");
    app.add_flag("--sync", output.sync,
                 "Push every file to the device before counting it written, so that a disk that fails only then "
                 "is reported too");

    grabsys::Runner run;
    grabsys::RegisterDemo(app, output, run);
    grabsys::RegisterArm(app, output, run);
    grabsys::RegisterPackage(app, output, run);
    grabsys::RegisterInfo(app, output, run);
    grabsys::RegisterPreview(app, output, run);
    grabsys::RegisterGrab(app, output, run);
    // Set last: commands would inherit it in place of their own example.
    app.footer("Run 'grabsys <command> --help' for a command's options and an example.");

    CLI11_PARSE(app, argc, argv);
    grabsys::AttachLogger(output.verbose);
    return run ? run() : 0;
}

}  // namespace grabsys
