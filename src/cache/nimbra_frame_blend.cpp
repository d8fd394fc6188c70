// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A moment between two frames: both are looked up and kept, so that the next weight between them
// costs neither a read nor the search for where the cells came from.

#include <memory>
#include <new>
#include <utility>

#include "cache/blend_frames.h"
#include "cache/external_readers.h"
#include "cache/nimbra_frame.h"
#include "cache/smooth_frame.h"
#include "foundation/log.h"

namespace nimbra {

namespace {

/// The status of a load of which both frames are missing.
int missingStatus(const int (&status)[2]) {
    return status[0] == kLoadNoFooter && status[1] == kLoadNoFooter ? kFrameDamaged : kFrameFailed;
}

/// Whether the file of a failed look-up is there. Where its damage is seen while it is opened, the
/// status is the one of a file that isn't.
bool isUnreadable(int status) {
    return status != kLoadOk && (status != kLoadNotFound || !lastImportProblem().empty());
}

void logParticleProblem(const BlendResult& result) {
    const char* lacking = result.status == kFrameNoParticleId    ? "ID"
                          : result.status == kFrameNoParticleAge ? "AGE"
                                                                 : nullptr;
    if (lacking)
        NMBUtils::logLine(
            "Frame Blending - particle systems can't blend due to missing %s channel: %s\n",
            lacking, result.message.c_str());
}

}  // namespace

int NimbraFrame::loadBlended(const Request& request, const FrameMix& mix, int method) {
    frameDataArray.releaseFrame(std::exchange(data, nullptr));
    sourceData = nullptr;
    int status[2];
    bool unreadable[2];
    lookUpSources(request, mix, status, unreadable);
    if (status[0] == kLoadOk && status[1] == kLoadOk)
        return blendSources(request, mix, method);
    freeBlendSources();
    if (status[0] != kLoadOk && status[1] != kLoadOk) {
        // Damage is worth telling beside a gap.
        if (unreadable[0] != unreadable[1])
            missingFrame = unreadable[0] ? mix.first : mix.second;
        missingIsUnreadable = true;
        return missingStatus(status);
    }
    missingFrame = status[0] == kLoadOk ? mix.second : mix.first;
    missingIsUnreadable = unreadable[0] || unreadable[1];
    if (status[0] == kLoadOk)
        standIn(request, mix.first, blendFrom);
    else
        standIn(request, mix.second, blendTo);
    return data ? kFrameLoaded : kFrameFailed;
}

void NimbraFrame::lookUpSources(const Request& request, const FrameMix& mix, int (&status)[2],
                                bool (&unreadable)[2]) {
    // The frames of the last blend go last: one that serves again isn't read twice.
    const HeldFrame oldFrom(blendFrom), oldTo(blendTo);
    constexpr bool kKeepOld = false;
    // What is smoothed is their blend, so that they can be shared.
    constexpr bool kShared = false;
    blendFrom = blendTo = nullptr;
    status[0] = lookUp(blendFrom, mix.first, request, kKeepOld, kShared);
    const std::string problem = status[0] == kLoadOk ? std::string() : lastImportProblem();
    unreadable[0] = isUnreadable(status[0]);
    setImportProblem("");
    status[1] = lookUp(blendTo, mix.second, request, kKeepOld, kShared);
    unreadable[1] = isUnreadable(status[1]);
    // The one that can be read, or isn't there, must not hide why the other one can't.
    if (!unreadable[1])
        setImportProblem(problem);
    if (blendFrom != oldFrom.get() || blendTo != oldTo.get() || !blendSourceValid)
        freeBlendSources();
}

int NimbraFrame::blendSources(const Request& request, const FrameMix& mix, int method) {
    const bool recompute = !blendSourceValid;
    std::unique_ptr<NimbraFrameData> made(new (std::nothrow) NimbraFrameData);
    // Without memory for a frame, the first one stands in as well.
    BlendResult result{kFrameScaleMismatch, {}};
    if (made) {
        made->resetHeader(request.headerOnly);
        result = blendFrames(*made, *blendFrom, *blendTo, mix.weight, method, recompute,
                             blendSource, stop);
    }
    if (made && frameDataArray.holds(made.get()))
        data = made.release();
    blendSourceValid =
        result.status != kFrameScaleMismatch && result.status != kFrameVelocityFallback;
    logParticleProblem(result);
    if (isStopped()) {
        // Half a blend must not pass for the frame of this moment.
        frameDataArray.releaseFrame(std::exchange(data, nullptr));
        freeBlendSources();
        return kFrameFailed;
    }
    if (result.status == kFrameScaleMismatch || !data) {
        frameDataArray.releaseFrame(std::exchange(data, nullptr));
        standIn(request, mix.first, blendFrom);
        return data ? kFrameScaleMismatch : kFrameFailed;
    }
    sourceData = blendFrom;
    if (smoothMask != 0)
        smoothFrame(*this, stop);
    return result.status;
}

void NimbraFrame::standIn(const Request& request, std::int64_t frame, NimbraFrameData*& source) {
    data = std::exchange(source, nullptr);
    releaseSources();
    freeBlendSources();
    // Smoothing needs a frame that nobody else holds.
    constexpr bool kReleaseOld = true, kPrivate = true;
    if (smoothMask != 0 && lookUp(data, frame, request, kReleaseOld, kPrivate) == kLoadOk)
        smoothFrame(*this, stop);
    sourceData = data;
}

}  // namespace nimbra
