// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The marcher's entry: segments, the fitting loop, the composite over the background.
#include <algorithm>
#include <cmath>

#include "volume/march.h"
#include "volume/march_loop.h"

namespace nimbra {

using TessUtils::Color;

namespace {

void applyGamma(Color& color, const Color& alpha, float gamma) {
    if (gamma == 1.0f || !(alpha.r + alpha.g + alpha.b >= 1e-6f))
        return;
    for (int i = 0; i < 3; ++i)
        color[i] = alpha[i] != 0 ? std::pow(color[i] / alpha[i], gamma) * alpha[i] : 0;
}

}  // namespace

int Shade(const ShadeQuery& query, Illuminator& illuminator, Color* colorInOut, Color& alphaOut) {
    alphaOut = {};
    RayData rayData;
    rayData.wantColor = colorInOut != nullptr;
    rayData.probabilistic = rayData.wantColor && query.probabilisticSamples != 0;
    rayData.illuminator = &illuminator;
    rayData.tree = query.tree;
    rayData.bounceLevel = illuminator.bounceLevel();
    if (BuildSegments(rayData, query))
        return 0;

    if (!colorInOut) {
        marchTransparency(rayData, query.time, query.isGI, alphaOut);
        return 1;
    }
    Color color;
    if (rayData.probabilistic)
        marchProbabilistic(rayData, query.time, query.probabilisticSamples, color, alphaOut);
    else
        marchColor(rayData, query.time, color, alphaOut);

    applyGamma(color, alphaOut, query.gamma);
    for (int i = 0; i < 3; ++i)
        (*colorInOut)[i] = (*colorInOut)[i] * std::max(1 - alphaOut[i], 0.0f) + color[i];
    return 1;
}

}  // namespace nimbra
