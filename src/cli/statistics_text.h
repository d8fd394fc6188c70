// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What a render cost, for people and for programs.
#pragma once

#include <string>

#include "cli/console.h"
#include "host/session.h"

namespace nimbra::cli {

/// Times by phase, rays and memory of each frame as JSON.
std::string statisticsJson(const host::SessionResult& result);

/// A table on standard output; or, with a file name, the JSON into that file (a failure is said in
/// the log and fails nothing else).
void printStatistics(const host::SessionResult& result, const std::string& file, Console& console);

}  // namespace nimbra::cli
