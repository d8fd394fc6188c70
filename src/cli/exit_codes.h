// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// How the program ends.
#pragma once

namespace nimbra::cli {

enum ExitCode : int {
    kExitDone = 0,           // all frames written
    kExitFrameFailed = 1,    // a frame failed or is incomplete
    kExitUsage = 2,          // the command line can't be followed
    kExitInput = 3,          // a scene or a cache is unusable
    kExitMemory = 4,         // out of memory
    kExitOutput = 5,         // output can't be written
    kExitInterrupted = 130,  // SIGINT
    kExitTerminated = 143,   // SIGTERM
};

/// The table of exit codes for --help.
inline constexpr const char* kExitCodeHelp =
    "Exit codes: 0 all frames written, 1 a frame failed or is incomplete, 2 usage, 3 input "
    "unusable,\n"
    "4 out of memory, 5 output cannot be written, 130/143 interrupted.";

}  // namespace nimbra::cli
