// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Where the nodes of a spatial index come from: blocks of 1024, handed out in adjacent pairs under
// one lock, and given back all at once.
#pragma once

#include <mutex>

#include "foundation/kd_tree/kd_node.h"

namespace NMBUtils {

template <class Node>
class NodePool {
public:
    static constexpr int kBlockNodes = 1024;

    NodePool() = default;
    NodePool(const NodePool&) = delete;
    NodePool& operator=(const NodePool&) = delete;
    ~NodePool() { clear(); }

    /// Two new nodes side by side, or null without memory. From any thread.
    Node* takePair();
    /// Gives all nodes back; no other thread may use the pool or its nodes meanwhile.
    void clear();

private:
    struct Block;

    std::mutex mutex_;
    Block* newest_ = nullptr;
    int used_ = kBlockNodes;  // nodes handed out of the newest block
};

extern template class NodePool<KDNode>;
extern template class NodePool<MBNode>;

}  // namespace NMBUtils
