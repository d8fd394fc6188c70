// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// nimbra info --at: which files moments of scenes and sequences resolve to.
#pragma once

#include <string>
#include <vector>

#include "cli/console.h"
#include "cli/time_options.h"

namespace nimbra::cli {

struct InfoAtOptions {
    std::string times;  // grammar of frame_range.h
    TimeOptions time;
    std::string module;  // the plug-in library; empty: the one beside the program
    bool json = false;
};

/// Tells of every input (a scene, a pattern, a folder, a file of a sequence) what its caches show
/// at the times. An exit code: kExitInput if an input can't be used or a file is missing.
int tellMoments(const std::vector<std::string>& inputs, const InfoAtOptions& options,
                Console& console);

}  // namespace nimbra::cli
