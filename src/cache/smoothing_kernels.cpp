// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Many cells of a row side by side, each sum in the order of its table, so that every instruction
// set gives the same bits. This source is compiled once for each instruction set.
#include "cache/smoothing_kernels.h"

#include <cmath>
#include <cstring>
#include <utility>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "cache/smoothing_kernels.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace nimbra::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

/// sum + weight * voxel. Factors of 1 and the sign cost no rounding, and a product with 0 is left
/// out: that only shows where a voxel isn't finite.
template <const Kernel27& Kernel, std::size_t I, class D>
HWY_INLINE hn::Vec<D> addTap(D d, const RowsAround& rows, std::int64_t x, hn::Vec<D> sum) {
    constexpr float kWeight = Kernel[I];
    constexpr float kSize = kWeight < 0 ? -kWeight : kWeight;
    if constexpr (kWeight == 0) {
        return sum;
    } else {
        auto term = hn::LoadU(d, rows.row[I / 3] + x + static_cast<int>(I % 3) - 1);
        if constexpr (kSize != 1)
            term = hn::Mul(hn::Set(d, kSize), term);
        return kWeight > 0 ? hn::Add(sum, term) : hn::Sub(sum, term);
    }
}

template <const Kernel27& Kernel, class D, std::size_t... I>
HWY_INLINE hn::Vec<D> convolve(D d, const RowsAround& rows, std::int64_t x,
                               std::index_sequence<I...>) {
    hn::Vec<D> sum = hn::Zero(d);
    ((sum = addTap<Kernel, I>(d, rows, x, sum)), ...);
    return sum;
}

template <const Kernel27& Kernel, class D>
HWY_INLINE hn::Vec<D> convolve(D d, const RowsAround& rows, std::int64_t x) {
    return convolve<Kernel>(d, rows, x, std::make_index_sequence<27>());
}

/// All 27 products, those with 0 too: a neighbour that isn't finite must not be missed.
HWY_INLINE float plainSum(const Kernel27& kernel, const RowsAround& rows, std::int64_t x) {
    float sum = 0;
    for (int i = 0; i < 27; ++i)
        sum += kernel[i] * rows.row[i / 3][x + i % 3 - 1];
    return sum;
}

HWY_INLINE float plainGradient(const RowsAround& rows, std::int64_t x) {
    const float gx = plainSum(kSobelX, rows, x);
    const float gy = plainSum(kSobelY, rows, x);
    const float gz = plainSum(kSobelZ, rows, x);
    return std::sqrt(gx * gx + gy * gy + gz * gz) * kGradientScale;
}

template <class D>
HWY_INLINE void gradientsAt(D d, const RowsAround& rows, std::int64_t x, float* gradient) {
    const auto gx = convolve<kSobelX>(d, rows, x);
    const auto gy = convolve<kSobelY>(d, rows, x);
    const auto gz = convolve<kSobelZ>(d, rows, x);
    const auto square = hn::Add(hn::Add(hn::Mul(gx, gx), hn::Mul(gy, gy)), hn::Mul(gz, gz));
    const auto length = hn::Mul(hn::Sqrt(square), hn::Set(d, kGradientScale));
    hn::StoreU(length, d, gradient + x);

    const auto center = hn::LoadU(d, rows.row[4] + x);
    const auto zero = hn::Zero(d);
    if (hn::AllTrue(d, hn::Eq(hn::Mul(hn::Add(length, center), zero), zero))) [[likely]]
        return;
    for (std::size_t i = 0; i < hn::Lanes(d); ++i)
        gradient[x + static_cast<std::int64_t>(i)] =
            plainGradient(rows, x + static_cast<std::int64_t>(i));
}

template <class D>
HWY_INLINE auto touchedAt(D d, const float* gradient, float threshold) {
    return hn::Not(hn::Lt(hn::LoadU(d, gradient), hn::Set(d, threshold)));
}

template <class D>
HWY_INLINE std::size_t meansAt(D d, const RowsAround& rows, std::int64_t x, const float* gradient,
                               float threshold, float* results) {
    const auto touched = touchedAt(d, gradient + x, threshold);
    if (hn::AllFalse(d, touched))
        return 0;
    auto value = hn::Mul(convolve<kMeanKernel>(d, rows, x), hn::Set(d, kMeanScale));
    constexpr float kLeastBlended = 0.0001f;
    if (threshold >= kLeastBlended) {
        const auto one = hn::Set(d, 1.0f), zero = hn::Zero(d), t = hn::Set(d, threshold);
        auto a = hn::Div(hn::Sub(hn::LoadU(d, gradient + x), t), t);
        a = hn::IfThenElse(hn::Lt(a, zero), zero, hn::IfThenElse(hn::Gt(a, one), one, a));
        const auto old = hn::LoadU(d, rows.row[4] + x);
        value = hn::Add(hn::Mul(hn::Sub(one, a), old), hn::Mul(a, value));
    }
    const std::size_t count = hn::CountTrue(d, touched);
    if (count == hn::Lanes(d)) {
        hn::StoreU(value, d, results);
    } else {
        // What lies behind the results may be another thread's: whole vectors go through a buffer.
        HWY_ALIGN float packed[hn::MaxLanes(D())];
        hn::Store(hn::Compress(value, touched), d, packed);
        std::memcpy(results, packed, count * sizeof(float));
    }
    return count;
}

/// Calls f(tag, x) for all cells of the inside: whole vectors first, then cell by cell.
template <class F>
HWY_INLINE void forInnerCells(std::int64_t nx, const F& f) {
    const hn::ScalableTag<float> wide;
    const hn::CappedTag<float, 1> single;
    const auto lanes = static_cast<std::int64_t>(hn::Lanes(wide));
    std::int64_t x = 1;
    for (; x + lanes < nx; x += lanes)
        f(wide, x);
    for (; x + 1 < nx; ++x)
        f(single, x);
}

void gradients(const RowsAround& rows, std::int64_t nx, float* gradient) {
    forInnerCells(nx, [&](auto d, std::int64_t x) HWY_ATTR { gradientsAt(d, rows, x, gradient); });
}

std::size_t means(const RowsAround& rows, std::int64_t nx, const float* gradient, float threshold,
                  float* results) {
    std::size_t count = 0;
    forInnerCells(nx, [&](auto d, std::int64_t x) HWY_ATTR {
        count += meansAt(d, rows, x, gradient, threshold, results + count);
    });
    return count;
}

std::int64_t count(const float* gradient, std::int64_t nx, float threshold) {
    std::size_t sum = 0;
    forInnerCells(nx, [&](auto d, std::int64_t x) HWY_ATTR {
        sum += hn::CountTrue(d, touchedAt(d, gradient + x, threshold));
    });
    return static_cast<std::int64_t>(sum);
}

}  // namespace nimbra::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace nimbra {

HWY_EXPORT(gradients);
HWY_EXPORT(means);
HWY_EXPORT(count);

void gradientOfRow(const RowsAround& rows, std::int64_t nx, float* gradient) {
    HWY_DYNAMIC_DISPATCH(gradients)(rows, nx, gradient);
}

std::size_t meansOfRow(const RowsAround& rows, std::int64_t nx, const float* gradient,
                       float threshold, float* results) {
    return HWY_DYNAMIC_DISPATCH(means)(rows, nx, gradient, threshold, results);
}

std::int64_t countTouched(const float* gradient, std::int64_t nx, float threshold) {
    return HWY_DYNAMIC_DISPATCH(count)(gradient, nx, threshold);
}

}  // namespace nimbra
#endif
