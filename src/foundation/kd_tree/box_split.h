// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The ways to divide a node over boxes, and the rules that choose between them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "foundation/memory.h"

namespace NMBUtils {

/// One plane across a node's boxes; what touches it lies on both sides.
struct BoxSplit {
    int axis = 0;        // or KDNode::kOblique
    double split = 0;    // place of the plane on a world axis
    double extent = 0;   // of the node across the plane
    int* lists[2] = {};  // primitives of each side
    int counts[2] = {0, 0};

    int largerSide() const { return counts[0] > counts[1] ? counts[0] : counts[1]; }
    std::int64_t total() const { return std::int64_t{counts[0]} + counts[1]; }
    void add(int index, bool first, bool second) {
        lists[0][counts[0]] = index;
        counts[0] += first;
        lists[1][counts[1]] = index;
        counts[1] += second;
    }
    /// False for a plane that multiplies much and separates little; also for one that loses boxes
    /// that are not numbers.
    bool isEligible(int count) const {
        return total() >= count && largerSide() < count - (total() - count) / 8 - 2;
    }
    /// Long extents with a small larger side are preferred.
    bool isBetterThan(const BoxSplit& other) const {
        return double(largerSide()) * other.extent < double(other.largerSide()) * extent;
    }
};

/// The first eligible of them, unless a later eligible one is better; null without any.
const BoxSplit* chooseSplit(const BoxSplit* splits, int splitCount, int primitiveCount);

/// One block for the lists of all planes that are tried.
class ListBlock {
public:
    /// Two lists for each split, `count` places each. Check `valid`.
    ListBlock(BoxSplit* splits, int splitCount, int count);
    bool valid() const { return store_ != nullptr; }

private:
    struct Free {
        void operator()(int* store) const { freeMem(store); }
    };
    std::unique_ptr<int, Free> store_;
};

}  // namespace NMBUtils
