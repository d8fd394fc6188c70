// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The frames that one cache holds: the one to render, the two it was blended from, and what the
// last load was asked for. Frames are shared between caches by a list with reference counts.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "cache/frame_data.h"
#include "cache/time_bend.h"
#include "foundation/array.h"
#include "tessra/progress.h"

namespace nimbra {

/// Results of NimbraFrame::load.
enum FrameStatus : int {
    kFrameFailed = 0,
    kFrameUnchanged = 1,         ///< the wanted frame is in place, or the same load failed before
    kFrameScaleMismatch = 2,     ///< not blended, the first frame stands in
    kFrameNoParticleId = 3,      ///< particles not blended
    kFrameNoParticleAge = 4,     ///< particles not blended
    kFrameVelocityFallback = 5,  ///< blended without velocities
    kFrameLoaded = 6,
    kFrameDamaged = 7,
};

/// What a holder shows, and how it got there. Used on the scene thread only.
class NimbraFrame {
public:
    /// The live frames of the process with their reference counts. No lock: frame preparation
    /// only. Frames that are left at process end are logged and deleted.
    struct FrameDataArray : NMBUtils::NmbArray<NimbraFrameData*, int, 0, 1> {
        FrameDataArray() = default;
        ~FrameDataArray() override;
        /// Counts one more use of a frame that is in the list; takes a new frame (or one that
        /// isn't in the list) in with a count of 1. Returns the frame; null for null. Throws
        /// ExceptionMsg without memory: a new frame then stays the caller's.
        NimbraFrameData* acquireFrame(NimbraFrameData* frame, bool isNew);
        /// Gives one use back; the last one deletes the frame. Frames that aren't in the list are
        /// ignored.
        void releaseFrame(NimbraFrameData* frame);
        /// Whether a frame is in the list.
        bool holds(const NimbraFrameData* frame) const;
        /// Logs and deletes what is left.
        void reportAndClear();

    protected:
        /// Never null: growth that fails must not lose the frames that are in the list.
        void* allocateStore(std::size_t bytes) override;
    };
    /// The one list of the process.
    static FrameDataArray frameDataArray;
    /// One use of a frame of that list, given back at the end of a scope.
    struct GiveBack {
        void operator()(NimbraFrameData* frame) const { frameDataArray.releaseFrame(frame); }
    };
    using HeldFrame = std::unique_ptr<NimbraFrameData, GiveBack>;

    std::int32_t loadResult = 0;
    /// When >= 0, whole frames are blended with the frame fixedBlendTarget, by this weight of it.
    float fixedBlendWeight = -1;
    std::int32_t fixedBlendTarget = 0;
    /// Ticks of the frame held. Ticks outside the play range are far below 32 bits.
    std::int64_t currentFrame = NimbraFrameData::kNoFrame;
    /// The path that currentFrame was resolved with.
    std::string pathPattern;
    /// Channels to smooth, and how.
    std::uint32_t smoothMask = 0;
    float smoothThreshold[kChannelSlots];
    float smoothSimilarity[kChannelSlots];
    float smoothRandomize[kChannelSlots];
    /// Asked by long passes whether the user wants to stop; may be null. A blend that is stopped
    /// makes no frame.
    TessUtils::ProgressCallback* stop = nullptr;
    /// Frames of the last blend, one reference each.
    NimbraFrameData* blendFrom = nullptr;
    NimbraFrameData* blendTo = nullptr;
    /// Source positions of the blend, 3 floats a cell, owned (vfree).
    float* blendSource[kChannelSlots] = {};
    /// Whether blendSource belongs to blendFrom and blendTo.
    std::int32_t blendSourceValid = 0;
    /// The frame to render, one reference.
    NimbraFrameData* data = nullptr;
    /// The frame that `data` is derived from, `data` itself when it wasn't blended. No reference.
    NimbraFrameData* sourceData = nullptr;
    /// The frame that `data` had to be blended with and couldn't be had, so that the other one
    /// shows alone, or nothing where neither could be had; kNoFrame when there is none.
    std::int64_t missingFrame = NimbraFrameData::kNoFrame;
    /// Its file is there but can't be read.
    bool missingIsUnreadable = false;
    /// The last load that failed; a repeat of it returns at once.
    std::int32_t failStatus = 0;
    std::int64_t failFrame = NimbraFrameData::kNoFrame;
    std::string failPath, failChannelMap;

    /// For `load`.
    static constexpr int kHeaderOnlyMode = 1;

    NimbraFrame();
    NimbraFrame(const NimbraFrame&) = delete;
    NimbraFrame& operator=(const NimbraFrame&) = delete;
    /// Gives all references back.
    ~NimbraFrame();

    /// Makes `data` the frame for that tick number (`tpf` ticks a frame); an empty path makes an
    /// empty grid of `emptySize` cells. `exactOnly` false takes the nearest frame when the wanted
    /// one is missing. `mode` kHeaderOnlyMode: without voxels. A tick number between two frames
    /// blends them by `blendMethod` (see blendFrames), fixedBlendWeight and fixedBlendTarget blend
    /// a whole frame with another one. Answers a FrameStatus; for an empty grid that can't be made
    /// kLoadNotFound. Throws ExceptionMsg; nothing is lost then but the frame to render.
    int load(std::int64_t ticks, const std::string& path, int blendMethod, int tpf,
             const int emptySize[3], float cellSize, bool isMayaFluid, bool exactOnly, int mode,
             const std::string& channelMap);

    /// Puts the frame of a number into `slot`, shared with other holders where path, mapping and
    /// file time agree, read otherwise. `releaseOld`: the slot's old frame is given back.
    /// Answers a FrameLoadStatus.
    static int lookUp(NimbraFrameData*& slot, std::int64_t frame, const std::string& pattern,
                      const std::string& channelMap, bool exactOnly, bool noRetry, bool releaseOld,
                      bool isPrivate, bool headerOnly);

    /// Sets smoothMask and, for the channels of its bits, threshold, similarity and randomize:
    /// values[3 * channel] and the two behind it. The other channels keep theirs.
    void storeSmoothSettings(std::uint32_t mask, const float* values);

    /// Gives the references of blendFrom, blendTo and data back; what belongs to them goes.
    void releaseFrames();
    void freeBlendSources();

private:
    /// What stays the same while one load is worked off.
    struct Request {
        std::int64_t ticks;
        const std::string& path;
        const std::string& channelMap;
        bool exactOnly, headerOnly;
    };
    /// Whether `data` is what is asked for, or is known not to be had.
    bool isSettled(const Request& request, std::int64_t frame);
    bool isInPlace(const Request& request, std::int64_t frame);
    int lookUp(NimbraFrameData*& slot, std::int64_t frame, const Request& request, bool releaseOld,
               bool isPrivate);
    // Each fills `data`. They answer a FrameLoadStatus, a FrameStatus, and whether there is one.
    int loadWhole(const Request& request, std::int64_t frame);
    int loadBlended(const Request& request, const FrameMix& mix, int method);
    bool loadEmptyGrid(const int size[3], float cellSize, bool isMayaFluid);
    /// Steps of a blend: both frames into blendFrom and blendTo, these into `data`, or one of them.
    void lookUpSources(const Request& request, const FrameMix& mix, int (&status)[2],
                       bool (&unreadable)[2]);
    int blendSources(const Request& request, const FrameMix& mix, int method);
    void standIn(const Request& request, std::int64_t frame, NimbraFrameData*& source);
    void releaseSources();
    bool isStopped() const { return stop && stop->getAbort(); }
    int fail(const Request& request, int lookUpStatus);
    void remember(int status, std::int64_t ticks, const std::string& path,
                  const std::string& channelMap);

    /// What the last load was asked to show.
    FrameMix lastMix_;
};

}  // namespace nimbra
