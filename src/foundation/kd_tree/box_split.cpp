// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "foundation/kd_tree/box_split.h"

namespace NMBUtils {

const BoxSplit* chooseSplit(const BoxSplit* splits, int splitCount, int primitiveCount) {
    const BoxSplit* chosen = nullptr;
    for (const BoxSplit* split = splits; split != splits + splitCount; ++split) {
        if (split->isEligible(primitiveCount) && (!chosen || split->isBetterThan(*chosen)))
            chosen = split;
    }
    return chosen;
}

ListBlock::ListBlock(BoxSplit* splits, int splitCount, int count) {
    const auto places = static_cast<std::size_t>(count);
    store_.reset(static_cast<int*>(
        allocArrayStore(2 * static_cast<std::size_t>(splitCount) * places * sizeof(int))));
    if (!store_)
        return;
    int* list = store_.get();
    for (int i = 0; i < splitCount; ++i) {
        for (int*& side : splits[i].lists) {
            side = list;
            list += places;
        }
    }
}

}  // namespace NMBUtils
