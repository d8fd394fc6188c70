// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "foundation/spectrum.h"

#include <cmath>
#include <complex>
#include <limits>
#include <utility>

namespace NMBUtils {
namespace {

using Complex = std::complex<float>;

// The constant is a little off on purpose: it belongs to the noise that scenes were tuned with.
constexpr float kPi = 3.1415925f;

/// Moves entry i to the place whose bits are those of i in reverse.
void reverseBits(Complex* values, int levels) {
    const std::uint32_t count = 1u << levels;
    for (std::uint32_t i = 0, reversed = 0; i < count; ++i) {
        if (i < reversed)
            std::swap(values[i], values[reversed]);
        std::uint32_t carry = count >> 1;
        for (; carry & reversed; carry >>= 1)
            reversed ^= carry;
        reversed |= carry;
    }
}

/// The factors of the stage that joins halves of h entries stand at h to 2 h - 1.
void fillTurns(Complex* turns, int count, float direction) {
    for (int half = 1; half < count; half *= 2) {
        const float angle = direction * kPi / static_cast<float>(half);
        for (int k = 0; k < half; ++k) {
            const float a = angle * static_cast<float>(k);
            turns[half + k] = {std::cos(a), std::sin(a)};
        }
    }
}

/// Radix-2 transform in place of 2^levels entries (J. Cooley, J. Tukey, 1965).
void fourier(Complex* values, int levels, const Complex* turns) {
    reverseBits(values, levels);
    const int count = 1 << levels;
    for (int half = 1; half < count; half *= 2) {
        for (int i = 0; i < count; i += 2 * half) {
            for (int k = i; k < i + half; ++k) {
                const Complex a = values[k], b = values[k + half], t = turns[half + k - i];
                const Complex odd(b.real() * t.real() - b.imag() * t.imag(),
                                  b.real() * t.imag() + b.imag() * t.real());
                values[k] = a + odd;
                values[k + half] = a - odd;
            }
        }
    }
}

/// The transform of one line of 2^levels entries; `buffer` holds twice as many.
void transformLine(float* line, std::int64_t stride, int levels, const Complex* turns,
                   Complex* buffer) {
    const int size = 1 << levels;
    for (int i = 0; i < size; ++i)
        buffer[i] = line[i * stride];
    buffer[size] = buffer[size - 1];
    for (int i = 1; i < size; ++i)
        buffer[size + i] = buffer[size - i];
    fourier(buffer, levels + 1, turns);
    for (int i = 0; i < size; ++i)
        line[i * stride] = buffer[i].real();
}

}  // namespace

template <int N>
bool SpectrumArray<N>::resize(const int wanted[N]) {
    // Halves the largest index, so that a line's mirror can be counted by an int as well.
    constexpr int kMostLevels = 29;
    long long total = 1;
    for (int axis = 0; axis < N; ++axis) {
        levels[axis] = 0;
        while (levels[axis] < kMostLevels && (1 << levels[axis]) < wanted[axis])
            ++levels[axis];
        size[axis] = 1 << levels[axis];
        stride[axis] = total;
        if (size[axis] < wanted[axis] || total > std::numeric_limits<long long>::max() / size[axis])
            return false;
        total *= size[axis];
    }
    const float zero = 0;
    values_.SetSize(0);
    return values_.SetSize(total, &zero, true) != 0;
}

template <int N>
bool CosSpectrum<N>::transform(int axis, int direction, TessUtils::ProgressCallback* callback) {
    if (array_.size[axis] < 2)
        return true;
    SplitRange(array_.count() / array_.size[axis]);
    Start(static_cast<std::int32_t>(static_cast<std::uint32_t>(direction) << 16 |
                                    static_cast<std::uint32_t>(axis)),
          callback);
    return !IsAborted();
}

template <int N>
void CosSpectrum<N>::Run(Job* job) {
    const int axis = job->argument & 0xFFFF;
    const float direction = static_cast<float>(job->argument >> 16);
    const int size = array_.size[axis];
    const std::int64_t stride = array_.stride[axis];
    NmbArray<Complex, int, 0> buffer, turns;
    if (!buffer.SetSize(2 * size + 2, nullptr, true) || !turns.SetSize(2 * size, nullptr, true)) {
        aborted = 1;
        return;
    }
    fillTurns(turns.data, 2 * size, direction);
    for (std::int64_t i = job->rangeStart; i < job->rangeEnd && !IsAborted(); ++i) {
        // Line i: the axes below this one run inside of a stride, those above in whole lines.
        const std::int64_t start = i / stride * stride * size + i % stride;
        transformLine(array_.data() + start, stride, array_.levels[axis], turns.data, buffer.data);
    }
}

template <int N>
bool Spectrum<N>::transformAll(int direction, TessUtils::ProgressCallback* callback) {
    CosSpectrum<N> transform(array, manager_);
    for (int axis = 0; axis < N; ++axis)
        if (!transform.transform(axis, direction, callback))
            return false;
    return true;
}

template <int N>
bool Spectrum<N>::filter(TessUtils::ProgressCallback* callback) {
    if (array.count() == 0)
        return true;
    if (!transformAll(1, callback))
        return false;
    SplitRange(array.count() / array.size[0]);
    Start(0, callback);
    return !IsAborted() && transformAll(-1, callback);
}

template <int N>
void Spectrum<N>::Run(Job* job) {
    // Both transforms together scale each axis of more than one entry by twice its size.
    float scale = 1;
    for (int axis = 0; axis < N; ++axis)
        if (array.size[axis] > 1)
            scale /= 2.0f * static_cast<float>(array.size[axis]);
    for (std::int64_t line = job->rangeStart; line < job->rangeEnd && !IsAborted(); ++line) {
        float frequency[N] = {};
        std::int64_t rest = line;
        for (int axis = 1; axis < N; ++axis) {
            frequency[axis] = static_cast<float>(rest % array.size[axis]) * 0.5f /
                              static_cast<float>(array.size[axis]);
            rest /= array.size[axis];
        }
        float* values = array.data() + line * array.size[0];
        for (int i = 0; i < array.size[0]; ++i) {
            frequency[0] = static_cast<float>(i) * 0.5f / static_cast<float>(array.size[0]);
            values[i] *= response(frequency) * scale;
        }
    }
}

template class SpectrumArray<1>;
template class SpectrumArray<3>;
template class CosSpectrum<1>;
template class CosSpectrum<3>;
template class Spectrum<1>;
template class Spectrum<3>;

}  // namespace NMBUtils
