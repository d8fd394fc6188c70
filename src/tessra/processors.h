// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// How many processors a process may use.
#pragma once

#include <string>

#include "tessra/export.h"

namespace TessUtils {

/// The tightest processor quota of the process's control group (version 2) and its ancestors, in
/// processors; infinite without one. A file cpu.max reads "QUOTA PERIOD" in microseconds, or
/// "max PERIOD". `membership` is the file that names the group, `root` the folder of all groups.
TESSRA_API double processorQuota(const std::string& membership = "/proc/self/cgroup",
                                 const std::string& root = "/sys/fs/cgroup");

}  // namespace TessUtils
