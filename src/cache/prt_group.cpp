// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/prt_group.h"

#include <algorithm>
#include <cstring>
#include <numeric>

#include "cache/grid_samplers.h"

namespace nimbra {
namespace {

enum TypeCode : int { kWords = 0, kOther = 6, kInt64 = 7, kFloat = 10 };

struct ChannelInfo {
    const char* name;
    int words;
    TypeCode type;
};

constexpr ChannelInfo kChannels[] = {
    {"Position", 3, kFloat},   // 0
    {"Velocity", 3, kFloat},   // 1
    {"Size", 1, kFloat},       // 2
    {"Age", 1, kFloat},        // 3
    {"RGB", 3, kFloat},        // 4
    {nullptr, 1, kFloat},      // 5
    {nullptr, 0, kWords},      // 6
    {nullptr, 0, kWords},      // 7
    {nullptr, 0, kWords},      // 8
    {nullptr, 1, kFloat},      // 9
    {"ID", 2, kInt64},         // 10
    {nullptr, 1, kFloat},      // 11
    {nullptr, 1, kOther},      // 12
    {nullptr, 1, kOther},      // 13
    {nullptr, 1, kOther},      // 14
    {nullptr, 1, kOther},      // 15
    {nullptr, 1, kOther},      // 16
    {"Viscosity", 1, kFloat},  // 17
};
constexpr int kNamedChannels = static_cast<int>(std::size(kChannels));
constexpr ChannelInfo kFurtherChannel = {nullptr, 1, kWords};

const ChannelInfo& infoOf(int channel) {
    return channel >= 0 && channel < kNamedChannels ? kChannels[channel] : kFurtherChannel;
}

/// Places in rising order of their IDs, equal ones in rising order, by one stable pass for each
/// byte in which the IDs differ (D. Knuth, The Art of Computer Programming 3, 5.2.5). False without
/// memory.
bool sortByDigits(const std::int64_t* ids, IDORD& order) {
    struct Entry {
        std::uint64_t key;
        std::int32_t place;
    };
    constexpr std::size_t kDigits = sizeof(std::uint64_t), kDigitValues = 256;
    constexpr std::uint64_t kSign = std::uint64_t{1} << 63;  // negative IDs come first
    const auto digitOf = [](std::uint64_t key, std::size_t d) { return key >> (8 * d) & 0xFF; };
    NMBUtils::NmbArray<Entry> from, to;
    if (!from.SetSize(order.size, nullptr, true) || !to.SetSize(order.size, nullptr, true))
        return false;
    std::int32_t places[kDigits][kDigitValues] = {};
    for (int i = 0; i < order.size; ++i) {
        from[i] = {static_cast<std::uint64_t>(ids[i]) ^ kSign, i};
        for (std::size_t d = 0; d < kDigits; ++d)
            ++places[d][digitOf(from[i].key, d)];
    }
    for (std::size_t d = 0; d < kDigits; ++d) {
        if (places[d][digitOf(from[0].key, d)] == order.size)
            continue;
        std::exclusive_scan(places[d], places[d] + kDigitValues, places[d], 0);
        for (const Entry& entry : from)
            to[places[d][digitOf(entry.key, d)]++] = entry;
        std::swap(from.data, to.data);
    }
    for (int i = 0; i < order.size; ++i)
        order[i] = from[i].place;
    return true;
}

/// The same without further memory.
void sortInPlace(const std::int64_t* ids, IDORD& order) {
    std::iota(order.begin(), order.end(), 0);
    std::sort(order.begin(), order.end(),
              [ids](int a, int b) { return ids[a] != ids[b] ? ids[a] < ids[b] : a < b; });
}

}  // namespace

int prtChannelWords(int channel) {
    return infoOf(channel).words;
}

const char* prtChannelName(int channel) {
    return infoOf(channel).name;
}

int NimbraFrameData::PGroup::getChannelStride(int channel) const {
    return infoOf(channel).words * 4;
}

int NimbraFrameData::PGroup::getChannelType(int channel) const {
    return infoOf(channel).type;
}

int NimbraFrameData::PGroup::getChannelComponents(int channel) const {
    return channel == kPrtId ? 1 : infoOf(channel).words;
}

int NimbraFrameData::PGroup::getCount() const {
    return channelMask & channelBit(kPrtPosition) ? count : 0;
}

bool NimbraFrameData::PGroup::hasChannel(int channel) const {
    if (channelMask & channelBit(channel))
        return true;
    return channel == kPrtVelocity && flags == kPrtVelocityInGrid && frame &&
           frame->hasChannels(7u << kVelocityX);
}

bool NimbraFrameData::PGroup::getValue(int index, int channel, void* out) {
    if (index < 0 || index >= count || channel < 0 || channel >= kPrtChannelSlots)
        return false;
    if (channel == kPrtVelocity && !(channelMask & channelBit(channel)))
        return velocityFromGrid(index, static_cast<float*>(out));
    const std::int64_t stride = getChannelStride(channel);
    if (!hasChannel(channel) || !decompressChannel(channel, true) ||
        (index + 1) * stride > store[channel].data.size)
        return false;
    if (stride > 0)
        std::memcpy(out, store[channel].data.data + index * stride,
                    static_cast<std::size_t>(stride));
    return true;
}

bool NimbraFrameData::PGroup::gridVelocity(Proxy velocity[3]) const {
    if (flags != kPrtVelocityInGrid || !frame)
        return false;
    for (int axis = 0; axis < 3; ++axis)
        velocity[axis] = frame->getChannelProxy(kVelocityX + axis);
    return velocity[0].loaded && velocity[1].loaded && velocity[2].loaded;
}

bool NimbraFrameData::PGroup::velocityFromGrid(int index, float out[3]) {
    std::fill_n(out, 3, 0.0f);
    float position[3];
    Proxy velocity[3];
    if (!gridVelocity(velocity) || !getValue(index, kPrtPosition, position))
        return false;
    kSampleKernels[kLinearSampler * 8](velocity, position, out, 3, 7, 0);
    return true;
}

bool NimbraFrameData::PGroup::allocateChannel(int channel) {
    if (channel < 0 || channel >= kPrtChannelSlots || count < 0)
        return false;
    PrtChannelStore& s = store[channel];
    const std::int64_t bytes = std::int64_t(count) * getChannelStride(channel);
    const std::lock_guard guard(s.lock);
    s.packed.Clear();
    channelMask &= ~channelBit(channel);
    s.expanded.store(false, std::memory_order_release);
    if (!s.data.SetSize(bytes, nullptr, true))
        return false;
    channelMask |= channelBit(channel);
    s.expanded.store(bytes > 0, std::memory_order_release);
    return true;
}

bool NimbraFrameData::PGroup::setChannel(int channel, const void* values) {
    if (!allocateChannel(channel))
        return false;
    const auto& data = store[channel].data;
    if (data.size > 0)
        std::memcpy(data.data, values, static_cast<std::size_t>(data.size));
    return true;
}

const unsigned char* NimbraFrameData::PGroup::channelData(int channel) {
    const bool stored = channel >= 0 && (channelMask & channelBit(channel));
    if (!stored || !decompressChannel(channel, true))
        return nullptr;
    const PrtChannelStore& s = store[channel];
    return s.data.size >= std::int64_t(count) * getChannelStride(channel) ? s.data.data : nullptr;
}

const std::int64_t* NimbraFrameData::PGroup::ids() {
    return reinterpret_cast<const std::int64_t*>(channelData(kPrtId));
}

bool NimbraFrameData::PGroup::buildIdOrder() {
    const std::lock_guard guard(lock);
    if (orderKnown_.load(std::memory_order_relaxed))
        return true;
    idPointer = ids();
    std::int64_t before = 0;
    bool ascending = true;
    for (int i = 0; idPointer && i < count; ++i) {
        ascending = ascending && idPointer[i] >= before;
        before = idPointer[i];
    }
    const bool done = ascending || idOrder.SetSize(count, nullptr, true);
    if (done && !ascending && !sortByDigits(idPointer, idOrder))
        sortInPlace(idPointer, idOrder);
    idPointer = nullptr;
    orderKnown_.store(done, std::memory_order_release);
    return done;
}

int NimbraFrameData::PGroup::findById(std::int64_t id) {
    const std::int64_t* const values = ids();
    if (!values)
        return -1;
    if (count <= 1)
        return count == 1 && values[0] == id ? 0 : -1;
    if (!orderKnown_.load(std::memory_order_acquire) && !buildIdOrder()) {
        const std::int64_t* const found = std::find(values, values + count, id);
        return found != values + count ? static_cast<int>(found - values) : -1;
    }
    const auto indexAt = [this](int place) { return idOrder.size ? idOrder[place] : place; };
    int low = 0, high = count;
    while (low < high) {
        const int middle = low + (high - low) / 2;
        if (values[indexAt(middle)] < id)
            low = middle + 1;
        else
            high = middle;
    }
    return low < count && values[indexAt(low)] == id ? indexAt(low) : -1;
}

}  // namespace nimbra
