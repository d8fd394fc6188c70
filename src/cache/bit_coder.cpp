// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cache/bit_coder.h"

#include <new>

#include "foundation/log.h"

namespace NMBUtils {
namespace {

/// A part of the table that is to become the subtree below `node`.
struct Range {
    std::size_t first, count;
    std::uint64_t weight, code;
    std::int32_t node, depth;
};

// Symbols of the left part: the split lies nearest to half the weight, a tie keeps the symbol left.
std::size_t splitRange(const std::vector<SymbolRate>& table, const Range& r,
                       std::uint64_t& leftWeight) {
    const std::uint64_t half = r.weight >> 1;
    std::uint64_t before = 0;
    for (std::size_t i = 0; i < r.count; ++i) {
        const std::uint64_t sum = before + table[r.first + i].rate;
        if (sum >= half) {
            const bool toRight = i > 0 && sum - half > half - before;
            leftWeight = toRight ? before : sum;
            return toRight ? i : i + 1;
        }
        before = sum;
    }
    leftWeight = before;
    return r.count;
}

}  // namespace

bool buildCodeTree(const std::vector<SymbolRate>& table, std::uint64_t total,
                   std::vector<CodeNode>& tree, std::vector<PrefixCode>* codes) try {
    tree.clear();
    tree.reserve(2 * table.size());
    tree.emplace_back();
    std::vector<Range> open{{0, table.size(), total, 0, 0, 0}};
    while (!open.empty()) {
        const Range r = open.back();
        open.pop_back();
        CodeNode& node = tree[static_cast<std::size_t>(r.node)];
        if (r.count == 1) {
            node.word = table[r.first].value;
            if (codes)
                (*codes)[node.word] = {r.code, r.depth};
            continue;
        }
        std::uint64_t leftWeight = 0;
        const std::size_t left = splitRange(table, r, leftWeight);
        if (left == r.count)
            continue;  // rates that don't add up to their total: no split, symbol 0
        node.word = static_cast<std::uint32_t>(r.first + left);
        node.child = static_cast<std::int32_t>(tree.size());
        const std::int32_t child = node.child;
        tree.resize(tree.size() + 2);
        const std::uint64_t bit = r.depth < 64 ? std::uint64_t{1} << r.depth : 0;
        open.push_back({r.first + left, r.count - left, r.weight - leftWeight, r.code | bit,
                        child + 1, r.depth + 1});
        open.push_back({r.first, left, leftWeight, r.code, child, r.depth + 1});
    }
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

bool BitDecoder::init(BitReader& in) {
    directBits_ = static_cast<int>(in.take(8));
    if (directBits_) {
        base_ = in.take(32);
        // A field wider than a word keeps its low 32 bits; no writer makes one.
        return directBits_ <= 32;
    }
    return readTable(in);
}

bool BitDecoder::readTable(BitReader& in) {
    const std::uint32_t symbolCount = in.take(32);
    base_ = in.take(32);
    const int rateBits = static_cast<int>(in.take(6)), valueBits = static_cast<int>(in.take(6));
    const std::uint64_t entryBits = 1 + static_cast<std::uint64_t>(valueBits);
    if (symbolCount == 0 || rateBits > 32 || valueBits > 32 ||
        symbolCount > in.left() / entryBits) {
        logLine("Encode InitDecoder srt failed!\n");
        return false;
    }
    std::uint64_t total = 0;
    try {
        table_.assign(symbolCount, {});
        lookup_.assign(kLookupSize, {});
    } catch (const std::bad_alloc&) {
        logLine("Encode InitDecoder srt failed!\n");
        return false;
    }
    std::uint32_t rate = 0;
    for (SymbolRate& entry : table_) {
        if (in.take(1))
            rate = in.take(rateBits);
        entry = {in.take(valueBits), rate};
        total += rate;
    }
    if (!buildCodeTree(table_, total, tree_, nullptr)) {
        logLine("Encode InitDecoder tree failed!\n");
        return false;
    }
    fillLookup();
    return true;
}

void BitDecoder::fillLookup() {
    struct Step {
        std::int32_t node;
        std::uint32_t code;
        int depth;
    };
    std::vector<Step> open{{0, 0, 0}};
    while (!open.empty()) {
        const Step s = open.back();
        open.pop_back();
        const CodeNode& node = tree_[static_cast<std::size_t>(s.node)];
        if (node.child < 0) {
            const std::uint32_t symbol = node.word + base_;
            const bool negative = static_cast<std::int32_t>(symbol) < 0;
            const CodeEntry leaf{symbol, s.depth,
                                 negative ? CodeEntry::Negative : CodeEntry::Value};
            for (std::uint32_t p = s.code; p < kLookupSize; p += 1u << s.depth)
                lookup_[p] = leaf;
        } else if (s.depth == kLookupBits) {
            lookup_[s.code] = {static_cast<std::uint32_t>(s.node), kLookupBits,
                               CodeEntry::LongCode};
        } else {
            open.push_back({node.child, s.code, s.depth + 1});
            open.push_back({node.child + 1, s.code | 1u << s.depth, s.depth + 1});
        }
    }
}

std::int32_t BitDecoder::walk(BitReader& in, const CodeEntry& entry) const {
    const CodeNode* node = &tree_[entry.value()];
    while (node->child >= 0) {
        in.refill();
        std::uint64_t bits = in.bits();
        int taken = 0;
        for (; node->child >= 0 && taken < BitReader::kLeastBits; ++taken, bits >>= 1)
            node = &tree_[static_cast<std::size_t>(node->child) + (bits & 1)];
        in.skip(taken);
    }
    return static_cast<std::int32_t>(node->word + base_);
}

}  // namespace NMBUtils
