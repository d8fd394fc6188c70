// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Filters of arrays in frequency space: a cosine transform along each axis, a factor for each
// frequency, and the transform back.
#pragma once

#include <cstdint>

#include "foundation/array.h"
#include "foundation/parallel.h"

namespace NMBUtils {

/// An array of N dimensions, each a power of two, the first one running fastest.
template <int N>
class SpectrumArray {
public:
    /// Makes room for at least `wanted` entries on each axis, all zero: an axis is extended to the
    /// next power of two. False without memory, or when the array would not fit into one.
    bool resize(const int wanted[N]);

    float* data() { return values_.data; }
    const float* data() const { return values_.data; }
    std::int64_t count() const { return values_.size; }

    int size[N] = {};
    std::int64_t stride[N] = {};  // between neighbours on an axis
    int levels[N] = {};           // size = 2^levels

private:
    NmbArray<float, long long, 1> values_;
};

/// Transforms the lines of an array along one axis. A line is mirrored around its end, which makes
/// the real part of its Fourier transform a cosine transform:
///
///   X_k = x_0 + 2 * sum over j from 1 to size - 1 of x_j cos(pi j k / size) + (-1)^k x_(size - 1)
///
/// Applied twice it gives 2 * size times the line, but for what the line holds at the highest
/// frequency, which its real part has no place for. An axis of one entry stays as it is.
template <int N>
class CosSpectrum : public NmbParallel {
public:
    explicit CosSpectrum(SpectrumArray<N>& array, TessUtils::ThreadManager* manager = nullptr)
        : NmbParallel(manager), array_(array) {}

    /// `direction` 1 or -1: the sign of the angle. False when it was aborted or had no memory.
    bool transform(int axis, int direction, TessUtils::ProgressCallback* callback = nullptr);

    /// The axis stands in the low 16 bits of the job's argument, the direction in the high ones.
    void Run(Job* job) override;
    const char* GetName() const override { return "CosSpectrum"; }

private:
    SpectrumArray<N>& array_;
};

/// Multiplies each frequency by a factor. Derived classes say which.
template <int N>
class Spectrum : public NmbParallel {
public:
    explicit Spectrum(TessUtils::ThreadManager* manager = nullptr)
        : NmbParallel(manager), manager_(manager) {}

    /// Filters the array in place. False when it was aborted or had no memory: the array is then
    /// left half way.
    bool filter(TessUtils::ProgressCallback* callback = nullptr);

    void Run(Job* job) override;
    const char* GetName() const override { return "Spectrum"; }

    SpectrumArray<N> array;

protected:
    /// The factor for a frequency in cycles per entry, 0 to 0.5 on each axis. Called by all jobs.
    virtual float response(const float frequency[N]) const = 0;

private:
    bool transformAll(int direction, TessUtils::ProgressCallback* callback);

    TessUtils::ThreadManager* manager_;
};

extern template class SpectrumArray<1>;
extern template class SpectrumArray<3>;
extern template class CosSpectrum<1>;
extern template class CosSpectrum<3>;
extern template class Spectrum<1>;
extern template class Spectrum<3>;

}  // namespace NMBUtils
