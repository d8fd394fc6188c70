// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "foundation/ramps.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <vector>

#include "foundation/bezier.h"

namespace NMBUtils {
namespace {

using TessUtils::Color;

float lineThrough(float x0, float y0, float x1, float y1, float x) {
    const float dx = x1 - x0;
    return dx != 0 ? y0 + (y1 - y0) * ((x - x0) / dx) : y0;
}

Color clampColor(const Color& c) {
    return {std::clamp(c.r, 0.0f, 1.0f), std::clamp(c.g, 0.0f, 1.0f), std::clamp(c.b, 0.0f, 1.0f)};
}

}  // namespace

RenderDiagramSamplerStandAlone::RenderDiagramSamplerStandAlone() {
    resetBounds();
}

void RenderDiagramSamplerStandAlone::resetBounds() {
    xMin = yMin = std::numeric_limits<float>::max();
    xMax = yMax = std::numeric_limits<float>::lowest();
}

bool RenderDiagramSamplerStandAlone::isHandle(int i) const {
    return types[i] == MultiCurvePointType::InHandle || types[i] == MultiCurvePointType::OutHandle;
}

bool RenderDiagramSamplerStandAlone::isCorner(int i) const {
    return types[i] == MultiCurvePointType::Corner || types[i] == MultiCurvePointType::LogCorner;
}

bool RenderDiagramSamplerStandAlone::setPoints(const float* pointXs, const float* pointYs,
                                               const MultiCurvePointType* pointTypes,
                                               int pointCount) {
    count = linearCount = 0;
    resetBounds();
    if (pointCount <= 0)
        return true;
    if (!types.SetSize(pointCount, nullptr, true) || !xs.SetSize(pointCount, nullptr, true) ||
        !ys.SetSize(pointCount, nullptr, true))
        return false;
    for (int i = 0; i < pointCount; ++i) {
        xs[i] = pointXs[i];
        ys[i] = pointYs[i];
        types[i] = pointTypes[i];
        xMin = std::min(xMin, xs[i]);
        xMax = std::max(xMax, xs[i]);
        yMin = std::min(yMin, ys[i]);
        yMax = std::max(yMax, ys[i]);
    }
    count = pointCount;
    if (buildSearch() && buildCurves())
        return true;
    count = 0;
    return false;
}

// What finds the anchors around a value without a walk over the points, also where handles reach
// past each other so that x doesn't rise throughout.
bool RenderDiagramSamplerStandAlone::buildSearch() {
    if (!leastFrom.SetSize(count, nullptr, true) || !before.SetSize(count, nullptr, true) ||
        !behind.SetSize(count, nullptr, true))
        return false;
    for (int i = 0, last = -1; i < count; ++i)
        before[i] = last = isHandle(i) ? last : i;
    for (int i = count - 1, first = -1; i >= 0; --i) {
        behind[i] = first = isHandle(i) ? first : i;
        leastFrom[i] = i + 1 < count ? std::min(xs[i], leastFrom[i + 1]) : xs[i];
    }
    return true;
}

bool RenderDiagramSamplerStandAlone::buildCurves() {
    const auto isSmooth = [this](int i) { return types[i] == MultiCurvePointType::Smooth; };
    NmbArray<float, int, 0> ofSmoothXs, ofSmoothYs;
    if (!linearXs.SetSize(count, nullptr, true) || !linearYs.SetSize(count, nullptr, true) ||
        !ofSmoothXs.SetSize(count, nullptr, true) || !ofSmoothYs.SetSize(count, nullptr, true))
        return false;
    int smoothCount = 0;
    for (int i = 0; i < count; ++i) {
        if (isSmooth(i)) {
            ofSmoothXs[smoothCount] = xs[i];
            ofSmoothYs[smoothCount++] = ys[i];
        } else if (!isHandle(i) && !isCorner(i)) {
            linearXs[linearCount] = xs[i];
            linearYs[linearCount++] = ys[i];
        }
    }
    return smoothXs.setValues(ofSmoothXs.data, smoothCount) &&
           smoothYs.setValues(ofSmoothYs.data, smoothCount);
}

RenderDiagramSamplerStandAlone::Anchors RenderDiagramSamplerStandAlone::anchorsAround(
    float x) const {
    // leastFrom never falls, and the last point below x is the last one with leastFrom below x.
    const float* least = leastFrom.data;
    const int i = static_cast<int>(std::lower_bound(least, least + count, x) - least) - 1;
    return {i >= 0 ? before[i] : -1, i + 1 < count ? behind[i + 1] : -1};
}

float RenderDiagramSamplerStandAlone::linearAt(float x) const {
    if (linearCount < 2)
        return linearCount == 1 ? linearYs[0] : 0;
    const float* first = linearXs.data;
    const int upper = static_cast<int>(std::lower_bound(first, first + linearCount, x) - first);
    const int i = std::clamp(upper - 1, 0, linearCount - 2);
    return lineThrough(linearXs[i], linearYs[i], linearXs[i + 1], linearYs[i + 1], x);
}

float RenderDiagramSamplerStandAlone::smoothAt(float x) const {
    return smoothYs.eval(smoothXs.solve(x));
}

// Between two corners: their own cubic, a missing handle lying on its corner. Without handles that
// is the straight line.
float RenderDiagramSamplerStandAlone::cornersAt(int left, int right, float x) const {
    const auto handle = [this](int corner, int at, MultiCurvePointType wanted) {
        const int i = at >= 0 && at < count && types[at] == wanted ? at : corner;
        return Bezier::Point{xs[i], ys[i]};
    };
    const Bezier::Point polygon[6] = {handle(left, left - 1, MultiCurvePointType::InHandle),
                                      {xs[left], ys[left]},
                                      handle(left, left + 1, MultiCurvePointType::OutHandle),
                                      handle(right, right - 1, MultiCurvePointType::InHandle),
                                      {xs[right], ys[right]},
                                      handle(right, right + 1, MultiCurvePointType::OutHandle)};
    return Bezier::eval(polygon, 6, x);
}

// Between a corner and a point of another kind: a cubic that only the corner's handle shapes.
float RenderDiagramSamplerStandAlone::cornerBeside(int corner, int other, float x) const {
    const bool rising = corner < other;
    const int next = rising ? corner + 1 : corner - 1;
    const auto wanted = rising ? MultiCurvePointType::OutHandle : MultiCurvePointType::InHandle;
    const int shaping = types[next] == wanted ? next : corner;
    const Bezier::Point c{xs[corner], ys[corner]}, h{xs[shaping], ys[shaping]},
        o{xs[other], ys[other]};
    const Bezier::Point forward[6] = {c, c, h, o, o, o}, backward[6] = {o, o, o, h, c, c};
    return Bezier::eval(rising ? forward : backward, 6, x);
}

// Beyond an outermost corner the line from its neighbour inside goes on.
float RenderDiagramSamplerStandAlone::cornerAlone(int corner, int inward, float x) const {
    const int neighbour = corner + inward;
    if (neighbour < 0 || neighbour >= count)
        return ys[corner];
    return lineThrough(xs[corner], ys[corner], xs[neighbour], ys[neighbour], x);
}

// `inward` points from the anchor to the curve's inside, for an anchor without a fellow.
float RenderDiagramSamplerStandAlone::anchorAnswer(int anchor, int other, int inward,
                                                   float x) const {
    if (types[anchor] == MultiCurvePointType::Smooth)
        return smoothAt(x);
    if (!isCorner(anchor))
        return linearAt(x);
    return other >= 0 ? cornerBeside(anchor, other, x) : cornerAlone(anchor, inward, x);
}

float RenderDiagramSamplerStandAlone::eval(float x, int evalKind) const {
    if (host)
        return host->evalFloat(x, time);
    if (count <= 0)
        return 0;
    if (evalKind == kOpacityCurve) {
        if (x <= xs[0])
            return ys[0];
        if (x >= xs[count - 1])
            return ys[count - 1];
    }
    const auto [left, right] = anchorsAround(x);
    if (left >= 0 && right >= 0 && isCorner(left) && isCorner(right))
        return cornersAt(left, right, x);
    const float ofLeft = left >= 0 ? anchorAnswer(left, right, -1, x) : 0;
    const float ofRight = right >= 0 ? anchorAnswer(right, left, 1, x) : 0;
    if (left < 0 || right < 0)
        return left >= 0 ? ofLeft : ofRight;
    const float width = xs[right] - xs[left];
    const float t = width > 0 ? (x - xs[left]) / width : 0;
    return (1 - t) * ofLeft + t * ofRight;
}

// Key positions may be extrapolated, colours stay at those of the outermost keys.
RenderGradientSamplerStandAlone::RenderGradientSamplerStandAlone()
    : positions(10), red(6), green(6), blue(6) {}

bool RenderGradientSamplerStandAlone::setKeys(const float* keyPositions, const Color* keyColors,
                                              int keyCount) {
    const int n = std::max(keyCount, 0);
    std::vector<int> order(n);
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(),
                     [&](int a, int b) { return keyPositions[a] < keyPositions[b]; });
    std::vector<float> values(n);
    const auto fill = [&](NmbSpline& spline, auto valueOf) {
        for (int i = 0; i < n; ++i)
            values[i] = valueOf(order[i]);
        return spline.setValues(values.data(), n);
    };
    const bool filled = fill(positions, [&](int i) { return keyPositions[i]; }) &&
                        fill(red, [&](int i) { return keyColors[i].r; }) &&
                        fill(green, [&](int i) { return keyColors[i].g; }) &&
                        fill(blue, [&](int i) { return keyColors[i].b; });
    if (!filled)
        positions.setValues(nullptr, 0);
    return filled;
}

Color RenderGradientSamplerStandAlone::colorAt(float parameter) const {
    return {red.eval(parameter), green.eval(parameter), blue.eval(parameter)};
}

Color RenderGradientSamplerStandAlone::betweenKeys(float x) const {
    constexpr float kSameKey = 1e-6f;
    const auto* keys = positions.knots.data;
    const int n = positions.count;
    // A key's colour is taken at the key's own number: where keys crowd, the spline of their
    // positions may pass a key's position more than once.
    const int above = static_cast<int>(
        std::lower_bound(keys, keys + n, x,
                         [](const NmbSpline::Knot& k, float value) { return k.d < value; }) -
        keys);
    const auto isAt = [&](int i) {
        const float distance = std::fabs(x - keys[i].d);
        return distance <= std::max(distance * 1e-6f, kSameKey);
    };
    if (above > 0 && isAt(above - 1))
        return colorAt(static_cast<float>(above - 1));
    if (above < n && isAt(above))
        return colorAt(static_cast<float>(above));

    if (above == 0 || above == n)
        return colorAt(static_cast<float>(above == 0 ? 0 : n - 1));
    const auto keyColor = [&](int i) {
        const Color c = colorAt(static_cast<float>(i));
        return Color{std::max(c.r, 0.0f), std::max(c.g, 0.0f), std::max(c.b, 0.0f)};
    };
    const float low = keys[above - 1].d;
    const float t = (x - low) / (keys[above].d - low);
    return keyColor(above - 1) * (1 - t) + keyColor(above) * t;
}

Color RenderGradientSamplerStandAlone::eval(float x) const {
    if (host)
        return host->evalColor(x, time);
    if (positions.count <= 0)
        return {};
    return clampColor(type == kSmoothGradient ? colorAt(positions.solve(x)) : betweenKeys(x));
}

bool KolRamps::makeCurve(RenderDiagramSamplerStandAlone& curve, const float* positions,
                         int positionCount, const float* values, int valueCount,
                         const int* interpolations, int interpolationCount) {
    const int n = std::max(std::min(positionCount, valueCount), 0);
    std::vector<float> xs, ys;
    std::vector<MultiCurvePointType> types;
    const auto add = [&](float x, float y, MultiCurvePointType type) {
        xs.push_back(x);
        ys.push_back(y);
        types.push_back(type);
    };
    for (int i = 0; i < n; ++i) {
        const int interpolation = i < interpolationCount ? interpolations[i] : 1;
        if (interpolation >= 4 && interpolation <= 7)
            add(positions[i], values[i], static_cast<MultiCurvePointType>(interpolation));
        else if (interpolation == 2 || interpolation == 3)
            add(positions[i], values[i], MultiCurvePointType::Smooth);
        else
            add(positions[i], values[i], MultiCurvePointType::Linear);
        // A step: a second point with the same value just before the next one.
        if (interpolation == 0 && i + 1 < n && positions[i + 1] > positions[i])
            add(std::nextafter(positions[i + 1], positions[i]), values[i],
                MultiCurvePointType::Linear);
    }
    return curve.setPoints(xs.data(), ys.data(), types.data(), static_cast<int>(xs.size()));
}

bool KolRamps::makeGradient(RenderGradientSamplerStandAlone& gradient, const float* positions,
                            int positionCount, const Color* colors, int colorCount) {
    return gradient.setKeys(positions, colors, std::min(positionCount, colorCount));
}

}  // namespace NMBUtils
