// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// From a tick number to the frame to render: files are found, shared frames looked up, new ones
// read.

#include <algorithm>
#include <memory>
#include <new>
#include <utility>

#include "cache/channel_mapping.h"
#include "cache/enum_files.h"
#include "cache/file_patterns.h"
#include "cache/nimbra_frame.h"
#include "cache/smooth_frame.h"
#include "foundation/log.h"

namespace nimbra {

namespace {

constexpr float kLeastCellSize = 0.001f;

NimbraEnum::Mode modeOf(bool exactOnly) {
    return exactOnly ? NimbraEnum::Mode::Exact : NimbraEnum::Mode::Nearest;
}

/// A live frame that was made of the same bytes in the same way; null when there is none.
NimbraFrameData* findShared(const std::string& file, const std::string& channelMap,
                            bool headerOnly) {
    const std::int64_t modified = fileModificationTime(file);
    for (NimbraFrameData* const frame : NimbraFrame::frameDataArray)
        if (frame->path == file && frame->channelMap == channelMap && frame->fileTime == modified &&
            !(frame->flags & kFramePrivate) && (headerOnly || !(frame->flags & kFrameHeaderOnly)))
            return frame;
    return nullptr;
}

/// An empty grid with the object's origin in the middle of its floor; null for cells that are too
/// small, a grid without cells, or no memory.
std::unique_ptr<NimbraFrameData> makeEmptyGrid(const int size[3], float cellSize,
                                               bool isMayaFluid) {
    if (!(cellSize >= kLeastCellSize) || voxelCount(size) < 1)
        return nullptr;
    std::unique_ptr<NimbraFrameData> frame(new (std::nothrow) NimbraFrameData);
    if (!frame)
        return nullptr;
    frame->resetHeader(false);
    frame->setNoStoredGrid();
    frame->frameNumber = 0;
    std::copy_n(size, 3, frame->gridSize);
    frame->flags |= kFramePrivate;
    frame->channelMap = CacheIO::ownChannelMap();
    float* const tm = frame->transform;
    std::fill_n(tm, 12, 0.0f);
    for (int a = 0; a < 3; ++a)
        tm[a * 4] = isMayaFluid ? static_cast<float>(size[a]) : 1 / cellSize;
    const int middleX = size[0] / 2, middleY = size[1] / 2;
    tm[9] = static_cast<float>(middleX);
    tm[10] = static_cast<float>(middleY);
    // Half a cell counts along this axis alone.
    tm[11] = isMayaFluid ? static_cast<float>(size[2]) / 2 : 0.0f;
    return frame;
}

}  // namespace

int NimbraFrame::lookUp(NimbraFrameData*& slot, std::int64_t frame, const std::string& pattern,
                        const std::string& channelMap, bool exactOnly, bool noRetry,
                        bool releaseOld, bool isPrivate, bool headerOnly) {
    HeldFrame old(releaseOld ? slot : nullptr);
    slot = nullptr;
    std::string file;
    std::int64_t found = 0;
    if (!NimbraEnum::chooseFile(pattern, frame, modeOf(exactOnly), file, found))
        return kLoadNotFound;
    if (!isPrivate && !pattern.empty())
        if (NimbraFrameData* const shared = findShared(file, channelMap, headerOnly)) {
            slot = frameDataArray.acquireFrame(shared, false);
            return kLoadOk;
        }

    // The old frame goes first: two large frames may not fit side by side.
    old.reset();
    std::unique_ptr<NimbraFrameData> made(new (std::nothrow) NimbraFrameData);
    if (!made)
        return kLoadBroken;
    constexpr std::int64_t kNoLimit = -1;
    const std::int64_t number = found == NimbraEnum::kAnyFrame ? frame : found;
    const int status =
        made->load(file, channelMap, static_cast<double>(number), kNoLimit, noRetry, headerOnly);
    if (status != kLoadOk)
        return status;
    if (isPrivate)
        made->flags |= kFramePrivate;
    // Formats that know no number have that of their name.
    if (made->frameNumber == NimbraFrameData::kNoFrame && found != NimbraEnum::kAnyFrame)
        made->frameNumber =
            static_cast<std::int32_t>(std::clamp<std::int64_t>(found, INT32_MIN, INT32_MAX));
    made->channelMap = channelMap;
    slot = frameDataArray.acquireFrame(made.get(), true);
    static_cast<void>(made.release());
    return kLoadOk;
}

int NimbraFrame::lookUp(NimbraFrameData*& slot, std::int64_t frame, const Request& request,
                        bool releaseOld, bool isPrivate) {
    constexpr bool kNoRetry = false;
    return lookUp(slot, frame, request.path, request.channelMap, request.exactOnly, kNoRetry,
                  releaseOld, isPrivate, request.headerOnly);
}

int NimbraFrame::load(std::int64_t ticks, const std::string& path, int blendMethod, int tpf,
                      const int emptySize[3], float cellSize, bool isMayaFluid, bool exactOnly,
                      int mode, const std::string& channelMap) {
    const Request request{ticks, path, channelMap, exactOnly, mode == kHeaderOnlyMode};
    const FrameMix mix = frameMix(ticks, tpf, fixedBlendWeight, fixedBlendTarget);
    const FrameMix last = std::exchange(lastMix_, mix);
    // The same ticks with another overlap are another frame.
    const bool sameOverlap =
        mix == last || (mix.kind != FrameMix::kOverlap && last.kind != FrameMix::kOverlap);
    if (sameOverlap && isSettled(request, mix.first))
        return kFrameUnchanged;

    missingFrame = NimbraFrameData::kNoFrame;
    constexpr int kOverlapMethod = 256, kHeaderOnlyMethod = 65535;
    int status = kFrameLoaded;
    if (mix.kind != FrameMix::kWhole) {
        const int method = mix.kind == FrameMix::kBetween ? blendMethod : kOverlapMethod;
        status = loadBlended(request, mix, request.headerOnly ? kHeaderOnlyMethod : method);
    } else if (path.empty()) {
        if (!loadEmptyGrid(emptySize, cellSize, isMayaFluid))
            status = kLoadNotFound;
    } else if (const int lookUpStatus = loadWhole(request, mix.first); lookUpStatus != kLoadOk) {
        return fail(request, lookUpStatus);
    }
    if (!data) {
        if (!isStopped())
            remember(kLoadNotFound, ticks, path, channelMap);
        return status;
    }
    currentFrame = ticks;
    pathPattern = path;
    data->channelMap = channelMap;
    remember(0, NimbraFrameData::kNoFrame, {}, {});
    return status;
}

bool NimbraFrame::isSettled(const Request& request, std::int64_t frame) {
    if (data)
        return isInPlace(request, frame);
    return request.ticks == failFrame && request.path == failPath &&
           request.channelMap == failChannelMap;
}

bool NimbraFrame::isInPlace(const Request& request, std::int64_t frame) {
    const bool isPattern = FilePattern(request.path).hasNumber();
    bool same = false;
    if (isPattern && !request.exactOnly) {
        std::string nearest;
        std::int64_t found = 0;
        same = NimbraEnum::chooseFile(request.path, frame, NimbraEnum::Mode::Nearest, nearest,
                                      found) &&
               nearest == data->path;
    }
    if ((!isPattern || same) && request.ticks != NimbraFrameData::kNoFrame)
        currentFrame = request.ticks;
    return currentFrame == request.ticks && pathPattern == request.path &&
           request.channelMap == data->channelMap &&
           (request.headerOnly || !(data->flags & kFrameHeaderOnly));
}

int NimbraFrame::loadWhole(const Request& request, std::int64_t frame) {
    sourceData = nullptr;
    releaseSources();
    const bool isPrivate = smoothMask != 0;
    constexpr bool kReleaseOld = true;
    const int status = lookUp(data, frame, request, kReleaseOld, isPrivate);
    // A private frame is never shared, so that it is fresh here.
    if (status == kLoadOk && isPrivate)
        smoothFrame(*this, stop);
    sourceData = data;
    if (status != kLoadOk)
        return status;
    freeBlendSources();
    NMBUtils::logLine("frame loaded %s, %d \n", request.path.c_str(), data->frameNumber);
    return kLoadOk;
}

bool NimbraFrame::loadEmptyGrid(const int size[3], float cellSize, bool isMayaFluid) {
    releaseFrames();
    std::unique_ptr<NimbraFrameData> made = makeEmptyGrid(size, cellSize, isMayaFluid);
    if (!made)
        return false;
    data = frameDataArray.acquireFrame(made.get(), true);
    static_cast<void>(made.release());
    sourceData = data;
    constexpr int kFlip = 2;
    if (!isMayaFluid && !data->upAxisFlipped)
        data->flipUpAxis(kFlip);
    return true;
}

int NimbraFrame::fail(const Request& request, int lookUpStatus) {
    frameDataArray.releaseFrame(std::exchange(data, nullptr));
    sourceData = nullptr;
    // A missing reader or file may be there the next time.
    if (lookUpStatus != kLoadNoReader && lookUpStatus != kLoadNotFound)
        remember(lookUpStatus, request.ticks, request.path, request.channelMap);
    return lookUpStatus == kLoadNoFooter ? kFrameDamaged : kFrameFailed;
}

void NimbraFrame::remember(int status, std::int64_t ticks, const std::string& path,
                           const std::string& channelMap) {
    failStatus = status;
    failFrame = ticks;
    failPath = path;
    failChannelMap = channelMap;
}

}  // namespace nimbra
