// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The shading tables of one container, baked once per frame from its curves and gradients.
#pragma once

#include <memory>

#include "tessra/math.h"

namespace NMBUtils {
class IRenderDiagramSampler;
class IRenderGradientSampler;
}  // namespace NMBUtils

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

/// How the emission table turns a curve's and a gradient's values into light.
struct EmissionTableSettings {
    /// The curve and the gradient are evaluated at the normalised value itself; otherwise at the
    /// value over eRange, in units of the channel.
    bool rawIndex = false;
    int blackbodyMode = 0;  // id of the grid channel that fire is based on
    float blackbody = -1;   // share of black-body light, 0 to 1; -1: none
    float physMult = 1;
    float emult = 1;
    float tmultFireOpacity = 1;
    float fireOpacityScale = 1;  // density of an opacity per world unit
    int fireOpacityMode = 0;
    /// Luminance over 683 lm/W of a black body by whole kelvin, kPlanckEntries values; may be null
    /// without black-body light.
    const float* planckLuminance = nullptr;
};
inline constexpr int kPlanckEntries = 10000;

/// Owns the tables; shaders borrow them. A table that was built once stays allocated and is
/// overwritten by the next build. Any may be absent: a build without memory leaves its table out
/// and says nothing.
class NimbraVolumeRenderLUTholder : public NimbraContainerViewBase {
public:
    /// Fire colour, and with own opacity the fire's densities: `curve` gives the strength of the
    /// fire, `gradient` its colour.
    void buildEmissionTable(const NMBUtils::IRenderDiagramSampler& curve,
                            const NMBUtils::IRenderGradientSampler& gradient,
                            const EmissionTableSettings& settings);
    void buildDiffuseTable(const NMBUtils::IRenderGradientSampler& gradient, bool rawIndex);
    /// Densities ln(transparency) * scale of a curve of transparencies, or with `invert` of
    /// opacities. A transparency counts as at least 1e-6.
    void buildOpacityTable(const NMBUtils::IRenderDiagramSampler& curve, bool rawIndex, bool invert,
                           float scale);

    // Tables given entry by entry; beyond the list its last entry repeats, an empty list does
    // nothing. A list of transparencies (`invert` off) is taken as densities as it stands.
    void setEmissionList(const TessUtils::Color* list, int count, float multiplier);
    void setDiffuseList(const TessUtils::Color* list, int count);
    void setOpacityList(const float* list, int count, bool invert, float tmult, float densityScale);

    std::unique_ptr<float[]> emission;     // kLutEntries x RGB
    std::unique_ptr<float[]> fireOpacity;  // kLutEntries, densities (<= 0) per world unit
    std::unique_ptr<float[]> diffuse;      // kLutEntries x RGB
    std::unique_ptr<float[]> opacity;      // kLutEntries, densities (<= 0) per world unit
    LutRange eRange, dRange, tRange;
};

}  // namespace nimbra
