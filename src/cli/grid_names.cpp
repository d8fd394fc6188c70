// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/grid_names.h"

#include <algorithm>
#include <cctype>

namespace nimbra::cli {

// Names that simulators give their grids, folded to lower-case letters and digits, best first.
const Names kSmokeNames = {"densitynoise", "density", "smoke", "smokedensity", "dens",   "soot",
                           "fog",          "volume",  "cloud", "vapor",        "vapour", "steam",
                           "dust",         "d"};
const Names kTemperatureNames = {"temperature", "temp", "heat", "t"};
const Names kFlameNames = {"flamenoise", "flame", "flames",   "fire",    "burn",
                           "fuel",       "react", "emission", "firefuel"};
const Names kVelocityNames = {"velocity",   "vel",           "v",     "vmac",
                              "velocities", "fluidvelocity", "motion"};
const Names kColorNames = {"color", "colour", "cd", "rgb", "albedo", "diffuse"};
const Names kLevelSetNames = {"surface", "sdf", "phi", "levelset", "liquid", "fluiddensity"};
// What simulators keep for themselves: true in every cell, or no matter at all.
const Names kNotDrawn = {"shadow",      "flags",     "pressure", "divergence", "phiobstacle",
                         "phiinflow",   "phiout",    "mask",     "collision",  "phiobstacleinflow",
                         "phiprevious", "obstacle",  "inflow",   "outflow",    "phiparticles",
                         "rest",        "curvature", "index"};

std::string foldedName(const std::string& name) {
    std::string out;
    for (const char c : name)
        if (std::isalnum(static_cast<unsigned char>(c)))
            out += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    constexpr std::string_view kOurs = "nmb";
    if (out.size() > kOurs.size() && out.ends_with(kOurs))
        out.resize(out.size() - kOurs.size());
    return out;
}

bool isOneOf(const std::string& name, const Names& names) {
    const std::string f = foldedName(name);
    return std::any_of(names.begin(), names.end(), [&](const char* n) { return f == n; });
}

}  // namespace nimbra::cli
