// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Blocks of pointers for the rays of one thread, so that a ray allocates nothing.
#pragma once

#include <memory>
#include <new>
#include <vector>

namespace nimbra {

/// Blocks of one size, taken and given back in any order. Grows by chunks and keeps them. For one
/// thread at a time.
class BlockPool {
public:
    static constexpr int kBlocksInChunk = 10;

    /// All blocks are free again. With another block size (in pointers) than before the memory is
    /// given back first.
    void prepare(int blockSize) {
        if (blockSize != blockSize_)
            chunks_.clear();
        blockSize_ = blockSize;
        free_ = nullptr;
        for (const Chunk& chunk : chunks_)
            addFree(chunk.get());
    }

    /// Uninitialised; null without memory.
    void** take() {
        if (!free_ && !grow())
            return nullptr;
        void** block = free_;
        free_ = static_cast<void**>(block[0]);
        return block;
    }

    void give(void** block) {
        block[0] = free_;
        free_ = block;
    }

private:
    using Chunk = std::unique_ptr<void*[]>;

    /// A free block holds the next free one in its first pointer.
    int stride() const { return blockSize_ > 0 ? blockSize_ : 1; }

    bool grow() {
        try {
            chunks_.push_back(std::make_unique<void*[]>(std::size_t(stride()) * kBlocksInChunk));
        } catch (const std::bad_alloc&) {
            return false;
        }
        addFree(chunks_.back().get());
        return true;
    }

    void addFree(void** blocks) {
        for (int i = kBlocksInChunk - 1; i >= 0; --i)
            give(blocks + std::size_t(stride()) * i);
    }

    int blockSize_ = 0;
    void** free_ = nullptr;
    std::vector<Chunk> chunks_;
};

}  // namespace nimbra
