// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/frame_data.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "cache/prt_group.h"
#include "foundation/memory.h"
#include "foundation/parallel.h"

namespace nimbra {
namespace {

constexpr float kEmptyBoxMin = 1e20f;  // 0x60AD78EC
constexpr float kEmptyBoxMax = -1e20f;
constexpr float kDefaultTimeStep = 0.033333335f;
constexpr float kDefaultSimScale = 0.001f;
constexpr float kIdentity[12] = {1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0};

}  // namespace

NimbraFrameData::NimbraFrameData() {
    groups.growDivisor = 4;
    std::fill(std::begin(channelFileValue), std::end(channelFileValue), -1);
    std::fill(std::begin(bboxMin), std::end(bboxMin), kEmptyBoxMin);
    std::fill(std::begin(bboxMax), std::end(bboxMax), kEmptyBoxMax);
}

NimbraFrameData::~NimbraFrameData() {
    freeData();
    freeChannels();
    compressor1D.reset();
    compressor3D.reset();
    bboxJob.reset();
}

float* NimbraFrameData::getChannelData(int channel) {
    if (channel < 0 || channel >= kChannelSlots)
        return nullptr;
    return getChannelProxy(channel).denseVoxels();
}

bool NimbraFrameData::hasChannel(int channel) const {
    if (channel == kPackedColor)
        return false;
    if (channelMask & channelBit(channel))
        return true;
    if (channel >= kColorR && channel <= kColorB)
        return (channelMask & channelBit(kPackedColor)) != 0;
    if (channel == kSpeed)
        return hasChannel(kVelocityX) && hasChannel(kVelocityY) && hasChannel(kVelocityZ);
    return false;
}

bool NimbraFrameData::hasChannels(std::uint32_t mask) const {
    for (int c = 0; c < kMaskTestChannels; ++c)
        if ((mask & channelBit(c)) && !hasChannel(c))
            return false;
    return true;
}

void NimbraFrameData::getGridSize(int dims[3]) const {
    std::copy_n(gridSize, 3, dims);
}

void NimbraFrameData::getTransform(float tm[12]) const {
    std::copy_n(transform, 12, tm);
}

int NimbraFrameData::getPrtGroupCount() const {
    return static_cast<int>(std::count_if(
        groups.begin(), groups.end(), [](const PGroup* g) { return g->hasChannel(kPrtPosition); }));
}

INimbraPrtGroup* NimbraFrameData::getPrtGroup(int index) {
    for (PGroup* g : groups)
        if (g->hasChannel(kPrtPosition) && index-- == 0)
            return g;
    return nullptr;
}

INimbraPrtGroup* NimbraFrameData::getPrtGroupByName(const char* name) {
    for (PGroup* g : groups)
        if (name && g->name == name)
            return g;
    return nullptr;
}

bool NimbraFrameData::getChannelRange(int channel, float& min, float& max) {
    if (channel < 0 || channel >= kChannelSlots)
        return false;
    const FrameLock guard(*this);
    Proxy& proxy = getChannelProxy(channel);
    if (!proxy.loaded)
        return false;
    if (!proxy.rangeKnown() && !proxy.scanRange(proxy.minValue, proxy.maxValue))
        return false;
    min = proxy.minValue;
    max = proxy.maxValue;
    return true;
}

bool NimbraFrameData::getChannelMinAndSpan(int channel, float out[2]) {
    float min, max;
    if (!getChannelRange(channel, min, max)) {
        out[0] = 0;
        out[1] = 1;
        return false;
    }
    out[0] = min;
    out[1] = max - min;
    return true;
}

int NimbraFrameData::readChannelRun(const int firstCell[3], int channel, int count, float* out) {
    const Proxy& proxy = getChannelProxy(channel);
    if (count > 0)
        std::fill_n(out, count, 0.0f);
    if (!proxy.loaded)
        return 0;
    const GridStorage& s = *proxy.storage;
    const std::int64_t first = firstCell[0] + firstCell[1] * s.strideY + firstCell[2] * s.strideZ;
    const std::int64_t begin = std::clamp<std::int64_t>(-first, 0, std::max(count, 0));
    const std::int64_t end = std::clamp<std::int64_t>(s.cells - first, begin, std::max(count, 0));
    proxy.readRun(first + begin, end - begin, out + begin);
    return 1;
}

int NimbraFrameData::readChannelCells(const int cell[3], int firstChannel, int count, float* out) {
    if (count > 0)
        std::fill_n(out, count, 0.0f);
    for (int i = 0; i < count; ++i) {
        const Proxy& proxy = getChannelProxy(firstChannel + i);
        if (!proxy.loaded || proxy.storage->cells < 1) {
            if (i == 0)
                return 0;
            continue;
        }
        const GridStorage& s = *proxy.storage;
        std::int64_t at[3];
        for (int a = 0; a < 3; ++a)
            at[a] = std::clamp<std::int32_t>(cell[a], 0, s.lastCell[a]);
        out[i] = proxy.read(at[0] + at[1] * s.strideY + at[2] * s.strideZ);
    }
    return 1;
}

void NimbraFrameData::flipUpAxis(int row) {
    std::swap_ranges(transform + 3, transform + 6, transform + 6);
    if (row >= 0 && row < 3)
        for (int i = 0; i < 3; ++i)
            transform[row * 3 + i] = -transform[row * 3 + i];
    upAxisFlipped ^= 1;
}

void NimbraFrameData::resetHeader(bool headerOnly) {
    flags = headerOnly ? std::uint32_t(kFrameHeaderOnly) : 0u;
    std::fill(std::begin(motionTm), std::end(motionTm), 0.0f);
    std::fill(std::begin(motionTm2), std::end(motionTm2), 0.0f);
    std::copy_n(kIdentity, 12, motionTm3);
    timeStep = kDefaultTimeStep;
    simInfo = SimInfo();
    simScale = kDefaultSimScale;
    std::fill(std::begin(bboxMin), std::end(bboxMin), kEmptyBoxMin);
    std::fill(std::begin(bboxMax), std::end(bboxMax), kEmptyBoxMax);
    freeChannels();
    std::fill(std::begin(channelFileValue), std::end(channelFileValue), -1);
    channelMask = 0;
    upAxisFlipped = 0;
}

void NimbraFrameData::freeData() {
    NMBUtils::freeMem(std::exchange(compressed, nullptr));
    compressedInts = 0;
    clearGroups();
    description.clear();
    for (auto& scratch : channelScratch)
        scratch.Clear();
}

bool NimbraFrameData::allocateCompressed(std::int32_t words) {
    NMBUtils::freeMem(std::exchange(compressed, nullptr));
    compressedInts = 0;
    if (words < 1)
        return words == 0;
    compressed = static_cast<std::int32_t*>(
        NMBUtils::allocZeroedArrayStore(static_cast<std::size_t>(words) * sizeof(std::int32_t)));
    if (!compressed)
        return false;
    compressedInts = words;
    return true;
}

void NimbraFrameData::setNoStoredGrid() {
    allocateCompressed(1);
    // Without memory the length alone says as much.
    compressedInts = 1;
}

NimbraFrameData::PGroup* NimbraFrameData::addGroup(const std::string& name) {
    try {
        auto group = std::make_unique<PGroup>();
        group->name = name;
        group->frame = this;
        return groups.Append(group.get()) ? group.release() : nullptr;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void NimbraFrameData::clearGroups() {
    for (PGroup* g : groups)
        delete g;
    groups.Clear();
}

void NimbraFrameData::freeChannel(int channel) {
    if (channel < 0 || channel >= kChannelSlots)
        return;
    channels[channel].free();
    channels[channel].resetRange();
}

void NimbraFrameData::freeChannels() {
    for (int c = 0; c < kChannelSlots; ++c)
        freeChannel(c);
    colorUnpacked_ = false;
}

}  // namespace nimbra
