// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Decoding of one zone of a compressed array.
#pragma once

#include "cache/sg_compressor.h"

namespace NMBUtils {

/// Decodes the zone into its part of the output, `dimensions` being 1 or 3. `work` grows to the
/// element count of a box; a sequence needs little. 0 on failure; then `dst` may be written in
/// parts.
int decodeZone(Zone& zone, int dimensions, NmbArray<int, long long>& work);

}  // namespace NMBUtils
