// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/view_look.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>
#include <utility>

#include "cache/channel_mapping.h"
#include "cli/grid_names.h"

namespace nimbra::cli {
namespace {

// Channel numbers of the mapping text.
enum Channel { kTemperature = 1, kSmoke = 2, kVelocityX = 4, kColorR = 7, kFuel = 10 };

bool drawable(const GridSummary& g) {
    return g.readable && !g.empty() && !isOneOf(g.name, kNotDrawn);
}

bool isScalar(const GridSummary& g) {
    return g.kind == GridSummary::Kind::Scalar || g.kind == GridSummary::Kind::LevelSet;
}

const GridSummary* findNamed(const std::vector<GridSummary>& grids, const Names& names,
                             bool vector) {
    for (const char* name : names)
        for (const GridSummary& g : grids)
            if (drawable(g) && foldedName(g.name) == name &&
                (vector ? g.kind == GridSummary::Kind::Vector : isScalar(g)))
                return &g;
    return nullptr;
}

// Three scalar grids "<base><axis>" for x, y, z or r, g, b in any of the usual spellings.
std::array<const GridSummary*, 3> findComponents(const std::vector<GridSummary>& grids,
                                                 const Names& names, const char* axes) {
    std::array<const GridSummary*, 3> out{};
    for (int a = 0; a < 3; ++a)
        for (const char* name : names)
            for (const GridSummary& g : grids)
                if (!out[a] && drawable(g) && isScalar(g) &&
                    foldedName(g.name) == std::string(name) + axes[a])
                    out[a] = &g;
    if (!out[0] || !out[1] || !out[2])
        out = {};
    return out;
}

/// The grids that were chosen, by their part.
struct Cast {
    const GridSummary* smoke = nullptr;
    const GridSummary* temperature = nullptr;
    const GridSummary* flame = nullptr;
    const GridSummary* surface = nullptr;
    const GridSummary* velocity = nullptr;
    const GridSummary* color = nullptr;
    std::array<const GridSummary*, 3> velocities{}, colors{};
    int fireChannel = kFuel;  // where `flame` goes

    bool colored() const { return color || colors[0]; }
};

// Only positive values make smoke or fire.
const GridSummary* withMatter(const GridSummary* g) {
    return g && g->max > 0 ? g : nullptr;
}

bool hasMain(const Cast& c) {
    return c.smoke || c.flame || c.surface;
}

// Heat isn't negative: signed values with no matter beside them are distances to a surface.
void showSignedHeat(Cast& c) {
    const GridSummary* heat = c.temperature;
    if (!hasMain(c) && heat &&
        (heat->kind == GridSummary::Kind::LevelSet || heat->min < -0.05 * heat->max))
        std::swap(c.surface, c.temperature);
}

// Heat alone is shown as fire.
void showHeat(Cast& c) {
    if (hasMain(c) || !withMatter(c.temperature))
        return;
    std::swap(c.flame, c.temperature);
    c.fireChannel = kTemperature;
}

Cast choose(const std::vector<GridSummary>& grids) {
    Cast c;
    c.smoke = withMatter(findNamed(grids, kSmokeNames, false));
    c.flame = withMatter(findNamed(grids, kFlameNames, false));
    c.temperature = withMatter(findNamed(grids, kTemperatureNames, false));
    c.velocity = findNamed(grids, kVelocityNames, true);
    if (!c.velocity)
        c.velocities = findComponents(grids, kVelocityNames, "xyz");
    c.color = findNamed(grids, kColorNames, true);
    if (!c.color)
        c.colors = findComponents(grids, kColorNames, "rgb");
    if (c.smoke && c.smoke->kind == GridSummary::Kind::LevelSet)
        c.smoke = nullptr;
    if (!c.smoke && !c.flame) {
        c.surface = findNamed(grids, kLevelSetNames, false);
        for (const GridSummary& g : grids)
            if (!c.surface && drawable(g) && g.kind == GridSummary::Kind::LevelSet)
                c.surface = &g;
    }
    showSignedHeat(c);
    // No known name: the scalar grid with the most matter is shown as smoke.
    if (!hasMain(c))
        for (const GridSummary& g : grids)
            if (drawable(g) && g.kind == GridSummary::Kind::Scalar && g.max > 0 &&
                &g != c.temperature && (!c.smoke || g.activeVoxels > c.smoke->activeVoxels))
                c.smoke = &g;
    showHeat(c);
    return c;
}

/// The grid that a name in a mapping text means: its own, or a vector grid's with the component
/// behind it. Null for one that holds nothing.
const GridSummary* findMapped(const std::vector<GridSummary>& grids, const std::string& name) {
    for (const char* suffix : {"", "(x)", ".x"})
        for (const GridSummary& g : grids) {
            const bool whole = *suffix == '\0';
            if (g.readable && !g.empty() && (whole || g.kind == GridSummary::Kind::Vector) &&
                name.size() == g.name.size() + std::strlen(suffix) && name.starts_with(g.name))
                return &g;
        }
    return nullptr;
}

Cast chooseByMapping(const std::vector<GridSummary>& grids, const std::string& mapping) {
    Cast c;
    const auto takeComponent = [](const GridSummary* g, int axis, const GridSummary*& vector,
                                  std::array<const GridSummary*, 3>& components) {
        if (g->kind == GridSummary::Kind::Vector)
            vector = g;
        else
            components[static_cast<std::size_t>(axis)] = g;
    };
    for (const CacheIO::GridMapping& entry : CacheIO::parseChannelMap(mapping)) {
        const GridSummary* const g = findMapped(grids, entry.name);
        const int channel = entry.channel;
        if (!g)
            continue;
        if (channel == kSmoke)
            c.smoke = withMatter(g);
        else if (channel == kFuel)
            c.flame = withMatter(g);
        else if (channel == kTemperature)
            c.temperature = g;
        else if (channel >= kVelocityX && channel < kVelocityX + 3)
            takeComponent(g, channel - kVelocityX, c.velocity, c.velocities);
        else if (channel >= kColorR && channel < kColorR + 3)
            takeComponent(g, channel - kColorR, c.color, c.colors);
    }
    for (auto* three : {&c.velocities, &c.colors})
        if (std::find(three->begin(), three->end(), nullptr) != three->end())
            *three = {};
    showSignedHeat(c);
    showHeat(c);
    return c;
}

// All grids of a frame share one transform: grids of another one can't go with the main grid.
bool sameTransform(const GridSummary& a, const GridSummary& b) {
    double scale = 0;
    for (int v = 0; v < 3; ++v)
        for (int x = 0; x < 3; ++x)
            scale = std::max(scale, std::fabs(a.toWorld[v][x]));
    for (int v = 0; v < 4; ++v)
        for (int x = 0; x < 3; ++x)
            if (std::fabs(a.toWorld[v][x] - b.toWorld[v][x]) > scale * 1e-3)
                return false;
    return true;
}

const GridSummary* mainGrid(const Cast& c) {
    return c.smoke ? c.smoke : c.flame ? c.flame : c.surface;
}

void dropForeignTransforms(Cast& c) {
    const GridSummary* main = mainGrid(c);
    for (const GridSummary** g : {&c.temperature, &c.flame, &c.velocity, &c.color})
        if (*g && !sameTransform(*main, **g))
            *g = nullptr;
    for (auto* three : {&c.velocities, &c.colors})
        for (const GridSummary* g : *three)
            if (g && !sameTransform(*main, *g)) {
                *three = {};
                break;
            }
}

void addEntry(std::string& text, int channel, const GridSummary* g, const char* suffix = "") {
    if (g)
        text += fmt::format("{},{}{};", channel, g->name, suffix);
}

std::string mappingText(const Cast& c) {
    std::string text;
    addEntry(text, kSmoke, c.smoke);
    addEntry(text, kTemperature, c.surface ? c.surface : c.temperature);
    addEntry(text, c.fireChannel, c.flame);
    const char* const xyz[] = {"(x)", "(y)", "(z)"};
    for (int a = 0; a < 3; ++a) {
        addEntry(text, kVelocityX + a, c.velocity, xyz[a]);
        addEntry(text, kVelocityX + a, c.velocities[a]);
        addEntry(text, kColorR + a, c.color, xyz[a]);
        addEntry(text, kColorR + a, c.colors[a]);
    }
    return text;
}

struct Box {
    std::array<double, 3> low, high;
};

Box worldBox(const GridSummary& g) {
    Box box;
    box.low.fill(std::numeric_limits<double>::infinity());
    box.high.fill(-std::numeric_limits<double>::infinity());
    for (int corner = 0; corner < 8; ++corner)
        for (int x = 0; x < 3; ++x) {
            double p = g.toWorld[3][x];
            for (int a = 0; a < 3; ++a)
                p += g.toWorld[a][x] * ((corner >> a & 1) ? g.high[a] + 0.5 : g.low[a] - 0.5);
            box.low[x] = std::min(box.low[x], p);
            box.high[x] = std::max(box.high[x], p);
        }
    return box;
}

double lengthOf(const std::array<double, 3>& v) {
    return std::hypot(v[0], v[1], v[2]);
}

/// By how much more liquid stands on the low side of an axis than hangs at its high side.
double floorArea(const GridSummary& g, int axis) {
    return static_cast<double>(g.wetFloor[axis]) * lengthOf(g.toWorld[(axis + 1) % 3]) *
           lengthOf(g.toWorld[(axis + 2) % 3]);
}

/// Whether a surface's inside is where the values are above 0, as in files that scale distances by
/// a negative factor: all sides are negative, or what is hangs from the ceiling.
bool isInsideOut(const GridSummary& g) {
    if (g.wetSides < 0)
        return false;
    constexpr double kAlmostNone = 0.05;
    if (g.wetSides < kAlmostNone || g.wetSides > 1 - kAlmostNone)
        return g.wetSides > 0.5;
    const double y = floorArea(g, 1), z = floorArea(g, 2);
    return (std::fabs(y) > std::fabs(z) ? y : z) < 0;
}

/// The axis on whose low side most liquid stands; -1 for none. Nobody builds with x up.
int wettestFloor(const GridSummary& g) {
    const double sign = isInsideOut(g) ? -1 : 1;
    const double y = sign * floorArea(g, 1), z = sign * floorArea(g, 2);
    return std::max(y, z) > 0 ? (z > y ? 2 : 1) : -1;
}

// The program that wrote the file knows; else liquids stand on their floor, and smoke rises or at
// least is taller than wide; else what is usual.
int chooseUpAxis(const Cast& c, const UpConvention& convention) {
    if (convention.program >= 0)
        return convention.program;
    if (c.surface) {
        const int floor = wettestFloor(*c.surface);
        return floor >= 0 ? floor : convention.format;
    }
    if (c.velocity) {
        const auto& m = c.velocity->meanVector;
        const int up = m[2] > m[1] ? 2 : 1;
        if (m[up] > 1.5 * std::fabs(m[3 - up]))
            return up;
    }
    const Box box = worldBox(*mainGrid(c));
    const auto side = [&](int a) { return box.high[a] - box.low[a]; };
    const int usual = convention.format, other = 3 - usual;
    return side(other) > 1.1 * side(usual) ? other : usual;
}

// Cells along a typical line of sight through the grid's matter.
double typicalThickness(const GridSummary& g) {
    std::array<int, 3> cells{};
    for (int a = 0; a < 3; ++a)
        cells[a] = g.high[a] - g.low[a] + 1;
    std::sort(cells.begin(), cells.end());
    const double box = double(cells[0]) * cells[1] * cells[2];
    const double filled = std::clamp(double(g.activeVoxels) / box, 0.05, 1.0);
    return std::max(1.0, cells[0] * std::cbrt(filled));
}

using Settings = std::vector<std::pair<std::string, std::string>>;

std::string number(double v) {
    return fmt::format("{:.6g}", v);
}

// Optical depth of a typical line of sight, so that smoke reads as a body with soft edges.
constexpr double kSmokeDepth = 5;
constexpr double kSmokeOverFireDepth = 1.6;

void smokeSettings(const Cast& c, const ViewWishes& wishes, Settings& out) {
    const GridSummary& g = *c.smoke;
    const double level = std::max(g.mean, g.max * 0.02);
    const double depth = (c.flame ? kSmokeOverFireDepth : kSmokeDepth) * wishes.densityScale;
    const double perCell = depth / (level * typicalThickness(g));
    out.emplace_back("targ", "0");
    out.emplace_back("smoketransp", number(std::clamp(-std::expm1(-perCell), 1e-6, 0.999999)));
    if (c.colored()) {
        out.emplace_back("darg", "6");
    } else {
        out.emplace_back("darg", "5");
        out.emplace_back("simple_color",
                         c.flame ? "[0.22, 0.2, 0.19, 1]" : "[0.75, 0.75, 0.75, 1]");
    }
}

// Deep red over orange to a pale yellow, as soot glows.
void fireSettings(const Cast& c, const ViewWishes& wishes, Settings& out) {
    const GridSummary& g = *c.flame;
    const double top = g.max;
    const std::string channel = std::to_string(c.fireChannel);
    out.emplace_back("earg", channel);
    std::string positions, values;
    for (const double x : {0.0, 0.08, 0.3, 0.6, 1.0})
        positions += (positions.empty() ? "" : ", ") + number(x * top);
    out.emplace_back("ecolor_positions", "[" + positions + "]");
    out.emplace_back("ecolor_colors",
                     "[[0.25, 0.01, 0], [0.9, 0.09, 0.01], [1, 0.32, 0.05], [1, 0.58, 0.18], "
                     "[1, 0.8, 0.45]]");
    out.emplace_back("elum_positions", "[" + positions + "]");
    out.emplace_back("elum_values", "[0, 0.06, 0.35, 0.75, 1]");
    out.emplace_back("elum_interpolations", "[1, 1, 1, 1, 1]");
    out.emplace_back("fire_opacity_mode", "1");
    const double level = std::max(g.mean / std::max(top, 1e-30), 0.15);
    // The container takes a hundredth of the brightness in this mode.
    out.emplace_back("emult", number(100 * wishes.fireScale * 2.5 / (level * typicalThickness(g))));
    if (!c.smoke) {
        out.emplace_back("darg", "0");
        out.emplace_back("targ", channel);
        out.emplace_back("transp_positions", "[0, " + number(top) + "]");
        out.emplace_back("transp_values", "[0, 0.05]");
        out.emplace_back("transp_interpolations", "[1, 1]");
    }
}

/// A cell in the units of a grid's distances: those of the world, or cells where they reach
/// farther than the grid.
double cellDistance(const GridSummary& g) {
    double cell = 0, reach = 0;
    for (int a = 0; a < 3; ++a) {
        const double length = lengthOf(g.toWorld[a]);
        cell = std::max(cell, length);
        reach += length * (g.high[a] - g.low[a] + 1);
    }
    return std::max(std::fabs(g.min), std::fabs(g.max)) > reach ? 1 : cell;
}

// A level set is solid where it is negative, unless it is inside out.
void levelSetSettings(const Cast& c, Settings& out) {
    const double cell = cellDistance(*c.surface);
    out.emplace_back("darg", "5");
    out.emplace_back("simple_color", "[0.7, 0.7, 0.7, 1]");
    out.emplace_back("earg", "0");
    out.emplace_back("targ", "1");
    const bool insideOut = isInsideOut(*c.surface);
    out.emplace_back("transp_positions", insideOut ? fmt::format("[0, {}]", number(cell))
                                                   : fmt::format("[{}, 0]", number(-cell)));
    out.emplace_back("transp_values", insideOut ? "[0, 0.98]" : "[0.98, 0]");
    out.emplace_back("transp_interpolations", "[1, 1]");
}

std::string list(const std::vector<GridSummary>& grids) {
    std::string text;
    for (const GridSummary& g : grids) {
        text += (text.empty() ? "" : ", ") + g.name;
        if (!g.readable)
            text += " (unreadable: " + g.problem + ")";
        else if (g.empty())
            text += " (empty)";
    }
    return text.empty() ? "no grids" : text;
}

std::string explain(const Cast& c, const std::vector<GridSummary>& grids) {
    std::vector<std::string> parts;
    if (c.smoke)
        parts.push_back("smoke from '" + c.smoke->name + "'");
    if (c.flame)
        parts.push_back("fire from '" + c.flame->name + "'");
    if (c.surface)
        parts.push_back("a level set from '" + c.surface->name + "'");
    if (c.colored())
        parts.push_back("colour from '" + (c.color ? c.color : c.colors[0])->name + "'");
    if (c.velocity || c.velocities[0])
        parts.push_back("velocity from '" + (c.velocity ? c.velocity : c.velocities[0])->name +
                        "'");
    std::string text = "showing " + fmt::format("{}", fmt::join(parts, ", "));
    std::string skipped;
    for (const GridSummary& g : grids)
        if (!g.readable)
            skipped += (skipped.empty() ? "" : ", ") + ("'" + g.name + "' (" + g.problem + ")");
    return skipped.empty() ? text : text + "; left out: " + skipped;
}

}  // namespace

ViewLook chooseLook(const std::vector<GridSummary>& grids, const ViewWishes& wishes,
                    const UpConvention& up) {
    ViewLook look;
    const bool mapped = !wishes.mapping.empty();
    Cast cast = mapped ? chooseByMapping(grids, wishes.mapping) : choose(grids);
    const GridSummary* main = mainGrid(cast);
    if (!main) {
        look.explanation =
            mapped ? fmt::format("nothing to show by the mapping '{}': the file holds {}",
                                 wishes.mapping, list(grids))
                   : "nothing to show: the file holds " + list(grids);
        return look;
    }
    dropForeignTransforms(cast);
    look.subject = cast.surface               ? Subject::LevelSet
                   : cast.smoke && cast.flame ? Subject::FireAndSmoke
                   : cast.flame               ? Subject::Fire
                                              : Subject::Smoke;
    look.mapping = mapped ? wishes.mapping : mappingText(cast);
    look.explanation = explain(cast, grids);
    look.upAxis = wishes.upAxis >= 0 ? wishes.upAxis : chooseUpAxis(cast, up);
    const Box box = worldBox(*main);
    look.boxLow = box.low;
    look.boxHigh = box.high;
    if (cast.flame) {
        const Box fire = worldBox(*cast.flame);
        look.fireLow = fire.low;
        look.fireHigh = fire.high;
        fireSettings(cast, wishes, look.settings);
    } else if (!cast.surface) {
        look.settings.emplace_back("earg", "0");
    }
    if (cast.smoke)
        smokeSettings(cast, wishes, look.settings);
    if (cast.surface)
        levelSetSettings(cast, look.settings);
    else  // a simulation that ran into its walls would end there like cut with a knife
        look.settings.emplace_back("softb", "3");
    return look;
}

}  // namespace nimbra::cli
