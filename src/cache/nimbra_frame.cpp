// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/nimbra_frame.h"

#include <algorithm>
#include <utility>

#include "foundation/log.h"
#include "foundation/memory.h"

namespace nimbra {
namespace {

/// One of the three lines on a frame's count.
void logCount(const char* what, const NimbraFrameData& frame) {
    const auto address = reinterpret_cast<std::uintptr_t>(&frame);
    NMBUtils::logLine("NimbraFrameData refCount%s%08X %d, I:%d, %s\n", what,
                      static_cast<unsigned>(address), frame.refCount,
                      (frame.flags & kFrameHeaderOnly) != 0, frame.path.c_str());
}

}  // namespace

NimbraFrame::FrameDataArray NimbraFrame::frameDataArray;

NimbraFrame::FrameDataArray::~FrameDataArray() {
    reportAndClear();
}

void NimbraFrame::FrameDataArray::reportAndClear() {
    for (int i = size - 1; i >= 0; --i) {
        NimbraFrameData* const frame = data[i];
        NMBUtils::logLine("Nimbra cache file not released %d ref:%d\n", frame->frameNumber,
                          frame->refCount);
        // A frame that was taken in twice goes once.
        if (std::find(data, data + i, frame) == data + i)
            delete frame;
    }
    Clear();
}

bool NimbraFrame::FrameDataArray::holds(const NimbraFrameData* frame) const {
    return std::find(begin(), end(), frame) != end();
}

void* NimbraFrame::FrameDataArray::allocateStore(std::size_t bytes) {
    return NMBUtils::allocOrThrow(bytes);
}

NimbraFrameData* NimbraFrame::FrameDataArray::acquireFrame(NimbraFrameData* frame, bool isNew) {
    if (!frame)
        return nullptr;
    if (!isNew && holds(frame)) {
        ++frame->refCount;
        logCount("++ ", *frame);
        return frame;
    }
    Append(frame);
    frame->refCount = 1;
    logCount("=1 ", *frame);
    return frame;
}

void NimbraFrame::FrameDataArray::releaseFrame(NimbraFrameData* frame) {
    if (!frame || !holds(frame))
        return;
    --frame->refCount;
    logCount("-- ", *frame);
    if (frame->refCount >= 1)
        return;
    // No entry may outlive the frame, should it have been taken in more than once.
    for (int i = size - 1; i >= 0; --i)
        if (data[i] == frame) {
            data[i] = data[size - 1];
            SetSize(size - 1);
        }
    delete frame;
}

NimbraFrame::NimbraFrame() {
    std::fill(std::begin(smoothThreshold), std::end(smoothThreshold), 0.0f);
    std::fill(std::begin(smoothSimilarity), std::end(smoothSimilarity), 0.5f);
    std::fill(std::begin(smoothRandomize), std::end(smoothRandomize), 0.1f);
}

NimbraFrame::~NimbraFrame() {
    releaseFrames();
}

void NimbraFrame::releaseSources() {
    frameDataArray.releaseFrame(std::exchange(blendFrom, nullptr));
    frameDataArray.releaseFrame(std::exchange(blendTo, nullptr));
}

void NimbraFrame::releaseFrames() {
    releaseSources();
    freeBlendSources();
    frameDataArray.releaseFrame(std::exchange(data, nullptr));
    sourceData = nullptr;
}

void NimbraFrame::freeBlendSources() {
    for (float*& source : blendSource)
        NMBUtils::freeMem(std::exchange(source, nullptr));
    blendSourceValid = 0;
}

}  // namespace nimbra
