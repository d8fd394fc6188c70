// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Decoding of one zone of a compressed array.
#pragma once

#include "cache/sg_compressor.h"

namespace NMBUtils {

/// Decodes the zone into its part of the output, `dimensions` being 1 or 3. `work` grows to the
/// zone's element count. 0 on failure; `dst` is written only by a zone that succeeds.
int decodeZone(Zone& zone, int dimensions, NmbArray<int, long long>& work);

/// Undoes `order` passes of differencing along a sequence.
void undoDifferences(std::uint32_t* q, std::size_t count, int order);
/// The same along x, y and z of a box, x fastest.
void undoDifferences(std::uint32_t* q, const std::size_t size[3], int order);

}  // namespace NMBUtils
