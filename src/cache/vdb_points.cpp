// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/vdb_points.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>

namespace nimbra {
namespace {

// More than anybody has; damaged counts are seen before they cost anything.
constexpr std::uint64_t kMostAttributes = 1024;

class PointsWalk {
public:
    PointsWalk(BoundedReader& in, const VdbTopology& topology, VdbPoints& out)
        : in_(in), leafCount_(topology.leafMasks.size()), out_(out) {
        out_ = {};
        out_.leaves.resize(leafCount_);
        for (std::size_t i = 0; i < leafCount_; ++i)
            out_.leaves[i].origin = topology.leafOrigins[i];
    }

    bool run(std::string& problem) {
        const auto passes = in_.get<std::uint16_t>();
        // Without leaves there is one empty pass.
        if (leafCount_ == 0)
            return in_.ok();
        constexpr int kOwnPasses = 4;
        const std::size_t attributes = passes >= kOwnPasses ? (passes - kOwnPasses) / 2u : 0;
        const char* stage = "sizes";
        bool sound = passes >= kOwnPasses && walkSizes();
        const auto next = [&](const char* name, auto&& walk) {
            if (sound) {
                stage = name;
                sound = walk();
            }
        };
        next("attributes",
             [&] { return walkAttributes() && attributes == out_.attributes.size(); });
        next("pages", [&] { return walkPageHeads(); });
        next("voxels", [&] { return walkVoxels(); });
        next("values", [&] { return walkArrays(); });
        next("count", [&] { return countPoints(); });
        if (!sound)
            problem = fmt::format("the {} of its points are damaged near byte {} of the grid",
                                  stage, in_.position());
        return sound || in_.fail();
    }

private:
    bool walkSizes() {
        // The sizes stand again in front of the voxels.
        return in_.skip(leafCount_ * sizeof(std::uint16_t));
    }

    bool walkAttributes() {
        constexpr std::uint8_t kServesAll = 1, kSkips = 2;
        bool shared = false;
        for (std::size_t leaf = 0; leaf < leafCount_; ++leaf) {
            if (!shared) {
                const auto flags = in_.get<std::uint8_t>();
                std::vector<VdbPointAttribute> own;
                if (flags > (kServesAll | kSkips) || !walkDescriptor(own))
                    return false;
                if ((flags & kSkips) && !in_.skip(in_.get<std::uint64_t>()))
                    return false;
                if (!takeDescriptor(own, leaf == 0))
                    return false;
                shared = flags & kServesAll;
            }
            for (auto& arrays : out_.arrays)
                if (!walkArrayHead(arrays[leaf]))
                    return false;
        }
        return in_.ok();
    }

    bool takeDescriptor(std::vector<VdbPointAttribute>& own, bool first) {
        if (!first) {
            const auto same = [](const VdbPointAttribute& a, const VdbPointAttribute& b) {
                return a.name == b.name && a.type == b.type && a.codec == b.codec;
            };
            return std::equal(own.begin(), own.end(), out_.attributes.begin(),
                              out_.attributes.end(), same);
        }
        // Heads of all arrays must be there before there is room for them.
        constexpr std::uint64_t kArrayHead = 14;
        if (!in_.require(leafCount_ * own.size(), kArrayHead))
            return false;
        out_.attributes = std::move(own);
        out_.arrays.assign(out_.attributes.size(), std::vector<VdbPointArray>(leafCount_));
        out_.pages.resize(out_.attributes.size());
        return true;
    }

    bool walkDescriptor(std::vector<VdbPointAttribute>& attributes) {
        const auto count = in_.get<std::uint64_t>();
        if (!in_.ok() || count > kMostAttributes)
            return false;
        attributes.resize(count);
        for (VdbPointAttribute& a : attributes)
            if (!readText(in_, a.type) || !readText(in_, a.codec))
                return false;
        for (std::uint64_t i = 0; i < count; ++i) {
            std::string name;
            if (!readText(in_, name))
                return false;
            const auto place = in_.get<std::uint64_t>();
            if (!in_.ok() || place >= count || !attributes[place].name.empty())
                return false;
            attributes[place].name = std::move(name);
        }
        const auto groups = in_.get<std::uint64_t>();
        if (!in_.require(groups, sizeof(std::uint32_t) + sizeof(std::uint64_t)))
            return false;
        for (std::uint64_t i = 0; i < groups; ++i)
            if (!in_.skip(in_.get<std::uint32_t>()) || !in_.skip(sizeof(std::uint64_t)))
                return false;
        return skipMetadata();
    }

    bool skipMetadata() {
        const auto count = in_.get<std::uint32_t>();
        if (!in_.require(count, 3 * sizeof(std::uint32_t)))
            return false;
        for (std::uint64_t i = 0; i < std::uint64_t(count) * 3; ++i)
            if (!in_.skip(in_.get<std::uint32_t>()))
                return false;
        return in_.ok();
    }

    bool walkArrayHead(VdbPointArray& array) {
        constexpr std::uint64_t kHeadInBytes = 6;
        constexpr std::uint8_t kStrided = 1, kUniform = 2, kPaged = 8, kKnown = 15;
        const auto bytes = in_.get<std::uint64_t>();
        in_.skip(1);
        const auto form = in_.get<std::uint8_t>();
        array.points = in_.get<std::uint32_t>();
        if (form & kStrided)
            array.stride = in_.get<std::uint32_t>();
        if (!in_.ok() || form > kKnown || bytes < kHeadInBytes)
            return false;
        array.bytes = bytes - kHeadInBytes;
        array.uniform = form & kUniform;
        array.paged = form & kPaged;
        return true;
    }

    bool walkPageHeads() {
        for (std::size_t a = 0; a < out_.arrays.size(); ++a)
            if (!walkPageHeads(out_.arrays[a], out_.pages[a]))
                return false;
        return true;
    }

    bool walkPageHeads(std::vector<VdbPointArray>& arrays, std::vector<VdbPointPage>& pages) {
        std::uint64_t used = 0, size = 0;
        for (VdbPointArray& array : arrays) {
            if (!array.paged)
                continue;
            if (used == size) {
                VdbPointPage page;
                if (!walkPageHead(page))
                    return false;
                size = static_cast<std::uint64_t>(page.plainBytes);
                used = 0;
                pages.push_back(page);
            }
            if (array.bytes > size - used)
                return false;
            array.page = static_cast<std::uint32_t>(pages.size() - 1);
            array.pageByte = static_cast<std::uint32_t>(used);
            used += array.bytes;
        }
        return true;
    }

    bool walkPageHead(VdbPointPage& page) {
        const auto packed = in_.get<std::int32_t>();
        if (packed > 0) {
            page.packedBytes = packed;
            page.plainBytes = in_.get<std::int32_t>();
        } else if (packed < 0 && packed != std::numeric_limits<std::int32_t>::min()) {
            page.plainBytes = -packed;
        }
        return in_.ok() && page.plainBytes > 0;
    }

    bool walkVoxels() {
        constexpr std::uint64_t kMaskBytes = 64, kPlainVoxels = 512 * 4;
        for (VdbPointLeaf& leaf : out_.leaves) {
            in_.skip(kMaskBytes);
            leaf.voxelBytes = in_.get<std::uint16_t>();
            leaf.voxels = in_.position();
            if (!in_.skip(leaf.voxelBytes == kPlainPointVoxels ? kPlainVoxels : leaf.voxelBytes))
                return false;
        }
        return true;
    }

    bool walkArrays() {
        for (std::size_t a = 0; a < out_.arrays.size(); ++a) {
            std::size_t pages = 0;
            for (VdbPointArray& array : out_.arrays[a]) {
                if (!array.paged) {
                    array.blosc = !array.uniform && in_.get<std::uint8_t>() == 1;
                    array.position = in_.position();
                    if (!in_.skip(array.bytes))
                        return false;
                } else if (array.page == pages) {
                    VdbPointPage& page = out_.pages[a][pages++];
                    page.position = in_.position();
                    if (!in_.skip(static_cast<std::uint64_t>(page.packedBytes ? page.packedBytes
                                                                              : page.plainBytes)))
                        return false;
                }
            }
        }
        return in_.ok();
    }

    bool countPoints() {
        const int positions = out_.attribute("P");
        if (positions < 0)
            return true;
        for (const VdbPointArray& array : out_.arrays[static_cast<std::size_t>(positions)])
            out_.count += array.points;
        // As many points of three half floats as bytes packed to the 255th part can hold.
        constexpr std::int64_t kMostRatio = 42;
        return out_.count <= std::numeric_limits<std::int32_t>::max() &&
               out_.count / kMostRatio <= static_cast<std::int64_t>(in_.size());
    }

    BoundedReader& in_;
    std::size_t leafCount_;
    VdbPoints& out_;
};

}  // namespace

bool isPointsType(const std::string& treeType) {
    return treeType == "Tree_ptdataidx32_5_4_3";
}

int VdbPoints::attribute(const char* name) const {
    for (std::size_t i = 0; i < attributes.size(); ++i)
        if (attributes[i].name == name)
            return static_cast<int>(i);
    return -1;
}

bool walkPoints(BoundedReader& in, const VdbTopology& topology, VdbPoints& points,
                std::string& problem) {
    return PointsWalk(in, topology, points).run(problem);
}

}  // namespace nimbra
