// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The program `nimbra`.
#include <CLI/CLI.hpp>
#include <clocale>
#include <cstdio>
#include <iostream>
#include <new>

#include "cli/commands.h"
#include "cli/exit_codes.h"
#include "cli/version.h"

namespace {

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
    addParamsCommand(app, exitCode);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e, std::cout, std::cerr) == 0 ? kExitDone : kExitUsage;
    }
    return exitCode;
}

}  // namespace

int main(int argc, char** argv) {
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
