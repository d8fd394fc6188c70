// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The frames that one cache holds: the one to render, the two it was blended from, and what the
// last load was asked for. Frames are shared between caches by a list with reference counts.
#pragma once

#include <cstdint>
#include <string>

#include "cache/frame_data.h"
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
        /// isn't in the list) in with a count of 1. Returns the frame; null for null.
        NimbraFrameData* acquireFrame(NimbraFrameData* frame, bool isNew);
        /// Gives one use back; the last one deletes the frame. Frames that aren't in the list are
        /// ignored.
        void releaseFrame(NimbraFrameData* frame);
        /// Logs and deletes what is left.
        void reportAndClear();
    };
    /// The one list of the process.
    static FrameDataArray frameDataArray;

    std::int32_t loadResult = 0;
    /// When >= 0: blend frameNumber with fixedBlendTarget with this weight.
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
    /// Asked by long passes whether the user wants to stop; may be null.
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
    /// one is missing. `mode` kHeaderOnlyMode: without voxels. Answers a FrameStatus. A tick number
    /// between two frames shows the earlier one.
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

    /// Gives the references of blendFrom, blendTo and data back.
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
    /// Two frames to blend: `weight` of the second.
    struct Blend {
        std::int64_t first, second;
        float weight;
        int method;
    };
    /// Whether `data` is what is asked for.
    bool isInPlace(const Request& request, std::int64_t frame);
    // Each fills `data`. The first two answer a FrameLoadStatus.
    int loadWhole(const Request& request, std::int64_t frame);
    int loadBlended(const Request& request, const Blend& blend);
    bool loadEmptyGrid(const int size[3], float cellSize, bool isMayaFluid);
    int fail(const Request& request, int lookUpStatus);
    void remember(int status, std::int64_t ticks, const std::string& path,
                  const std::string& channelMap);
};

}  // namespace nimbra
