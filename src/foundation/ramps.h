// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Curves and colour gradients as a user draws them. Their evaluation is slow: shading tables bake
// them before a frame.
#pragma once

#include "foundation/array.h"
#include "foundation/nmb_spline.h"
#include "tessra/texture.h"

namespace NMBUtils {

/// The kind of a curve's point. Handles stand as ordinary points beside the corner they shape:
/// an out-handle behind its corner, an in-handle before it.
enum class MultiCurvePointType : int {
    Linear = 1,
    Smooth = 3,  // on a natural cubic through all smooth points
    Corner = 4,
    LogCorner = 5,  // a corner drawn on a logarithmic scale; evaluated as a corner
    InHandle = 6,
    OutHandle = 7,
};

/// `kind` of the curve that gives opacity: it stays at its end values outside of its points.
inline constexpr int kOpacityCurve = 2;
/// `type` of a gradient whose colours run smoothly through the keys.
inline constexpr int kSmoothGradient = 7;

/// A curve, y over x.
class IRenderDiagramSampler {
public:
    virtual ~IRenderDiagramSampler() = default;
    virtual float eval(float x, int kind) const = 0;
};

/// A curve of linear, smooth and Bezier points, in any mixture.
class RenderDiagramSamplerStandAlone : public IRenderDiagramSampler {
public:
    RenderDiagramSamplerStandAlone();

    /// Replaces all points. x should rise from point to point; a point of an unknown type counts as
    /// linear. False without memory: the curve is then empty.
    bool setPoints(const float* pointXs, const float* pointYs,
                   const MultiCurvePointType* pointTypes, int pointCount);
    /// The value at x; 0 without points. Between two points that are not both corners each gives
    /// the answer of its own kind of curve, and the two are mixed by their distance. Linear points
    /// at the ends go on with the curve's slope there, unless `evalKind` is kOpacityCurve.
    float eval(float x, int evalKind) const override;

    double time = 0;  // of the host's curve
    int kind = 0;
    int channel = 0;  // id of the grid channel that the curve is based on
    int count = 0;
    NmbArray<MultiCurvePointType, int, 0> types;
    NmbArray<float, int, 0> xs, ys;
    float yMin, yMax, xMin, xMax;
    /// Stands in for all of the above when set.
    const TessUtils::FloatRemapInterface* host = nullptr;

private:
    /// Where the curve is cut for a value of x: the nearest points on either side that are not
    /// handles, -1 where there is none.
    struct Anchors {
        int left, right;
    };
    void resetBounds();
    bool buildSearch();
    bool buildCurves();
    Anchors anchorsAround(float x) const;
    float linearAt(float x) const;
    float smoothAt(float x) const;
    float cornersAt(int left, int right, float x) const;
    float cornerBeside(int corner, int other, float x) const;
    float cornerAlone(int corner, int inward, float x) const;
    float anchorAnswer(int anchor, int other, int inward, float x) const;
    bool isHandle(int i) const;
    bool isCorner(int i) const;

    NmbArray<float, int, 0> leastFrom;     // the least x of point i and all behind it
    NmbArray<int, int, 0> before, behind;  // the last anchor up to point i, the first from it on
    NmbArray<float, int, 0> linearXs, linearYs;
    int linearCount = 0;
    NmbSpline smoothXs, smoothYs;
};

/// A colour gradient over a number.
class IRenderGradientSampler {
public:
    virtual ~IRenderGradientSampler() = default;
    virtual TessUtils::Color eval(float x) const = 0;
};

class RenderGradientSamplerStandAlone : public IRenderGradientSampler {
public:
    RenderGradientSamplerStandAlone();

    /// Replaces all keys; they may come in any order. False without memory: the gradient is then
    /// empty, which is black.
    bool setKeys(const float* keyPositions, const TessUtils::Color* keyColors, int keyCount);
    /// The colour at x, each channel in [0, 1]; that of the nearest key outside of the keys.
    TessUtils::Color eval(float x) const override;

    NmbSpline positions, red, green, blue;  // over the number of the key
    int type = 1;
    double time = 0;  // of the host's gradient
    /// Stands in for all of the above when set.
    const TessUtils::ColorRemapInterface* host = nullptr;

private:
    TessUtils::Color colorAt(float parameter) const;
    TessUtils::Color betweenKeys(float x) const;
};

/// Makes samplers from the lists of a parameter table.
class KolRamps {
public:
    /// `interpolations` holds for each point how the curve leaves it: 0 stays at the value up to
    /// the next point, 1 linear, 2 and 3 smooth, 4 and 5 Bezier corner, 6 and 7 in- and out-handle.
    /// Points without an entry are linear. Lists of different lengths count up to the shorter.
    static bool makeCurve(RenderDiagramSamplerStandAlone& curve, const float* positions,
                          int positionCount, const float* values, int valueCount,
                          const int* interpolations, int interpolationCount);
    static bool makeGradient(RenderGradientSamplerStandAlone& gradient, const float* positions,
                             int positionCount, const TessUtils::Color* colors, int colorCount);
};

}  // namespace NMBUtils
