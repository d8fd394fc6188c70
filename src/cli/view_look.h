// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Chooses how a cache is shown when there is no scene: which grid becomes which channel, and the
// settings of the container that make a sound first picture of it.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace nimbra::cli {

/// What a cache file says of one grid.
struct GridSummary {
    enum class Kind { Scalar, Vector, LevelSet, Other };
    std::string name;
    Kind kind = Kind::Other;
    bool readable = true;
    std::string problem;               // why it isn't readable
    std::array<int, 3> low{}, high{};  // active box in cells, inclusive; low > high: empty
    std::int64_t activeVoxels = 0;
    double min = 0, max = 0, mean = 0;  // of the active, finite values
    /// Index to world: three axis vectors and the place of cell 0.
    std::array<std::array<double, 3>, 4> toWorld{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 0, 0}}};
    /// Mean of the active values of a vector grid.
    std::array<double, 3> meanVector{};
    /// Negative cells on the low side of a dense grid less those on its high side, for each axis: a
    /// liquid of signed distances wets its floor and leaves the ceiling dry.
    std::array<std::int64_t, 3> wetFloor{};
    /// The share of negative cells among those at the sides of a dense grid; -1: not known.
    double wetSides = -1;

    bool empty() const { return activeVoxels == 0 || low[0] > high[0]; }
};

/// Which axis points up in the programs that a file may come from.
struct UpConvention {
    int program = -1;  // that wrote the file; -1: not known
    int format = 1;    // of most files of its format
};

/// What the cache shows.
enum class Subject { Nothing, Smoke, Fire, FireAndSmoke, LevelSet };

/// The choice for one cache.
struct ViewLook {
    Subject subject = Subject::Nothing;
    /// Channel mapping text, "channel,grid;" for each.
    std::string mapping;
    /// One line for the user: what was chosen, or why nothing can be seen.
    std::string explanation;
    /// Rows of the container that differ from their defaults: name and JSON value.
    std::vector<std::pair<std::string, std::string>> settings;
    /// World box of what is shown.
    std::array<double, 3> boxLow{}, boxHigh{};
    /// World box of the fire, where there is any.
    std::array<double, 3> fireLow{}, fireHigh{};
    int upAxis = 1;
    bool hasFire() const { return subject == Subject::Fire || subject == Subject::FireAndSmoke; }
};

/// What the user prefers over the choice made from the data.
struct ViewWishes {
    std::string mapping;      // empty: chosen
    int upAxis = -1;          // -1: chosen
    double densityScale = 1;  // thicker or thinner smoke
    double fireScale = 1;     // brighter or darker fire
};

/// Chooses for the grids of one file. Never throws; with nothing to show `subject` is Nothing and
/// `explanation` names what the file holds.
ViewLook chooseLook(const std::vector<GridSummary>& grids, const ViewWishes& wishes = {},
                    const UpConvention& up = {});

}  // namespace nimbra::cli
