// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "foundation/kd_tree/node_pool.h"

#include <cstddef>
#include <memory>
#include <new>
#include <type_traits>

#include "foundation/memory.h"

namespace NMBUtils {

namespace {

/// Blocks begin with a cache line, so that a pair of children touches as few as it can.
constexpr std::size_t kCacheLine = 64;

}  // namespace

template <class Node>
struct NodePool<Node>::Block {
    alignas(kCacheLine) std::byte nodes[kBlockNodes * sizeof(Node)];
    Block* older;
    void* store;  // as it was allocated
};

template <class Node>
Node* NodePool<Node>::takePair() {
    static_assert(std::is_trivially_destructible_v<Node>, "nodes go without being destroyed");
    static_assert(kBlockNodes % 2 == 0, "a pair lies in one block");
    const std::lock_guard lock(mutex_);
    if (used_ == kBlockNodes) {
        void* store = allocArrayStore(sizeof(Block) + kCacheLine);
        if (!store)
            return nullptr;
        void* const given = store;
        std::size_t room = sizeof(Block) + kCacheLine;
        auto* const block = new (std::align(kCacheLine, sizeof(Block), store, room)) Block;
        block->store = given;
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
        freeMem(block->store);
    }
    used_ = kBlockNodes;
}

template class NodePool<KDNode>;
template class NodePool<MBNode>;

}  // namespace NMBUtils
