// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// One simulated frame in memory: grid geometry, voxel channels, particle groups and header values.
// Channels are kept as they were stored and are expanded when somebody first asks for them.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "cache/channel_id.h"
#include "cache/grid_channel.h"
#include "foundation/array.h"

namespace NMBUtils {
class NmbParallel;
template <int N>
class SGCompressor;
}  // namespace NMBUtils

namespace nimbra {

class INimbraPrtGroup;

/// What other parts of the library see of a frame. The order of the operations is part of the
/// contract.
class IKol {
public:
    /// Dense voxels of a channel, expanded if need be. Null for an id outside 0 to 31, an absent
    /// channel, or one that a tree holds.
    virtual float* getChannelData(int channel) = 0;
    /// Whether the frame can deliver the channel. Expands nothing.
    virtual bool hasChannel(int channel) const = 0;
    virtual void getGridSize(int dims[3]) const = 0;
    /// Object space to grid cells: three axis vectors, then the offset.
    virtual void getTransform(float tm[12]) const = 0;
    /// Groups that have positions.
    virtual int getPrtGroupCount() const = 0;
    /// The index-th group among those that have positions, null past the end.
    virtual INimbraPrtGroup* getPrtGroup(int index) = 0;
    /// The first group of that name, with or without positions; null when there is none.
    virtual INimbraPrtGroup* getPrtGroupByName(const char* name) = 0;
    virtual ~IKol() = default;
};

/// Bits of NimbraFrameData::flags.
enum FrameFlags : std::uint32_t {
    kFrameMaskBit31 = 1,   ///< bit 31 of the stored channel mask
    kFrameHeaderOnly = 4,  ///< loaded without voxels and particles
    kFramePrivate = 8,     ///< never shared by path
};

/// The simulation info block, byte for byte as files hold it.
struct SimInfo {
    static constexpr int kBytes = 392;
    unsigned char bytes[kBytes] = {};

    double simTime() const { return get<double>(8); }
    double simInfo2() const { return get<double>(16); }
    std::int32_t simStep() const { return get<std::int32_t>(348); }
    double simInfo3() const { return get<double>(352); }
    std::uint64_t simInfo4() const { return get<std::uint64_t>(384); }
    void setSimTime(double v) { set(8, v); }
    void setSimInfo2(double v) { set(16, v); }
    void setSimStep(std::int32_t v) { set(348, v); }
    void setSimInfo3(double v) { set(352, v); }
    void setSimInfo4(std::uint64_t v) { set(384, v); }

private:
    template <typename T>
    T get(int at) const {
        T v;
        __builtin_memcpy(&v, bytes + at, sizeof v);
        return v;
    }
    template <typename T>
    void set(int at, T v) {
        __builtin_memcpy(bytes + at, &v, sizeof v);
    }
};

/// Results of NimbraFrameData::load.
enum FrameLoadStatus : int {
    kLoadOk = 0,
    kLoadNoReader = 2,
    kLoadNotFound = 3,
    kLoadBroken = 4,
    kLoadNoMapping = 9,
    kLoadNoFooter = 12,
};

/// Modification time of a file in nanoseconds since 1970; 0 when it can't be told.
std::int64_t fileModificationTime(const std::string& path);

/// One frame. Filled once, then read-only but for lazy expansion and flipUpAxis. Shared frames are
/// counted by NimbraFrame::FrameDataArray and deleted by it.
class NimbraFrameData : public IKol {
public:
    class PGroup;  // cache/prt_group.h
    using Proxy = GridChannelProxy<float>;

    /// Frame number of a frame that has none yet.
    static constexpr std::int32_t kNoFrame = INT32_MIN;
    /// File version of a frame that didn't come from a versioned file.
    static constexpr std::int32_t kNoVersion = 0x7FFFFFFF;

    std::uint32_t flags = 0;
    NMBUtils::NmbArray<int, int, 1, 1> channelScratch[kChannelSlots];
    /// All stored grid channels as records of words: id, n, n words of payload. Owned.
    std::int32_t* compressed = nullptr;
    /// Words in `compressed`; 1 when no grid data is stored.
    std::int32_t compressedInts = 0;
    /// Bit n: channel n was stored.
    std::uint32_t channelMask = 0;
    /// Particle groups, owned; made by addGroup.
    NMBUtils::NmbArray<PGroup*, int, 0, 1> groups;
    std::int32_t gridSize[3] = {0, 0, 0};
    std::int32_t frameNumber = kNoFrame;
    std::int32_t fileVersion = kNoVersion;
    std::uint8_t flushOnClose = 0;
    SimInfo simInfo;
    float simScale = 0;
    /// Object space to grid cells: axis vectors x, y, z, then the offset.
    float transform[12] = {1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0};
    /// Length of a frame in simulation time.
    float timeStep = 0;
    /// Grid position to a velocity that is taken out of the container's motion.
    float motionTm[12] = {};
    float motionTm2[12] = {};
    float motionTm3[12] = {1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0};
    /// Handles of the expanded channels. Readers other than importers and blending go through
    /// getChannelProxy.
    Proxy channels[kChannelSlots];
    std::int64_t channelFileValue[kChannelSlots];
    std::shared_ptr<NMBUtils::SGCompressor<1>> compressor1D;
    std::shared_ptr<NMBUtils::SGCompressor<3>> compressor3D;
    /// Box of all particles, +1e20 and -1e20 when empty.
    float bboxMin[3], bboxMax[3];
    /// The frame's recursive spin lock.
    std::atomic<std::int32_t> lockWord{0};
    std::atomic<std::uint32_t> lockOwner{0};
    std::int32_t lockDepth = 0;
    std::string description;
    /// File that the frame came from; empty when none.
    std::string path;
    /// The channel mapping it was loaded with; names a load together with `path`.
    std::string channelMap;
    /// fileModificationTime of `path` at the load.
    std::int64_t fileTime = 0;
    /// Multiplier of particle positions and velocities.
    float particleScale = 1;
    std::uint8_t upAxisFlipped = 0;
    /// Kept by FrameDataArray.
    std::int32_t refCount = 0;
    std::unique_ptr<NMBUtils::NmbParallel> bboxJob;

    NimbraFrameData();
    NimbraFrameData(const NimbraFrameData&) = delete;
    NimbraFrameData& operator=(const NimbraFrameData&) = delete;
    ~NimbraFrameData() override;

    float* getChannelData(int channel) override;
    bool hasChannel(int channel) const override;
    void getGridSize(int dims[3]) const override;
    void getTransform(float tm[12]) const override;
    int getPrtGroupCount() const override;
    INimbraPrtGroup* getPrtGroup(int index) override;
    INimbraPrtGroup* getPrtGroupByName(const char* name) override;

    /// The handle of a channel, expanded if need be; its `loaded` tells whether the channel exists.
    /// The id is limited to 0 to 32, 32 being a channel that never exists. Takes the frame's lock:
    /// fetch a handle once and sample through it. Any thread.
    Proxy& getChannelProxy(int channel);
    /// Smallest and greatest value; false for an id outside 0 to 31 or an absent channel. Found
    /// once, then remembered. Any thread.
    bool getChannelRange(int channel, float& min, float& max);
    /// Writes minimum and maximum - minimum; (0, 1) and false for an absent channel.
    bool getChannelMinAndSpan(int channel, float out[2]);
    /// Copies `count` voxels that follow each other in memory order, starting at a cell. Voxels
    /// outside the grid read 0. Returns 1; 0 (and zeros) for an absent channel.
    int readChannelRun(const int firstCell[3], int channel, int count, float* out);
    /// One voxel of each of `count` consecutive channels, at a cell that is limited to the grid.
    /// Absent channels read 0. Returns 1; 0 (and zeros) when the first channel is absent.
    int readChannelCells(const int cell[3], int firstChannel, int count, float* out);
    /// Whether hasChannel holds for all channels of the mask among ids 0 to 22.
    bool hasChannels(std::uint32_t mask) const;

    /// Swaps the axis vectors y and z of `transform` and negates vector `row`: 2 flips, 1 flips
    /// back.
    void flipUpAxis(int row);
    /// Header values, ranges and channels as before a load; the first act of every load.
    void resetHeader(bool headerOnly);
    /// Frees the stored channels, the groups, the description and the scratch arrays.
    void freeData();
    /// Fills the frame from a file; the extension decides how. `frameTime` becomes the time of
    /// formats that know none. `maxMemory` -1: no limit. Answers a FrameLoadStatus.
    int load(const std::string& filePath, const std::string& mapping, double frameTime,
             std::int64_t maxMemory, bool noRetry, bool headerOnly);

    /// Fills the frame from a .kol file; grid channels stay as they are stored. `noRetry`: a file
    /// that can't be opened now isn't waited for. `headerOnly` steps over voxels and particles.
    /// 3: not a file that can be opened, or one that somebody writes to; 4: broken, or no memory;
    /// 12: of a format before the first that is read. A frame that fails is empty afterwards.
    int ImportKol(const std::string& filePath, bool noRetry, bool headerOnly);

    /// `compressed` := one zero word, as in a frame without stored grid data.
    void setNoStoredGrid();
    /// `compressed` := `words` zero words for a reader to fill; false without memory.
    bool allocateCompressed(std::int32_t words);
    /// A new empty group at the end of `groups`; null without memory.
    PGroup* addGroup(const std::string& name);
    /// Deletes all groups.
    void clearGroups();
    /// Frees one channel with its range.
    void freeChannel(int channel);
    void freeChannels();

    /// The recursive spin lock. A thread that holds it may take it again.
    void lock();
    void unlock();

private:
    void expandStored(int channel);
    void expandRecord(int channel, const std::int32_t* payload, std::int64_t payloadWords);
    bool decodeStream(const std::int32_t* payload, std::int64_t payloadBytes, GridStorage& storage);
    void deriveSpeed();
    void expandPackedColor();
    void unpackColor();

    /// What getChannelProxy answers for id 32.
    Proxy absentChannel_;
    /// Set once channels 7 to 9 came out of the packed form.
    bool colorUnpacked_ = false;
};

/// Holds a frame's lock for a scope.
class FrameLock {
public:
    explicit FrameLock(NimbraFrameData& frame) : frame_(frame) { frame_.lock(); }
    ~FrameLock() { frame_.unlock(); }
    FrameLock(const FrameLock&) = delete;
    FrameLock& operator=(const FrameLock&) = delete;

private:
    NimbraFrameData& frame_;
};

}  // namespace nimbra
