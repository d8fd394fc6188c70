// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/version.h"

#include <OpenEXR/OpenEXRConfig.h>
#include <embree3/rtcore_config.h>
#include <fmt/format.h>
#include <openvdb/version.h>
#include <png.h>
#include <tbb/version.h>
#include <zlib.h>

namespace nimbra::cli {

std::string versionText() {
    return fmt::format(
        "nimbra {}\nOpenVDB {}\nEmbree {}\nOpenEXR {}\nlibpng {}\nTBB {}.{}\nzlib {}",
        NIMBRA_VERSION, OPENVDB_LIBRARY_VERSION_STRING, RTC_VERSION_STRING, OPENEXR_VERSION_STRING,
        PNG_LIBPNG_VER_STRING, TBB_VERSION_MAJOR, TBB_VERSION_MINOR, ZLIB_VERSION);
}

}  // namespace nimbra::cli
