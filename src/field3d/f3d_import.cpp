// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "field3d/f3d_import.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <set>

#include "cache/bounded_reader.h"
#include "cache/frame_data.h"
#include "field3d/f3d_file.h"
#include "field3d/f3d_voxels.h"

namespace nimbra {

namespace {

using CacheIO::GridMapping;

constexpr const char* kComponents[] = {"(x)", "(y)", "(z)"};

/// A layer that can become channels, and its partition.
struct UsableLayer {
    const F3dLayer* layer = nullptr;
    const F3dPartition* partition = nullptr;

    F3dAffine voxelToWorld() const { return partition->mapping.voxelToWorld(layer->extents); }
};

/// One of each name, in file order. Of the others `notes` tells.
std::vector<UsableLayer> usableLayers(const F3dFile& file, std::vector<std::string>& notes) {
    std::vector<UsableLayer> list;
    std::set<std::string> names;
    for (const F3dPartition& p : file.partitions())
        for (const F3dLayer& layer : p.layers) {
            const std::string label =
                fmt::format("layer '{}' of '{}'", printable(layer.name), printable(p.diskName));
            if (!p.mapping.problem.empty())
                notes.push_back(fmt::format("{} {}", label, p.mapping.problem));
            else if (!layer.readable())
                notes.push_back(fmt::format("{} {}", label, layer.problem));
            else if (!names.insert(layer.name).second)
                notes.push_back(label + " is left out, another one of this name stands before it");
            else
                list.push_back({&layer, &p});
        }
    return list;
}

/// "name(x)" or "name.x", in letters of either size; component 0 to 2.
bool splitComponent(const std::string& name, std::string& base, int& component) {
    const std::size_t n = name.size();
    const bool bracket = n > 3 && name[n - 3] == '(' && name[n - 1] == ')';
    const bool dot = n > 2 && name[n - 2] == '.';
    if (!bracket && !dot)
        return false;
    const char letter = static_cast<char>(name[bracket ? n - 2 : n - 1] | 0x20);
    component = letter - 'x';
    base = name.substr(0, n - (bracket ? 3 : 2));
    return component >= 0 && component < 3;
}

/// The component that a channel is of its vector; 0 for scalar channels.
int componentOfChannel(int channel) {
    for (const int first : {kVelocityX, kColorR, kAdvectionOriginX, kWaveletU})
        if (channel >= first && channel < first + 3)
            return channel - first;
    return 0;
}

/// A layer with one component for a channel.
struct Choice {
    std::size_t layer = 0;
    int component = 0;
    int channel = 0;
    float scale = 1;
};

/// A scalar's own name comes first, then a vector's with its component, then a vector's alone.
bool chooseLayer(const std::vector<UsableLayer>& layers, const GridMapping& mapping, Choice& out) {
    const auto find = [&](const std::string& name, int components) {
        const auto found = std::find_if(layers.begin(), layers.end(), [&](const UsableLayer& u) {
            return u.layer->components == components && u.layer->name == name;
        });
        out.layer = static_cast<std::size_t>(found - layers.begin());
        return found != layers.end();
    };
    std::string base;
    out.channel = mapping.channel;
    out.scale = mapping.scale;
    out.component = 0;
    if (find(mapping.name, 1))
        return true;
    if (splitComponent(mapping.name, base, out.component) && find(base, 3))
        return true;
    out.component = componentOfChannel(mapping.channel);
    return find(mapping.name, 3);
}

bool fitsAxes(const F3dBox& box, int size[3]) {
    for (int a = 0; a < 3; ++a) {
        if (box.size(a) < 1 || box.size(a) > INT32_MAX)
            return false;
        size[a] = static_cast<int>(box.size(a));
    }
    return voxelCount(size) > 0;
}

/// Whether both say the same of all corners of a box, to a hundredth of a cell.
bool agree(const F3dAffine& a, const F3dAffine& b, const F3dBox& box) {
    constexpr double kSlack = 0.01;
    double cell = 0;
    for (int axis = 0; axis < 3; ++axis) {
        const auto& v = a[axis];
        const double length = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
        cell = axis == 0 ? length : std::min(cell, length);
    }
    for (int corner = 0; corner < 8; ++corner) {
        std::array<double, 3> p;
        for (int x = 0; x < 3; ++x)
            p[x] = static_cast<double>((corner >> x & 1) ? box.high[x] + 1 : box.low[x]);
        const auto pa = transformed(a, p), pb = transformed(b, p);
        for (int x = 0; x < 3; ++x)
            if (!(std::fabs(pa[x] - pb[x]) <= kSlack * cell))
                return false;
    }
    return true;
}

std::uint64_t memoryOfMachine() {
    const long pages = sysconf(_SC_PHYS_PAGES), size = sysconf(_SC_PAGESIZE);
    return pages > 0 && size > 0
               ? static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(size)
               : UINT64_MAX;
}

class F3dImport {
public:
    F3dImport(NimbraFrameData& frame, bool headerOnly) : frame_(frame), headerOnly_(headerOnly) {}

    bool run(const std::string& path, const std::vector<GridMapping>& mappings) {
        if (!file_.open(path)) {
            problem_ = file_.problem();
            return false;
        }
        layers_ = usableLayers(file_, notes_);
        if (!chooseLayers(mappings) || !findBox())
            return false;
        if (!headerOnly_ && (!checkMemory() || !fillChannels()))
            return false;
        for (const Choice& c : choices_)
            frame_.channelMask |= channelBit(c.channel);
        for (int a = 0; a < 3; ++a)
            frame_.gridSize[a] = size_[a];
        fillTransform();
        return true;
    }
    std::string message(bool success) const {
        std::string text = problem_;
        if (success && changedValues_ > 0)
            text = fmt::format("{} values that aren't finite were set to 0", changedValues_);
        for (const std::string& note : notes_)
            text += (text.empty() ? "" : "; ") + note;
        // Many layers make long lists.
        constexpr std::size_t kLongest = 1000;
        return text.size() > kLongest ? text.substr(0, kLongest) + " ..." : text;
    }

private:
    bool fail(const std::string& problem) {
        problem_ = problem;
        return false;
    }
    std::string listNames() const {
        std::string names;
        for (const UsableLayer& u : layers_)
            names += (names.empty() ? "" : ", ") + printable(u.layer->name);
        return names.empty() ? "no layers that can be shown" : names;
    }
    bool chooseLayers(const std::vector<GridMapping>& mappings) {
        for (const GridMapping& mapping : mappings) {
            Choice choice;
            if (mapping.channel <= kNoChannel || mapping.channel >= kChannelSlots ||
                !chooseLayer(layers_, mapping, choice))
                continue;
            if (!liesAsTheFirst(layers_[choice.layer]))
                continue;
            // A later entry for the same channel takes its place.
            std::erase_if(choices_, [&](const Choice& c) { return c.channel == choice.channel; });
            choices_.push_back(choice);
        }
        return !choices_.empty() || fail("has none of the mapped layers; it holds " + listNames());
    }
    /// The first layer is the measure for the others.
    bool liesAsTheFirst(const UsableLayer& layer) {
        if (!first_.layer) {
            first_ = layer;
            return true;
        }
        if (agree(first_.voxelToWorld(), layer.voxelToWorld(), layer.layer->window) &&
            agree(first_.voxelToWorld(), layer.voxelToWorld(), first_.layer->window))
            return true;
        const std::string note = fmt::format(
            "layer '{}' of '{}' is left out, its voxels lie otherwise than those of "
            "'{}'",
            printable(layer.layer->name), printable(layer.partition->diskName),
            printable(first_.layer->name));
        if (std::find(notes_.begin(), notes_.end(), note) == notes_.end())
            notes_.push_back(note);
        return false;
    }
    bool findBox() {
        box_ = layers_[choices_[0].layer].layer->window;
        for (const Choice& c : choices_)
            for (int a = 0; a < 3; ++a) {
                const F3dBox& window = layers_[c.layer].layer->window;
                box_.low[a] = std::min(box_.low[a], window.low[a]);
                box_.high[a] = std::max(box_.high[a], window.high[a]);
            }
        return fitsAxes(box_, size_) ||
               fail(fmt::format("spans {} x {} x {} cells, which is too large", box_.size(0),
                                box_.size(1), box_.size(2)));
    }
    bool checkMemory() {
        const std::uint64_t needed =
            static_cast<std::uint64_t>(voxelCount(size_)) * sizeof(float) * choices_.size();
        const std::uint64_t most = std::min(largestExpansion(file_.bytes()), memoryOfMachine());
        return needed <= most ||
               fail(fmt::format("needs {} bytes of memory, a file of {} bytes gets at most {}",
                                needed, file_.bytes(), most));
    }
    bool fillChannels() {
        for (const Choice& c : choices_) {
            frame_.freeChannel(c.channel);
            if (!frame_.channels[c.channel].allocate(size_))
                return fail("can't be held in memory");
        }
        // Each layer is read once, whatever the number of channels that it fills.
        std::set<std::size_t> done;
        for (const Choice& c : choices_)
            if (done.insert(c.layer).second && !readLayer(c.layer))
                return false;
        return true;
    }
    bool readLayer(std::size_t index) {
        std::vector<F3dTarget> targets;
        for (const Choice& c : choices_)
            if (c.layer == index)
                targets.push_back(
                    {frame_.channels[c.channel].denseVoxels(), box_, c.component, c.scale});
        const F3dLayer& layer = *layers_[index].layer;
        std::string problem;
        if (!readVoxels(file_, layer, targets, problem))
            return fail(fmt::format("layer '{}' {}", printable(layer.name), problem));
        const std::int64_t cells = voxelCount(size_);
        for (const F3dTarget& t : targets)
            for (std::int64_t i = 0; i < cells; ++i)
                if (!std::isfinite(t.voxels[i])) {
                    t.voxels[i] = 0;
                    ++changedValues_;
                }
        return true;
    }
    /// Cells of the frame have their centres at whole numbers, and cell 0 is the box's low corner.
    void fillTransform() {
        F3dAffine worldToVoxel;
        const bool sound = inverted(first_.voxelToWorld(), worldToVoxel);
        float* const out = frame_.transform;
        for (int row = 0; row < 4; ++row)
            for (int x = 0; x < 3; ++x) {
                double v = sound ? worldToVoxel[row][x] : row == x ? 1.0 : 0.0;
                if (row == 3)
                    v -= 0.5 + static_cast<double>(box_.low[x]);
                out[row * 3 + x] = static_cast<float>(v);
            }
        if (!sound)
            notes_.push_back("its mapping has no inverse");
    }

    NimbraFrameData& frame_;
    bool headerOnly_;
    F3dFile file_;
    std::string problem_;
    std::vector<std::string> notes_;
    std::vector<UsableLayer> layers_;
    std::vector<Choice> choices_;
    UsableLayer first_;
    F3dBox box_;
    int size_[3] = {0, 0, 0};
    std::uint64_t changedValues_ = 0;
};

}  // namespace

bool listF3dChannels(const std::string& path, std::vector<CacheIO::AvailableChannels>& list,
                     std::string& problem) {
    F3dFile file;
    if (!file.open(path)) {
        problem = file.problem();
        return false;
    }
    std::vector<std::string> notes;
    for (const UsableLayer& u : usableLayers(file, notes))
        if (u.layer->components == 1)
            list.push_back({u.layer->name, 0});
        else
            for (const char* component : kComponents)
                list.push_back({u.layer->name + component, 1});
    return true;
}

bool importF3dFile(const std::string& path, NimbraFrameData& frame, bool headerOnly,
                   const std::vector<GridMapping>& mappings, std::string& message) {
    F3dImport import(frame, headerOnly);
    const bool success = import.run(path, mappings);
    message = import.message(success);
    return success;
}

}  // namespace nimbra
