// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The writing side of compressed float arrays. The library itself writes no caches; tools and tests
// do.
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <new>

#include "cache/bit_coder.h"
#include "cache/sg_compressor.h"
#include "foundation/log.h"

namespace NMBUtils {
namespace {

constexpr float kOwnMin = 3.4028235e38f, kOwnMax = -3.4028235e38f;  // "take the data's range"
constexpr int kMinRun = 4;

template <class T>
void put(std::vector<std::uint8_t>& out, const T& value) {
    const auto* p = reinterpret_cast<const std::uint8_t*>(&value);
    out.insert(out.end(), p, p + sizeof(T));
}

struct Range {
    float min = 0, max = 0;
};

// Of all values; a value that isn't finite ends the scan and sets both to 0.
Range rangeOf(const float* values, std::size_t count) {
    if (count == 0)
        return {};
    Range r{values[0], values[0]};
    for (std::size_t i = 0; i < count; ++i) {
        if ((std::bit_cast<std::uint32_t>(values[i]) & 0x7F800000u) == 0x7F800000u)
            return {};
        r.min = std::min(r.min, values[i]);
        r.max = std::max(r.max, values[i]);
    }
    return r;
}

// False for a step so fine that the integer doesn't fit.
bool quantise(float x, float minValue, float scale, std::int32_t& q) {
    const float steps = std::round((x - minValue) * scale);
    constexpr float kMost = 2147483648.0f;
    if (!(steps >= -kMost && steps < kMost))
        return false;
    q = static_cast<std::int32_t>(steps);
    return true;
}

void difference(std::vector<std::int32_t>& q, int order) {
    for (int k = 0; k < order; ++k)
        for (std::size_t i = q.size(); i-- > static_cast<std::size_t>(k) + 1;)
            q[i] = static_cast<std::int32_t>(static_cast<std::uint32_t>(q[i]) -
                                             static_cast<std::uint32_t>(q[i - 1]));
}

// The fourth equal value in a row turns the run into one negative number that counts it.
void foldRuns(std::vector<std::int32_t>& q) {
    std::size_t out = 0;
    int same = 0;
    std::int32_t last = 0;
    bool any = false;
    for (const std::int32_t v : q) {
        if (any && v == last) {
            ++same;
            if (same < kMinRun) {
                q[out++] = v;
            } else if (same == kMinRun) {
                out -= kMinRun - 1;
                q[out++] = -kMinRun;
            } else {
                --q[out - 1];
            }
            continue;
        }
        same = 0;
        q[out++] = last = v;
        any = true;
    }
    q.resize(out);
}

void putRaw(std::vector<std::uint8_t>& out, const float* values, std::size_t count) {
    out.push_back(0);
    put(out, static_cast<std::int32_t>(count));
    const auto* p = reinterpret_cast<const std::uint8_t*>(values);
    out.insert(out.end(), p, p + count * sizeof(float));
}

// Lets the smallest value be 0; false when the largest one then looks like a run.
bool subtractBase(std::vector<std::int32_t>& q, std::int32_t& base) {
    const auto [low, high] = std::minmax_element(q.begin(), q.end());
    base = *low;
    if (std::int64_t{*high} - base > INT32_MAX)
        return false;
    for (std::int32_t& v : q)
        v -= base;
    return true;
}

bool encodeQuantised(const float* values, std::size_t count, const ZoneEncoding& e, Range range,
                     std::vector<std::uint8_t>& out) try {
    const float scale =
        e.bits > 0 ? static_cast<float>(1 << e.bits) / (range.max - range.min) : 1.0f / e.step;
    const int order = std::clamp(e.order, 0, 255);
    std::vector<std::int32_t> q(count);
    std::int32_t base = 0;
    bool fits = std::isnormal(scale) && std::isnormal(1.0f / scale);
    for (std::size_t i = 0; fits && i < count; ++i)
        fits = quantise(values[i], range.min, scale, q[i]);
    if (fits)
        difference(q, order);
    if (!fits || !subtractBase(q, base)) {
        putRaw(out, values, count);
        return true;
    }
    out.push_back(2);
    put(out, static_cast<std::int32_t>(count));
    put(out, scale);
    put(out, range.min);
    put(out, base);
    put(out, static_cast<std::uint8_t>(order));
    foldRuns(q);
    return encodeSymbols(q.data(), q.size(), e.form, out);
} catch (const std::bad_alloc&) {
    logLine("Can't allocate %d MB for compression", static_cast<int>(count / 0x100000));
    return false;
}

}  // namespace

bool encodeZone(const float* values, std::size_t count, const ZoneEncoding& e,
                std::vector<std::uint8_t>& out) {
    put(out, std::uint16_t{0xFC01});
    Range range = rangeOf(values, count);
    if (std::fabs(range.min - range.max) < 1e-20f) {
        out.push_back(1);
        put(out, static_cast<std::int32_t>(count));
        put(out, range.min);
        return true;
    }
    if (e.bits >= 20) {
        putRaw(out, values, count);
        return true;
    }
    if (e.minValue != kOwnMin)
        range.min = e.minValue;
    if (e.maxValue != kOwnMax)
        range.max = e.maxValue;
    return encodeQuantised(values, count, e, range, out);
}

}  // namespace NMBUtils
