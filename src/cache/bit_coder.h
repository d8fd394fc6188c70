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

/// What the next bits mean, in one word, so that a look-up is one load.
class CodeEntry {
public:
    enum Kind : std::uint32_t { Value, Negative, LongCode };

    CodeEntry() = default;
    CodeEntry(std::uint32_t value, int length, Kind kind)
        : word_(std::uint64_t{value} << 32 | kind << 8 | static_cast<std::uint32_t>(length)) {}

    /// The symbol with its base added; of a LongCode a node of the tree.
    std::uint32_t value() const { return static_cast<std::uint32_t>(word_ >> 32); }
    int length() const { return static_cast<int>(word_ & 0xFF); }
    /// Negative: a symbol below zero.
    Kind kind() const { return static_cast<Kind>(word_ >> 8 & 0xFF); }

private:
    std::uint64_t word_ = 0;
};

/// Decodes the symbols of one zone.
class BitDecoder {
public:
    /// Reads the form and, in the table form, the table. False, with a line in the log, when the
    /// table can't be what it claims or there is no memory for it.
    bool init(BitReader& in);
    /// The next symbol, in both forms with its base added.
    std::int32_t next(BitReader& in) const {
        if (directBits_)
            return static_cast<std::int32_t>(in.take(directBits_) + base_);
        in.refill();
        const CodeEntry e = look(in);
        in.skip(e.length());
        return e.kind() == CodeEntry::LongCode ? walk(in, e) : static_cast<std::int32_t>(e.value());
    }
    /// Width of a symbol in the direct form, 0 in the table form.
    int directBits() const { return directBits_; }

    // For the table form: reading without a refill for each symbol.

    /// Symbols that one refill is good for.
    static constexpr int kSymbolsPerRefill = 5;
    /// What stands next; its `length` bits are to be skipped.
    CodeEntry look(const BitReader& in) const { return lookup_[in.bits() & (kLookupSize - 1)]; }
    /// The symbol of a LongCode whose first bits were skipped.
    std::int32_t walk(BitReader& in, const CodeEntry& entry) const;

private:
    static constexpr int kLookupBits = 11;
    static constexpr std::uint32_t kLookupSize = 1u << kLookupBits;
    static_assert(kSymbolsPerRefill * kLookupBits <= BitReader::kLeastBits);

    bool readTable(BitReader& in);
    void fillLookup();

    int directBits_ = 0;
    std::uint32_t base_ = 0;
    std::vector<SymbolRate> table_;
    std::vector<CodeNode> tree_;
    std::vector<CodeEntry> lookup_;
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
