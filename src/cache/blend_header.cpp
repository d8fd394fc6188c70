// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/blend_header.h"

#include <algorithm>

namespace nimbra {
namespace {

constexpr float kResetBoxMin = 1e20f;
constexpr float kResetBoxMax = -1e20f;

bool isBoxReset(const NimbraFrameData& frame) {
    const auto all = [](const float(&v)[3], float value) {
        return std::count(std::begin(v), std::end(v), value) == 3;
    };
    return all(frame.bboxMin, kResetBoxMin) && all(frame.bboxMax, kResetBoxMax);
}

double mixTimes(double a, double b, float weight) {
    const double w = weight;
    return w * b + (1 - w) * a;
}

std::int32_t mixFrameNumbers(std::int32_t a, std::int32_t b, float weight) {
    const float mixed = static_cast<float>(a) * (1.0f - weight) + static_cast<float>(b) * weight;
    constexpr float kBeyond = 2147483648.0f;
    if (!(mixed >= -kBeyond))
        return INT32_MIN;
    return mixed < kBeyond ? static_cast<std::int32_t>(mixed) : INT32_MAX;
}

void blendBoxes(NimbraFrameData& dst, const NimbraFrameData& a, const NimbraFrameData& b,
                float weight) {
    std::fill(std::begin(dst.bboxMin), std::end(dst.bboxMin), kResetBoxMin);
    std::fill(std::begin(dst.bboxMax), std::end(dst.bboxMax), kResetBoxMax);
    if (isBoxReset(a) || isBoxReset(b))
        return;
    const float rest = 1.0f - weight;
    for (int i = 0; i < 3; ++i) {
        dst.bboxMin[i] = a.bboxMin[i] * rest + b.bboxMin[i] * weight;
        dst.bboxMax[i] = a.bboxMax[i] * rest + b.bboxMax[i] * weight;
    }
}

}  // namespace

void blendHeaders(NimbraFrameData& dst, const NimbraFrameData& a, const NimbraFrameData& b,
                  float weight) {
    dst.setNoStoredGrid();
    dst.frameNumber = mixFrameNumbers(a.frameNumber, b.frameNumber, weight);
    dst.flushOnClose = a.flushOnClose;
    // b's time step has no part in it.
    dst.timeStep = weight * a.timeStep;
    dst.channelMask = a.channelMask & b.channelMask;
    dst.simInfo.setSimInfo2(mixTimes(a.simInfo.simInfo2(), b.simInfo.simInfo2(), weight));
    dst.simInfo.setSimTime(mixTimes(a.simInfo.simTime(), b.simInfo.simTime(), weight));
    dst.simInfo.setSimStep(a.simInfo.simStep());
    dst.simInfo.setSimInfo3(mixTimes(a.simInfo.simInfo3(), b.simInfo.simInfo3(), weight));
    blendBoxes(dst, a, b, weight);
    dst.description = a.description.empty() ? b.description : a.description;
    dst.path.clear();
    dst.fileTime = (a.fileTime >> 1) + (b.fileTime >> 1);
}

}  // namespace nimbra
