// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The writing side of the entropy coder.
#include <algorithm>
#include <bit>
#include <new>

#include "cache/bit_coder.h"
#include "foundation/log.h"

namespace NMBUtils {
namespace {

/// Gathers bits, least significant first, and writes whole words.
class BitWriter {
public:
    explicit BitWriter(std::vector<std::uint8_t>& out) : out_(out) {}
    /// The lowest `count` bits, 0 to 64.
    void put(std::uint64_t bits, int count) {
        if (count > kWordBits) {
            put(bits & UINT32_MAX, kWordBits);
            bits >>= kWordBits;
            count -= kWordBits;
        }
        held_ |= (bits & ((std::uint64_t{1} << count) - 1)) << heldCount_;
        heldCount_ += count;
        if (heldCount_ >= kWordBits)
            flush();
    }
    void finish() {
        if (heldCount_ > 0)
            flush();
    }

private:
    static constexpr int kWordBits = 32;
    void flush() {
        const auto word = static_cast<std::uint32_t>(held_);
        const auto* const p = reinterpret_cast<const std::uint8_t*>(&word);
        out_.insert(out_.end(), p, p + sizeof word);
        held_ >>= kWordBits;
        heldCount_ -= kWordBits;
    }
    std::vector<std::uint8_t>& out_;
    std::uint64_t held_ = 0;
    int heldCount_ = 0;
};

/// The values of one zone with what both forms need to know of them.
struct Symbols {
    const std::int32_t* values;
    std::size_t count;
    std::int32_t min;
    std::uint64_t range;  // max - min + 1
    int valueBits;
    std::int64_t rawBytes;

    std::uint32_t at(std::size_t i) const {
        return static_cast<std::uint32_t>(values[i]) - static_cast<std::uint32_t>(min);
    }
};

Symbols scan(const std::int32_t* values, std::size_t count) {
    const auto [low, high] = std::minmax_element(values, values + count);
    const auto range = static_cast<std::uint64_t>(std::int64_t{*high} - *low + 1);
    const int bits = std::bit_width(range);
    return {values, count, *low,
            range,  bits,  static_cast<std::int64_t>(static_cast<std::uint64_t>(bits) * count / 8)};
}

// Used symbols by falling rate; empty, with a line in the log, without memory.
std::vector<SymbolRate> ratesOf(const Symbols& s) {
    std::vector<std::uint32_t> rates;
    try {
        rates.assign(s.range, 0);
    } catch (const std::exception&) {
        logLine("Encode newZeroedArray rates failed!\n");
        return {};
    }
    for (std::size_t i = 0; i < s.count; ++i)
        ++rates[s.at(i)];
    std::vector<SymbolRate> table;
    try {
        for (std::uint64_t v = 0; v < s.range; ++v)
            if (rates[v])
                table.push_back({static_cast<std::uint32_t>(v), rates[v]});
    } catch (const std::bad_alloc&) {
        logLine("Encode newArray srt failed!\n");
        return {};
    }
    std::stable_sort(table.begin(), table.end(),
                     [](const SymbolRate& a, const SymbolRate& b) { return a.rate > b.rate; });
    return table;
}

void writeTable(const Symbols& s, const std::vector<SymbolRate>& table, BitWriter& out) {
    const int rateBits = std::bit_width(table.front().rate);
    out.put(0, 8);
    out.put(table.size(), 32);
    out.put(static_cast<std::uint32_t>(s.min), 32);
    out.put(static_cast<std::uint64_t>(rateBits), 6);
    out.put(static_cast<std::uint64_t>(s.valueBits), 6);
    std::uint32_t rate = 0;
    bool first = true;
    for (const SymbolRate& entry : table) {
        const bool newRate = first || entry.rate != rate;
        out.put(newRate, 1);
        if (newRate)
            out.put(entry.rate, rateBits);
        out.put(entry.value, s.valueBits);
        rate = entry.rate;
        first = false;
    }
}

// False when the table form isn't to be used; `out` is then as it was.
bool writeTableForm(const Symbols& s, bool always, std::vector<std::uint8_t>& out) {
    const std::vector<SymbolRate> table = ratesOf(s);
    if (table.empty())
        return false;
    std::vector<PrefixCode> codes;
    try {
        codes.assign(s.range, {});
    } catch (const std::exception&) {
        logLine("Encode newZeroedArray val2code failed!\n");
        return false;
    }
    std::vector<CodeNode> tree;
    if (!buildCodeTree(table, s.count, tree, &codes)) {
        logLine("Encode newArray tree failed!\n");
        return false;
    }
    std::int64_t codeBits = 0;
    for (const SymbolRate& entry : table)
        codeBits += std::int64_t{codes[entry.value].length} * entry.rate;
    if (!always && s.rawBytes < static_cast<std::int64_t>(table.size() / 4) + 10 + codeBits / 8)
        return false;
    const std::size_t start = out.size();
    const std::size_t limit = always ? SIZE_MAX : start + static_cast<std::size_t>(s.rawBytes) + 8;
    BitWriter writer(out);
    writeTable(s, table, writer);
    for (std::size_t i = 0; i < s.count && out.size() <= limit; ++i)
        writer.put(codes[s.at(i)].code, codes[s.at(i)].length);
    writer.finish();
    if (out.size() <= limit)
        return true;
    out.resize(start);
    return false;
}

}  // namespace

bool encodeSymbols(const std::int32_t* values, std::size_t count, SymbolForm form,
                   std::vector<std::uint8_t>& out) {
    if (count == 0)
        return true;
    const Symbols s = scan(values, count);
    // A wider range would need more memory for its rates than any zone is worth.
    const bool tableFits = s.range <= (std::uint64_t{1} << 26);
    if (form != SymbolForm::Direct && tableFits &&
        writeTableForm(s, form == SymbolForm::Table, out))
        return true;
    BitWriter writer(out);
    writer.put(static_cast<std::uint64_t>(s.valueBits), 8);
    writer.put(static_cast<std::uint32_t>(s.min), 32);
    for (std::size_t i = 0; i < count; ++i)
        writer.put(s.at(i), s.valueBits);
    writer.finish();
    return true;
}

}  // namespace NMBUtils
