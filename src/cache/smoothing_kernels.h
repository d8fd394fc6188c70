// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The sums over 3 x 3 x 3 cells that grid smoothing is made of, a row of cells at a time.
#pragma once

#include <cstddef>
#include <cstdint>

namespace nimbra {

/// Weights in the order z, then y, then x, each from -1 to +1 around the cell.
using Kernel27 = float[27];

/// Mean of a cell and its neighbours; the weights add up to 32. Product of 1 2 1 on each axis, / 2.
inline constexpr Kernel27 kMeanKernel = {0.5f, 1, 0.5f, 1, 2, 1, 0.5f, 1, 0.5f,  // z = -1
                                         1,    2, 1,    2, 4, 2, 1,    2, 1,     //
                                         0.5f, 1, 0.5f, 1, 2, 1, 0.5f, 1, 0.5f};
inline constexpr float kMeanScale = 0.03125f;

/// The 3D Sobel operator: -1 0 1 along the axis, 1 2 1 along the others.
inline constexpr Kernel27 kSobelX = {-1, 0, 1, -2, 0, 2, -1, 0, 1,  //
                                     -2, 0, 2, -4, 0, 4, -2, 0, 2,  //
                                     -1, 0, 1, -2, 0, 2, -1, 0, 1};
inline constexpr Kernel27 kSobelY = {-1, -2, -1, 0, 0, 0, 1, 2, 1,  //
                                     -2, -4, -2, 0, 0, 0, 2, 4, 2,  //
                                     -1, -2, -1, 0, 0, 0, 1, 2, 1};
inline constexpr Kernel27 kSobelZ = {-1, -2, -1, -2, -4, -2, -1, -2, -1,  //
                                     0,  0,  0,  0,  0,  0,  0,  0,  0,   //
                                     1,  2,  1,  2,  4,  2,  1,  2,  1};
/// 1 / (16 sqrt(3)): a step of 1 along the diagonal has length 1.
inline constexpr float kGradientScale = 0.03608439117670059f;

/// The nine rows around a row of cells, by z and then y; each begins at x = 0.
struct RowsAround {
    const float* row[9];

    /// `planes`: z - 1, z, z + 1, each from cell (0, 0) on; 1 <= y < ny - 1.
    RowsAround(const float* const planes[3], std::int64_t nx, std::int64_t y) {
        for (int r = 0; r < 9; ++r)
            row[r] = planes[r / 3] + (y + r % 3 - 1) * nx;
    }
};

/// gradient[x] := |Sobel gradient| * kGradientScale for 1 <= x < nx - 1.
void gradientOfRow(const RowsAround& rows, std::int64_t nx, float* gradient);

/// New values of the cells 1 <= x < nx - 1 whose gradient isn't below the threshold, packed into
/// `results`; answers how many they are. A cell moves to the mean of its surroundings, from not at
/// all at the threshold to wholly at twice the threshold; thresholds near 0 leave only the mean.
std::size_t meansOfRow(const RowsAround& rows, std::int64_t nx, const float* gradient,
                       float threshold, float* results);

/// Cells 1 <= x < nx - 1 whose gradient isn't below the threshold.
std::int64_t countTouched(const float* gradient, std::int64_t nx, float threshold);

}  // namespace nimbra
