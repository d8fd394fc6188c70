// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// From the grids of an OpenVDB file to the channels of a frame. Trees stay trees; points become
// particle groups.

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <new>

#include "cache/external_readers.h"
#include "cache/frame_data.h"
#include "cache/tree_access.h"
#include "cache/vdb_point_group.h"
#include "cache/vdb_points.h"
#include "cache/vdb_tree.h"
#include "foundation/log.h"

namespace nimbra {

namespace {

using CacheIO::GridMapping;

// Keys of our own exports and of a foreign simulator's, in the file's metadata.
constexpr const char* kOwnVersion = "NimbraVDBVer";
constexpr const char* kOwnChannelMask = "NimbraChannelMask";
constexpr const char* kFrameTag = "NimbraFrameTag";
constexpr const char* kForeignVersion = "FFXVDBVersion";
constexpr const char* kForeignTop = "Nmax";

/// "name(x)" or "name.x" taken apart; component 1 to 3.
bool splitComponent(const std::string& name, std::string& base, int& component) {
    static const std::pair<const char*, int> kSuffixes[] = {{"(x)", 1}, {"(y)", 2}, {"(z)", 3},
                                                            {".x", 1},  {".y", 2},  {".z", 3}};
    for (const auto& [suffix, number] : kSuffixes) {
        const std::size_t length = std::char_traits<char>::length(suffix);
        if (name.size() > length && name.compare(name.size() - length, length, suffix) == 0) {
            base = name.substr(0, name.size() - length);
            component = number;
            return true;
        }
    }
    return false;
}

/// The component that a channel is of its vector: 1 to 3; 1 for scalar channels.
int componentOfChannel(int channel) {
    for (const int first : {kVelocityX, kColorR, kAdvectionOriginX, kWaveletU})
        if (channel >= first && channel < first + 3)
            return channel - first + 1;
    return 1;
}

bool isVectorKind(int kind) {
    return kind == kVec3fTree || kind == kVec3dTree;
}

/// The grid that a mapping means, and which component of it.
struct Choice {
    const VdbDescriptor* grid = nullptr;
    int component = 1;
};

/// Names are tried in this order: the grid's own; a vector grid's with the component behind it in
/// the mapping; one with the component behind it in the file, where the mapping has none.
Choice chooseGrid(const std::vector<VdbDescriptor>& grids, const GridMapping& mapping) {
    const auto find = [&](auto&& fits) {
        const auto found = std::find_if(grids.begin(), grids.end(), [&](const VdbDescriptor& g) {
            return treeKindOfType(g.treeType) != kDense && fits(g);
        });
        return found == grids.end() ? nullptr : &*found;
    };
    const int wanted = componentOfChannel(mapping.channel);
    Choice choice{nullptr, wanted};
    const std::string& name = mapping.name;
    choice.grid = find([&](const VdbDescriptor& g) { return g.label == name; });
    if (!choice.grid)
        choice.grid = find([&](const VdbDescriptor& g) { return g.numberedName() == name; });
    std::string base;
    int component = 1;
    if (!choice.grid && splitComponent(name, base, component)) {
        choice.component = component;
        choice.grid = find([&](const VdbDescriptor& g) {
            return isVectorKind(treeKindOfType(g.treeType)) &&
                   (g.label == base || g.numberedName() == base);
        });
    }
    for (const bool anyComponent : {false, true})
        if (!choice.grid)
            choice.grid = find([&](const VdbDescriptor& g) {
                return splitComponent(g.label, base, component) && base == name &&
                       (anyComponent || component == wanted);
            });
    return choice;
}

/// A tree in use, and the channels that it fills.
struct UsedGrid {
    const VdbDescriptor* owner = nullptr;
    int kind = 0;
    std::shared_ptr<void> tree;
    VdbTopology topology;
};
struct FilledChannel {
    int channel = 0;
    std::size_t grid = 0;  // among the used ones
    int component = 1;
    float scale = 1;
};

std::string listNames(const std::vector<VdbDescriptor>& grids) {
    std::string names;
    for (const VdbDescriptor& g : grids)
        names += (names.empty() ? "" : ", ") + printable(g.label);
    return names.empty() ? "no grids" : names;
}

class VdbImport {
public:
    VdbImport(NimbraFrameData& frame, bool headerOnly, std::int64_t maxMemory)
        : frame_(frame), headerOnly_(headerOnly), maxMemory_(maxMemory) {}

    bool run(const std::string& path, const std::vector<GridMapping>& mappings) {
        if (!file_.open(path)) {
            problem_ = file_.problem();
            return false;
        }
        if (!chooseGrids(mappings) || !readTrees() || !readTransform() || !findBox() ||
            !fillFrame())
            return false;
        frame_.clearGroups();
        for (const VdbDescriptor& grid : file_.grids())
            if (isPointsType(grid.treeType))
                addPointGroup(frame_, file_, grid, low_, headerOnly_);
        return true;
    }
    const std::string& problem() const { return problem_; }

private:
    bool chooseGrids(const std::vector<GridMapping>& mappings) {
        for (const GridMapping& mapping : mappings) {
            if (mapping.channel <= kNoChannel || mapping.channel >= kChannelSlots)
                continue;
            const Choice choice = chooseGrid(file_.grids(), mapping);
            if (!choice.grid)
                continue;
            const VdbDescriptor* const owner = file_.treeOwner(*choice.grid);
            if (!owner) {
                problem_ = fmt::format("grid '{}' shares the tree of a grid that isn't there",
                                       printable(choice.grid->label));
                return false;
            }
            if (!first_)
                first_ = choice.grid;
            channels_.push_back({mapping.channel, useGrid(owner), choice.component, mapping.scale});
        }
        if (first_ || choosePoints())
            return true;
        problem_ = "has none of the mapped grids; it holds " + listNames(file_.grids());
        return false;
    }

    /// A file of points alone: they say where the frame is.
    bool choosePoints() {
        for (const VdbDescriptor& grid : file_.grids()) {
            VdbGridBytes bytes;
            VdbPoints points;
            std::string problem;
            if (first_ || !isPointsType(grid.treeType) ||
                !file_.readPoints(grid, bytes, points, problem))
                continue;
            first_ = &grid;
            pointsTopology_ = std::move(bytes.topology);
        }
        return first_ != nullptr;
    }

    std::size_t useGrid(const VdbDescriptor* owner) {
        for (std::size_t i = 0; i < used_.size(); ++i)
            if (used_[i].owner == owner)
                return i;
        used_.push_back({owner, treeKindOfType(owner->treeType), nullptr, {}});
        return used_.size() - 1;
    }

    /// One grid after the other, so that the packed bytes of only one are held at a time.
    bool readTrees() {
        std::uint64_t memory = 0;
        for (UsedGrid& grid : used_) {
            VdbGridBytes bytes;
            std::string problem;
            bool sound = file_.readTree(*grid.owner, !headerOnly_, bytes, problem);
            if (sound)
                memory += bytes.topology.bytesInMemory;
            if (sound && maxMemory_ >= 0 && memory > static_cast<std::uint64_t>(maxMemory_)) {
                problem =
                    fmt::format("needs {} bytes of memory, the limit is {}", memory, maxMemory_);
                sound = false;
            }
            if (sound && !headerOnly_) {
                grid.tree = buildVdbTree(file_.head(), *grid.owner, bytes, problem);
                sound = grid.tree != nullptr;
            }
            if (!sound) {
                problem_ = fmt::format("grid '{}': {}", printable(grid.owner->label), problem);
                return false;
            }
            grid.topology = std::move(bytes.topology);
            grid.topology.leafMasks = {};
        }
        return true;
    }

    bool readTransform() {
        std::string problem;
        if (file_.readHead(*first_, head_, problem))
            return true;
        problem_ = fmt::format("grid '{}': {}", printable(first_->label), problem);
        return false;
    }

    /// The box of all that is active, or what the simulator says its grid is; one cell at the
    /// origin when nothing is active.
    bool findBox() {
        if (!findForeignBox()) {
            VdbTopology all = std::move(pointsTopology_);
            for (const UsedGrid& grid : used_)
                for (int a = 0; a < 3; ++a) {
                    all.low[a] = std::min(all.low[a], grid.topology.low[a]);
                    all.high[a] = std::max(all.high[a], grid.topology.high[a]);
                }
            if (!all.empty()) {
                low_ = all.low;
                high_ = all.high;
            }
        }
        constexpr std::int64_t kMostOnAxis = std::int64_t(1) << 31;
        std::int64_t cells[3];
        for (int a = 0; a < 3; ++a) {
            cells[a] = std::int64_t(high_[a]) - low_[a] + 1;
            size_[a] = static_cast<int>(std::min(cells[a], kMostOnAxis - 1));
        }
        if (std::max({cells[0], cells[1], cells[2]}) < kMostOnAxis && voxelCount(size_) >= 0)
            return true;
        problem_ = fmt::format("its active box of {} x {} x {} cells is too large", cells[0],
                               cells[1], cells[2]);
        return false;
    }

    bool findForeignBox() {
        const auto& metadata = file_.head().metadata;
        const bool foreign = findMetadata(metadata, kForeignVersion) != nullptr;
        const VdbMetadata* top = findMetadata(metadata, kForeignTop);
        if (!top)
            top = findMetadata(head_.metadata, kForeignTop);
        std::array<std::int64_t, 3> extent;
        if (!top || (!foreign && !findMetadata(head_.metadata, kForeignVersion)) ||
            !top->asInt3(extent))
            return false;
        constexpr std::int64_t kLargest = std::int64_t(1) << 30;
        for (const std::int64_t e : extent)
            if (e < 0 || e > kLargest)
                return false;
        for (int a = 0; a < 3; ++a)
            high_[a] = static_cast<std::int32_t>(extent[a]);
        return true;
    }

    bool fillFrame() {
        for (const FilledChannel& c : channels_) {
            if (!headerOnly_ && !attach(c)) {
                problem_ = "can't be held in memory";
                return false;
            }
            frame_.channelMask |= channelBit(c.channel);
        }
        std::copy_n(size_, 3, frame_.gridSize);
        fillTransform();
        fillTags();
        return true;
    }

    bool attach(const FilledChannel& c) {
        TreeSource source;
        source.grid = used_[c.grid].tree;
        source.kind = used_[c.grid].kind;
        std::copy_n(low_.data(), 3, source.origin);
        std::copy_n(size_, 3, source.size);
        source.component = c.component;
        source.scale = c.scale;
        frame_.freeChannel(c.channel);
        return frame_.channels[c.channel].attach(newTreeHolder(source), size_);
    }

    /// Cells of the frame have the axes of the object's space: the inverse of the grid's scale, and
    /// the place of the box in it. Turns and shears have no place there.
    void fillTransform() {
        const auto& m = head_.transform.toWorld;
        const std::array<double, 3> lengths = head_.transform.voxelSize();
        float* const out = frame_.transform;
        std::fill_n(out, 12, 0.0f);
        for (int a = 0; a < 3; ++a) {
            // Along its own axis a scale keeps its sign.
            const bool onAxis = std::fabs(m[a][a]) == lengths[a];
            const double scale = onAxis ? m[a][a] : lengths[a];
            const double inverse = 1 / scale;
            const bool sound = std::isnormal(scale) && std::isnormal(inverse);
            out[a * 3 + a] = static_cast<float>(sound ? inverse : 1.0);
            const double offset = 0 - m[3][a] * (sound ? inverse : 1.0) - low_[a];
            out[9 + a] = static_cast<float>(std::isfinite(offset) ? offset : -low_[a]);
        }
    }

    void fillTags() {
        std::int64_t number = 0;
        const auto& metadata = file_.head().metadata;
        const VdbMetadata* const mask = findMetadata(metadata, kOwnChannelMask);
        if (findMetadata(metadata, kOwnVersion) && mask && mask->asInt(number)) {
            constexpr std::uint32_t kBit31 = 1u << 31;
            const auto stored = static_cast<std::uint32_t>(number);
            frame_.channelMask &= stored;
            if (stored & kBit31)
                frame_.flags |= kFrameMaskBit31;
        }
        const VdbMetadata* const tag = findMetadata(metadata, kFrameTag);
        if (tag && tag->asInt(number) && number >= INT32_MIN && number <= INT32_MAX)
            frame_.frameNumber = static_cast<std::int32_t>(number);
    }

    NimbraFrameData& frame_;
    bool headerOnly_;
    std::int64_t maxMemory_;
    VdbFile file_;
    std::string problem_;
    /// The first mapped grid, or a points grid: its transform is the frame's.
    const VdbDescriptor* first_ = nullptr;
    VdbGridHead head_;
    /// Of the points grid that stands in for mapped grids; empty else.
    VdbTopology pointsTopology_;
    std::vector<UsedGrid> used_;
    std::vector<FilledChannel> channels_;
    std::array<std::int32_t, 3> low_{0, 0, 0}, high_{0, 0, 0};
    int size_[3] = {0, 0, 0};
};

}  // namespace

int importVdb(const std::string& path, NimbraFrameData& frame, const std::string& channelMap,
              bool headerOnly, std::int64_t maxMemory) {
    frame.resetHeader(headerOnly);
    setImportProblem("");
    const std::vector<GridMapping> mappings =
        CacheIO::mappingsOfText(channelMap, CacheIO::defaultVdbMappings());
    if (mappings.empty()) {
        NMBUtils::logLine("Trying to import VDB files with no mappings specified!\n");
        setImportProblem(path + ": no channel mappings are given");
        return kLoadNoMapping;
    }
    try {
        VdbImport import(frame, headerOnly, maxMemory);
        if (import.run(path, mappings)) {
            finishImport(frame);
            return kLoadOk;
        }
        setImportProblem(fmt::format("{}: {}", path, import.problem()));
    } catch (const std::bad_alloc&) {
        setImportProblem(fmt::format("{}: there isn't enough memory", path));
    } catch (const std::exception& e) {
        setImportProblem(fmt::format("{}: {}", path, printable(e.what())));
    }
    NMBUtils::logLine("Can't import %s\n", lastImportProblem().c_str());
    frame.resetHeader(headerOnly);
    return kLoadNotFound;
}

bool availableVdbChannels(const std::string& path, std::vector<CacheIO::AvailableChannels>& list) {
    VdbFile file;
    if (!file.open(path)) {
        setImportProblem(file.problem());
        return false;
    }
    for (const VdbDescriptor& grid : file.grids()) {
        const int kind = treeKindOfType(grid.treeType);
        if (isVectorKind(kind))
            for (const char* component : {"(x)", "(y)", "(z)"})
                list.push_back({grid.label + component, 1});
        else if (kind != kDense)
            list.push_back({grid.label, 0});
    }
    return true;
}

}  // namespace nimbra
