// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The caches of a scene: which they are, and what a user should know of them before a render.
#pragma once

#include <vector>

#include "host/frame_number.h"
#include "host/host_log.h"

namespace TessUtils {
class TessraPlugin;
}
namespace nimbra::host {
class Scene;
}

namespace nimbra::cli {

std::vector<TessUtils::TessraPlugin*> cachesOf(host::Scene& scene);

/// Says of each cache at which frames there is nothing to see, since none of their files is there;
/// answers these frames, of all caches one after the other.
std::vector<host::FrameNumber> warnOfMissingFiles(host::Scene& scene,
                                                  const std::vector<host::FrameNumber>& frames,
                                                  host::HostLog& log);

}  // namespace nimbra::cli
