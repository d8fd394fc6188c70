// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The entropy coder of compressed grids: a static prefix code, built top-down by splitting the
// symbols at half their weight (R. M. Fano, "The transmission of information", 1949), or plain
// fields of bits. The table of symbols and rates travels in the stream; both sides build the same
// tree from it.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "cache/bit_reader.h"

namespace NMBUtils {

/// One entry of the transmitted table.
struct SymbolRate {
    std::uint32_t value = 0;
    std::uint32_t rate = 0;
};

/// A node of the code tree. A leaf has no children and holds its symbol; an inner node holds the
/// table index at which its right half starts.
struct CodeNode {
    std::uint32_t word = 0;
    std::int32_t child = -1;  // the first of two neighbours; -1: a leaf
};

/// A code and its length in bits, first decision in the lowest bit. Codes of more than 64 bits
/// can't be written; reading has no limit.
struct PrefixCode {
    std::uint64_t code = 0;
    std::int32_t length = 0;
};

/// Builds the tree over `table` (not empty), whose rates sum to `total`. With `codes`, the leaf of
/// table[i] leaves its code there at index table[i].value. False without memory.
bool buildCodeTree(const std::vector<SymbolRate>& table, std::uint64_t total,
                   std::vector<CodeNode>& tree, std::vector<PrefixCode>* codes);

/// Decodes the symbols of one zone.
class BitDecoder {
public:
    /// Reads the form and, in the table form, the table. False, with a line in the log, when the
    /// table can't be what it claims or there is no memory for it.
    bool init(BitReader& in);
    /// The next symbol, in both forms with its base added.
    std::int32_t next(BitReader& in) {
        if (directBits_)
            return static_cast<std::int32_t>(in.take(directBits_) + base_);
        in.refill();
        const Entry& e = lookup_[in.bits() & (kLookupSize - 1)];
        if (e.length <= kLookupBits) {
            in.skip(e.length);
            return static_cast<std::int32_t>(e.value);
        }
        return walk(in, e);
    }
    int directBits() const { return directBits_; }

private:
    static constexpr int kLookupBits = 12;
    static constexpr std::uint32_t kLookupSize = 1u << kLookupBits;
    // What a pattern of bits means: a symbol with its base added, or, with a length above
    // kLookupBits, the node at which a longer code goes on.
    struct Entry {
        std::uint32_t value = 0;
        std::int32_t length = 0;
    };

    bool readTable(BitReader& in);
    void fillLookup();
    std::int32_t walk(BitReader& in, const Entry& entry) const;

    int directBits_ = 0;
    std::uint32_t base_ = 0;
    std::vector<SymbolRate> table_;
    std::vector<CodeNode> tree_;
    std::vector<Entry> lookup_;
};

/// Which form the encoder writes.
enum class SymbolForm {
    Smaller,
    Direct,
    Table,  // direct all the same where a table can't be made
};

/// Appends the code of `values` to `out`, in whole words of 32 bits. False without memory, with a
/// line in the log.
bool encodeSymbols(const std::int32_t* values, std::size_t count, SymbolForm form,
                   std::vector<std::uint8_t>& out);

}  // namespace NMBUtils
