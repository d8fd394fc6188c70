// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The commands of the program. Each adds itself to the command line and, when it was chosen, runs
// and leaves its exit code.
#pragma once

namespace CLI {
class App;
}

namespace nimbra::cli {

void addRenderCommand(CLI::App& app, int& exitCode);
void addViewCommand(CLI::App& app, int& exitCode);
void addInfoCommand(CLI::App& app, int& exitCode);
void addConvertCommand(CLI::App& app, int& exitCode);
void addDumpCommand(CLI::App& app, int& exitCode);
void addParamsCommand(CLI::App& app, int& exitCode);

}  // namespace nimbra::cli
