// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The program `nimbra`.
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <new>

#include "cli/commands.h"
#include "cli/exit_codes.h"
#include "cli/usage.h"
#include "cli/version.h"

namespace {

/// Makes faults of the surroundings harmless to the files that are written.
void prepareProcess() {
    // With a standard stream closed, the next file opened would take its place, and messages would
    // land in a picture.
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd)
        if (::fcntl(fd, F_GETFD) < 0)
            static_cast<void>(::open("/dev/null", O_RDWR));
    // A limit on file sizes is to be met as a write that fails.
    std::signal(SIGXFSZ, SIG_IGN);
}

int run(int argc, char** argv) {
    using namespace nimbra::cli;
    CLI::App app(
        "Renders what fluid simulators leave on disk: smoke, fire and liquids from caches.",
        "nimbra");
    app.set_version_flag("--version", versionText);
    app.require_subcommand(1);
    app.footer(std::string(kExitCodeHelp) + "\n'nimbra COMMAND --help' tells more.");
    app.get_formatter()->column_width(28);
    int exitCode = kExitDone;
    addRenderCommand(app, exitCode);
    addViewCommand(app, exitCode);
    addInfoCommand(app, exitCode);
    addConvertCommand(app, exitCode);
    addDumpCommand(app, exitCode);
    addParamsCommand(app, exitCode);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        if (const std::string unknown = unknownWords(app);
            !unknown.empty() && e.get_exit_code() != 0) {
            std::cerr << "error: " << unknown << "\nRun with --help for more information.\n";
            return kExitUsage;
        }
        return app.exit(e, std::cout, std::cerr) == 0 ? kExitDone : kExitUsage;
    }
    return exitCode;
}

}  // namespace

int main(int argc, char** argv) {
    prepareProcess();
    try {
        return run(argc, argv);
    } catch (const std::bad_alloc&) {
        std::fputs("error: out of memory\n", stderr);
        return nimbra::cli::kExitMemory;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "error: %s\n", e.what());
        return nimbra::cli::kExitFrameFailed;
    }
}
