// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The shading tables of one container, baked once per frame from its curves and gradients.
#pragma once

#include <memory>

namespace nimbra {

/// Entries of every shading table. Entry i stands for the normalised value i / 8000.
inline constexpr int kLutEntries = 8000;

/// The entry for a normalised value: rounded to the nearest, limited to the table. A NaN gives 0.
inline int lutIndex(float value) {
    const float scaled = value * 8000.0f + 0.5f;
    return scaled > 0.0f ? (scaled < 8000.0f ? static_cast<int>(scaled) : 7999) : 0;
}

/// What a view of a container knows about its grid without having a frame.
class NimbraContainerViewBase {
public:
    virtual ~NimbraContainerViewBase() = default;
    int gridSize[3] = {0, 0, 0};
};

/// Values of an input channel that the tables cover: from `start` on, `width` wide.
struct LutRange {
    float start = 0, width = 1;
};

/// Owns the tables; shaders borrow them. A table that was built once stays allocated and is
/// overwritten by the next build. Any may be absent.
class NimbraVolumeRenderLUTholder : public NimbraContainerViewBase {
public:
    std::unique_ptr<float[]> emission;     // kLutEntries x RGB
    std::unique_ptr<float[]> fireOpacity;  // kLutEntries, densities (<= 0) per world unit
    std::unique_ptr<float[]> diffuse;      // kLutEntries x RGB
    std::unique_ptr<float[]> opacity;      // kLutEntries, densities (<= 0) per world unit
    LutRange eRange, dRange, tRange;
};

}  // namespace nimbra
