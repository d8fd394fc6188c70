// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Reads channels at positions between the cells: nearest cell, trilinear, and a smooth quadratic
// B-spline, each with periodic or clamped axes. A caller picks the kernel once and calls it for
// every position.
#pragma once

#include <xmmintrin.h>

#include <cstdint>

#include "cache/grid_channel.h"

namespace nimbra {

enum SamplerType : int { kBoxSampler = 0, kLinearSampler = 1, kSphericalSampler = 2 };

/// Periodic axes, as added into the index of a kernel.
enum WrapBits : int { kWrapX = 1, kWrapY = 2, kWrapZ = 4 };

/// Samples entries of `proxies` at `position`, in grid coordinates: the centre of cell i lies at i.
/// Entry i is wanted when bit i of `scalarMask | vectorMask` is set (bit i mod 32 from the 32nd
/// entry on); out[i] is then its value. Entries that aren't wanted or aren't loaded are left as
/// they are. The grid's size is that of the first loaded entry; an entry whose rows or layers
/// differ from it, or that has fewer, is left as it is. Beyond the border an axis answers with the
/// border's value, or goes on periodically. Any position is allowed, not finite ones read a cell of
/// the grid too. Safe on any number of threads.
using SampleKernel = void (*)(const GridChannelProxy<float>* proxies, const float position[3],
                              float* out, int count, std::uint32_t scalarMask,
                              std::uint32_t vectorMask);

/// All scalar kernels, index = SamplerType * 8 + WrapBits.
extern const SampleKernel kSampleKernels[24];

/// Samples one channel at `count` positions (the fourth number of each plays no part), to the same
/// values as a scalar kernel; `out` is left as it is when the channel isn't loaded.
using RunKernel = void (*)(const GridChannelProxy<float>& proxy, const float positions[][4],
                           int count, float* out);

/// The scalar kernels for runs of positions, index = SamplerType * 8 + WrapBits.
extern const RunKernel kRunKernels[24];

/// Samples one channel at `count` of four positions (lanes 0 to 2 are x, y, z), to the same values
/// as a scalar kernel in as many lanes; what the others hold is left open. A channel that isn't
/// loaded gives 0.
using FourKernel = __m128 (*)(const GridChannelProxy<float>& proxy, int count, __m128 a, __m128 b,
                              __m128 c, __m128 d);

/// The scalar kernels for four positions, index = SamplerType * 8 + WrapBits.
extern const FourKernel kFourKernels[24];

/// Samples three channels at one position, to the same values as a scalar kernel for each in the
/// lanes 0 to 2; a channel that isn't loaded gives 0.
using ThreeKernel = __m128 (*)(const GridChannelProxy<float>* proxies, __m128 position);

/// The scalar kernels for three channels, index = SamplerType * 8 + WrapBits.
extern const ThreeKernel kThreeKernels[24];

/// Kernels of a vector, index = WrapBits: the spherical filter over three entries, which are the
/// first three set bits of `vectorMask` (`scalarMask` plays no part). All of out[0..2] is written;
/// a component that isn't there is 0.
extern const SampleKernel kVectorKernels[8];

}  // namespace nimbra
