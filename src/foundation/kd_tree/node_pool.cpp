// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "foundation/kd_tree/node_pool.h"

#include <cstddef>
#include <new>
#include <type_traits>

#include "foundation/memory.h"

namespace NMBUtils {

template <class Node>
struct NodePool<Node>::Block {
    Block* older;
    alignas(Node) std::byte nodes[kBlockNodes * sizeof(Node)];
};

template <class Node>
Node* NodePool<Node>::takePair() {
    static_assert(std::is_trivially_destructible_v<Node>, "nodes go without being destroyed");
    static_assert(kBlockNodes % 2 == 0, "a pair lies in one block");
    const std::lock_guard lock(mutex_);
    if (used_ == kBlockNodes) {
        void* const store = allocArrayStore(sizeof(Block));
        if (!store)
            return nullptr;
        auto* const block = new (store) Block;
        block->older = newest_;
        newest_ = block;
        used_ = 0;
    }
    std::byte* const place = newest_->nodes + static_cast<std::size_t>(used_) * sizeof(Node);
    used_ += 2;
    Node* const first = new (place) Node;
    new (place + sizeof(Node)) Node;
    return first;
}

template <class Node>
void NodePool<Node>::clear() {
    while (Block* const block = newest_) {
        newest_ = block->older;
        freeMem(block);
    }
    used_ = kBlockNodes;
}

template class NodePool<KDNode>;
template class NodePool<MBNode>;

}  // namespace NMBUtils
