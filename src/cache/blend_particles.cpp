// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/blend_particles.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <vector>

#include "cache/grid_samplers.h"
#include "cache/prt_group.h"
#include "foundation/log.h"
#include "foundation/parallel.h"

namespace nimbra {
namespace {

using PGroup = NimbraFrameData::PGroup;
using Places = NMBUtils::NmbArray<std::int32_t>;

constexpr std::int64_t kWordBytes = 4;
constexpr int kAhead = 24;      // particles that are fetched ahead
constexpr int kFloatType = 10;  // of INimbraPrtGroup::getChannelType

/// The moment between the frames.
struct Moment {
    float weight;
    /// Simulation time since the earlier frame.
    float elapsed;
    ParticleBlend method;
};

/// The group of one of the two frames.
struct Side {
    PGroup& group;
    int count;
    /// From the cells of its frame's grid to those of the result's.
    float shift[3];
    /// How long a particle that the other frame hasn't moves along its velocity.
    float motionTime = 0;
    const std::int64_t* ids = nullptr;
    const float* ages = nullptr;
    /// Null when there are none, or when they are in the grid.
    const float* velocities = nullptr;
    const float* positions = nullptr;
    bool velocityInGrid = false;
    GridChannelProxy<float> grid[3];

    /// Both grids have the same axes.
    Side(PGroup& ofGroup, const NimbraFrameData& frame, const NimbraFrameData& result)
        : group(ofGroup), count(std::max(ofGroup.count, 0)) {
        for (int axis = 0; axis < 3; ++axis)
            shift[axis] = result.transform[9 + axis] - frame.transform[9 + axis];
    }
    const unsigned char* data(int channel) const {
        const bool stored = group.channelMask & channelBit(channel);
        return stored && count > 0 ? group.channelData(channel) : nullptr;
    }
    const float* floats(int channel) const { return reinterpret_cast<const float*>(data(channel)); }
    /// The place of the particle whose ID is the rank-th.
    int placeOf(int rank) const {
        const IDORD& order = group.idOrder;
        if (order.size == 0)
            return rank;
        __builtin_prefetch(ids + order[std::min(rank + kAhead, count - 1)]);
        return order[rank];
    }

    void findVelocity() {
        positions = floats(kPrtPosition);
        velocities = floats(kPrtVelocity);
        const bool stored = group.channelMask & channelBit(kPrtVelocity);
        velocityInGrid = !stored && positions && group.gridVelocity(grid);
    }
    void velocityAt(int place, float out[3]) const {
        std::fill_n(out, 3, 0.0f);
        if (velocities)
            std::copy_n(velocities + std::int64_t(place) * 3, 3, out);
        else if (velocityInGrid)
            kSampleKernels[kLinearSampler * 8](grid, positions + std::int64_t(place) * 3, out, 3, 7,
                                               0);
    }
    void positionAt(int place, bool alone, float out[3]) const {
        for (int axis = 0; axis < 3; ++axis)
            out[axis] = positions[std::int64_t(place) * 3 + axis] + shift[axis];
        if (!alone || motionTime == 0)
            return;
        float velocity[3];
        velocityAt(place, velocity);
        for (int axis = 0; axis < 3; ++axis)
            out[axis] += velocity[axis] * motionTime;
    }
    /// Channels that the result may have. A group without particles doesn't stand in its way.
    std::uint32_t channels() const {
        if (count == 0)
            return ~0u;
        return group.channelMask | (velocityInGrid ? channelBit(kPrtVelocity) : 0);
    }
};

void logFailedChannel(int channel) {
    NMBUtils::logLine("[ERROR] Failed to allocate channel %d for blending particles!\n", channel);
}

/// The particles of the result, as places in the two groups; -1 where a particle isn't there.
class Selection {
public:
    Selection(Places& from, Places& to) : from_(from), to_(to) {}

    bool allocate(std::int64_t most) {
        return most <= std::numeric_limits<std::int32_t>::max() &&
               from_.SetSize(static_cast<int>(most), nullptr, true) &&
               to_.SetSize(static_cast<int>(most), nullptr, true);
    }
    /// Walks both groups in rising order of their IDs. Of equal IDs in one group the first goes
    /// with the first of the other, the second with the second, ...
    void byId(const Side& a, const Side& b, float elapsed) {
        for (int i = 0, j = 0; i < a.count || j < b.count;) {
            const int p = i < a.count ? a.placeOf(i) : kNone;
            const int q = j < b.count ? b.placeOf(j) : kNone;
            const bool takesA = q == kNone || (p != kNone && a.ids[p] <= b.ids[q]);
            const bool takesB = p == kNone || (q != kNone && b.ids[q] <= a.ids[p]);
            i += takesA;
            j += takesB;
            const float age = takesA ? a.ages[p] : b.ages[q];
            if ((takesA && takesB) || !(elapsed - age > 0))
                add(takesA ? p : kNone, takesB ? q : kNone);
        }
        shrink();
    }
    void byHash(const Side& a, const Side& b, double weight) {
        for (int i = 0; i < a.count; ++i)
            if (weight < crossFadeMoment(a.ids[i]))
                add(i, kNone);
        for (int i = 0; i < b.count; ++i)
            if (weight >= crossFadeMoment(b.ids[i]))
                add(kNone, i);
        shrink();
    }
    int count() const { return from_.size; }
    int from(std::int64_t k) const { return from_.data[k]; }
    int to(std::int64_t k) const { return to_.data[k]; }

private:
    static constexpr int kNone = -1;

    void add(int from, int to) {
        from_[count_] = from;
        to_[count_++] = to;
    }
    void shrink() {
        from_.SetSize(count_);
        to_.SetSize(count_);
    }

    Places& from_;
    Places& to_;
    int count_ = 0;
};

struct BlendedChannel {
    int id;
    int words;
    bool floats;
    const unsigned char* from;
    const unsigned char* to;
    unsigned char* out;
};

/// Fills the channels of the result.
class ChannelFill {
public:
    ChannelFill(const Side& a, const Side& b, const Selection& selection, float weight,
                const std::vector<BlendedChannel>& channels)
        : a_(a), b_(b), selection_(selection), weight_(weight), channels_(channels) {}

    std::int64_t particles() const { return selection_.count(); }
    /// Particles [first, last) of the result.
    void fill(std::int64_t first, std::int64_t last) const {
        for (const BlendedChannel& c : channels_) {
            if (!c.floats)
                copyWords(c, first, last);
            else if (c.id == kPrtPosition)
                mix<3>(c, first, last,
                       [](const Side& s, const auto*, int place, bool alone, float* out) {
                           s.positionAt(place, alone, out);
                       });
            else if (c.id == kPrtVelocity)
                mix<3>(c, first, last, [](const Side& s, const auto*, int place, bool, float* out) {
                    s.velocityAt(place, out);
                });
            else if (c.words == 3)
                mix<3>(c, first, last, readFloats<3>);
            else
                mix<1>(c, first, last, readFloats<1>);
        }
    }

private:
    /// Integers don't mix: those of the earlier frame, where it has the particle.
    void copyWords(const BlendedChannel& c, std::int64_t first, std::int64_t last) const {
        const std::int64_t stride = c.words * kWordBytes;
        for (std::int64_t k = first; k < last; ++k) {
            prefetch(c, k, last);
            const std::int64_t i = selection_.from(k), j = selection_.to(k);
            std::memcpy(c.out + k * stride, i >= 0 ? c.from + i * stride : c.to + j * stride,
                        static_cast<std::size_t>(stride));
        }
    }

    template <int Words>
    static void readFloats(const Side&, const unsigned char* values, int place, bool, float* out) {
        std::memcpy(out, values + std::int64_t(place) * Words * kWordBytes, Words * kWordBytes);
    }

    template <int Words, class Read>
    void mix(const BlendedChannel& c, std::int64_t first, std::int64_t last, Read read) const {
        for (std::int64_t k = first; k < last; ++k) {
            prefetch(c, k, last);
            const int i = selection_.from(k), j = selection_.to(k);
            float value[Words];
            if (j < 0) {
                read(a_, c.from, i, true, value);
            } else {
                read(b_, c.to, j, i < 0, value);
                if (i >= 0) {
                    float earlier[Words];
                    read(a_, c.from, i, false, earlier);
                    for (int w = 0; w < Words; ++w)
                        value[w] = (1 - weight_) * earlier[w] + weight_ * value[w];
                }
            }
            std::memcpy(c.out + k * Words * kWordBytes, value, sizeof value);
        }
    }

    /// Particles that lie in no order would each wait for memory.
    void prefetch(const BlendedChannel& c, std::int64_t k, std::int64_t last) const {
        const std::int64_t ahead = std::min(k + kAhead, last - 1);
        const std::int64_t stride = c.words * kWordBytes;
        if (const int i = selection_.from(ahead); i >= 0 && c.from)
            __builtin_prefetch(c.from + i * stride);
        if (const int j = selection_.to(ahead); j >= 0 && c.to)
            __builtin_prefetch(c.to + j * stride);
    }

    const Side& a_;
    const Side& b_;
    const Selection& selection_;
    const float weight_;
    const std::vector<BlendedChannel>& channels_;
};

/// A share of the particles in each job.
class MTBlendParticles final : public NMBUtils::NmbParallel {
public:
    explicit MTBlendParticles(const ChannelFill& fill) : fill_(fill) {
        SplitRange(fill.particles());
    }
    const char* GetName() const override { return "MTBlendParticles"; }
    void Run(NMBUtils::Job* job) override { fill_.fill(job->rangeStart, job->rangeEnd); }

private:
    const ChannelFill& fill_;
};

void fillByJobs(const ChannelFill& fill) {
    constexpr std::int64_t kWorthJobs = 1 << 15;
    try {
        if (fill.particles() >= kWorthJobs) {
            MTBlendParticles(fill).Start();
            return;
        }
    } catch (const std::bad_alloc&) {
        // Without memory for jobs, this thread does it all.
    }
    fill.fill(0, fill.particles());
}

/// Makes one group.
class GroupBlend {
public:
    GroupBlend(PGroup& result, const Side& a, const Side& b, const Moment& moment)
        : result_(result), a_(a), b_(b), moment_(moment) {}

    FrameStatus run() {
        // Frames of which only the header is loaded know nothing but counts.
        if (a_.group.channelMask == 0 || b_.group.channelMask == 0) {
            result_.count = static_cast<std::int32_t>((std::int64_t(a_.count) + b_.count) / 2);
            return kFrameLoaded;
        }
        for (Side* side : {&a_, &b_}) {
            side->ids = reinterpret_cast<const std::int64_t*>(side->data(kPrtId));
            if (side->count > 0 && !side->ids)
                return kFrameNoParticleId;
        }
        for (Side* side : {&a_, &b_}) {
            side->ages = moment_.method == kBlendById ? side->floats(kPrtAge) : nullptr;
            if (moment_.method == kBlendById && side->count > 0 && !side->ages)
                return kFrameNoParticleAge;
        }
        if (select()) {
            a_.findVelocity();
            b_.findVelocity();
            result_.count = selection_.count();
            allocateChannels();
            fillByJobs({a_, b_, selection_, moment_.weight, channels_});
        } else {
            logFailedChannel(kPrtId);
        }
        result_.store[kPrtId].blendFrom.Clear();
        result_.store[kPrtId].blendTo.Clear();
        return kFrameLoaded;
    }

private:
    bool select() {
        if (!selection_.allocate(std::int64_t(a_.count) + b_.count))
            return false;
        if (moment_.method == kBlendCrossFade) {
            selection_.byHash(a_, b_, moment_.weight);
            return true;
        }
        if ((a_.count > 0 && !a_.group.buildIdOrder()) ||
            (b_.count > 0 && !b_.group.buildIdOrder()))
            return false;
        selection_.byId(a_, b_, moment_.elapsed);
        return true;
    }

    void allocateChannels() {
        std::uint32_t mask = a_.channels() & b_.channels();
        if (a_.count == 0 && b_.count == 0)
            mask = a_.group.channelMask & b_.group.channelMask;
        else if (!a_.velocities && !b_.velocities)
            mask &= ~channelBit(kPrtVelocity);
        for (int c = 0; c < kPrtChannelSlots; ++c)
            if (mask & channelBit(c))
                allocateChannel(c);
    }
    /// A channel that can't be expanded is absent.
    void allocateChannel(int id) {
        const bool isVelocity = id == kPrtVelocity;
        const int words = prtChannelWords(id);
        const unsigned char* values[2] = {};
        const Side* const sides[2] = {&a_, &b_};
        for (int s = 0; s < 2 && words > 0; ++s) {
            values[s] = sides[s]->data(id);
            const bool there = values[s] || (isVelocity && sides[s]->velocityInGrid);
            if (sides[s]->count > 0 && !there)
                return;
        }
        if (!result_.allocateChannel(id))
            logFailedChannel(id);
        else if (words > 0)
            channels_.push_back({id, words, result_.getChannelType(id) == kFloatType, values[0],
                                 values[1], result_.store[id].data.data});
    }

    PGroup& result_;
    Side a_, b_;
    const Moment& moment_;
    Selection selection_{result_.store[kPrtId].blendFrom, result_.store[kPrtId].blendTo};
    std::vector<BlendedChannel> channels_;
};

/// For each group of a frame its partner in another one, null when there is none.
std::vector<PGroup*> partnersOf(const NimbraFrameData& frame, const NimbraFrameData& other) {
    std::vector<PGroup*> free(other.groups.begin(), other.groups.end()), partners;
    for (const PGroup* group : frame.groups) {
        const auto found = std::find_if(free.begin(), free.end(), [group](const PGroup* g) {
            return g && g->name == group->name;
        });
        partners.push_back(found != free.end() ? std::exchange(*found, nullptr) : nullptr);
    }
    return partners;
}

struct FailedGroups {
    bool any = false;
    std::string names;

    void add(const std::string& name) {
        names += (any ? ", " : "") + name;
        any = true;
    }
};

}  // namespace

double crossFadeMoment(std::int64_t id) {
    const auto x = static_cast<std::uint32_t>(id);
    const std::uint32_t mixed = ((x >> 16 ^ x) >> 7) ^ ((x * 8 ^ x) << 10) ^ x;
    return (mixed * 1103515245u - 865315532u) * 0x1p-32;
}

BlendResult blendParticles(NimbraFrameData& dst, NimbraFrameData& a, NimbraFrameData& b,
                           float weight, int particleMethod) {
    if (particleMethod != kBlendById && particleMethod != kBlendCrossFade)
        return {};
    const auto method = static_cast<ParticleBlend>(particleMethod);
    const double gap = std::fabs(b.simInfo.simTime() - a.simInfo.simTime());
    const Moment moment{weight, static_cast<float>(gap) * weight, method};
    const float direction = a.simInfo.simStep() > b.simInfo.simStep() ? -1.0f : 1.0f;
    FailedGroups withoutId, withoutAge;
    const std::vector<PGroup*> partners = partnersOf(a, b);
    for (std::size_t i = 0; i < partners.size(); ++i) {
        PGroup* const partner = partners[i];
        PGroup& group = *a.groups[static_cast<int>(i)];
        PGroup* const result = partner ? dst.addGroup(group.name) : nullptr;
        if (partner && !result)
            logFailedChannel(kPrtPosition);
        if (!result)
            continue;
        Side from(group, a, dst), to(*partner, b, dst);
        result->flags = from.count > 0 ? group.flags : partner->flags;
        std::copy_n(group.userValue, std::size(group.userValue), result->userValue);
        if (method == kBlendById) {
            from.motionTime = weight * a.timeStep * direction;
            to.motionTime = weight * b.timeStep * direction;
        }
        const FrameStatus status = GroupBlend(*result, from, to, moment).run();
        if (status == kFrameNoParticleId)
            withoutId.add(group.name);
        else if (status == kFrameNoParticleAge)
            withoutAge.add(group.name);
    }
    if (withoutId.any)
        return {kFrameNoParticleId, withoutId.names};
    return withoutAge.any ? BlendResult{kFrameNoParticleAge, withoutAge.names} : BlendResult{};
}

}  // namespace nimbra
