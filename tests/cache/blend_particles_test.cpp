// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cache/blend_particles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <map>
#include <numeric>
#include <random>
#include <vector>

#include "cache/prt_group.h"
#include "cache/test_grids.h"
#include "support/caught_log.h"
#include "support/failing_allocations.h"
#include "support/golden.h"
#include "support/lent_threads.h"

namespace nimbra {
namespace {

using PGroup = NimbraFrameData::PGroup;
using Ids = std::vector<std::int64_t>;
using Floats = std::vector<float>;

/// A group of particles with IDs; further channels by `with`.
struct Maker {
    PGroup& group;

    Maker(NimbraFrameData& frame, const std::string& name, const Ids& ids)
        : Maker(frame, name, static_cast<int>(ids.size())) {
        EXPECT_TRUE(group.setChannel(kPrtId, ids.data()));
    }
    Maker(NimbraFrameData& frame, const std::string& name, int count)
        : group(*frame.addGroup(name)) {
        group.count = count;
    }
    const Maker& with(int channel, const Floats& values) const {
        EXPECT_EQ(values.size() * 4, static_cast<std::size_t>(group.count) *
                                         static_cast<std::size_t>(group.getChannelStride(channel)));
        EXPECT_TRUE(group.setChannel(channel, values.data()));
        return *this;
    }
    /// Every value of the channel.
    const Maker& of(int channel, float value) const {
        return with(
            channel,
            Floats(static_cast<std::size_t>(group.count * prtChannelWords(channel)), value));
    }
};

constexpr std::uint32_t kPositions = 1u << kPrtPosition, kSizes = 1u << kPrtSize,
                        kAges = 1u << kPrtAge, kIds = 1u << kPrtId, kSound = 1 | kAges | kIds;

/// A group with these channels: IDs from 1 on, all other values 1.
PGroup& makeGroup(NimbraFrameData& frame, const std::string& name, int count,
                  std::uint32_t channels) {
    const Maker made(frame, name, std::max(count, 0));
    for (int c = 0; c < kPrtChannelSlots; ++c)
        if ((channels & channelBit(c)) && c != kPrtId)
            made.of(c, 1);
    if (channels & kIds) {
        Ids ids(static_cast<std::size_t>(made.group.count));
        std::iota(ids.begin(), ids.end(), 1);
        EXPECT_TRUE(made.group.setChannel(kPrtId, ids.data()));
    }
    made.group.count = count;
    return made.group;
}

Floats floatsOf(PGroup& group, int channel) {
    const auto* const values = reinterpret_cast<const float*>(group.channelData(channel));
    return values ? Floats(values, values + group.count * prtChannelWords(channel)) : Floats{};
}

Ids idsOf(PGroup& group) {
    const auto* const ids = reinterpret_cast<const std::int64_t*>(group.channelData(kPrtId));
    return ids ? Ids(ids, ids + group.count) : Ids{};
}

/// Two frames one second apart, and what is between them.
struct Blend {
    NimbraFrameData a, b, dst;

    Blend() {
        b.simInfo.setSimTime(1);
        a.timeStep = b.timeStep = 2;
    }
    BlendResult run(float weight, int method = kBlendById) {
        return blendParticles(dst, a, b, weight, method);
    }
    PGroup& result(int index = 0) { return *dst.groups[index]; }
};

// Beside what the golden cases hold.
TEST(BlendParticles, ById_ChannelsAgesAndDirection) {
    Blend blend;
    // 4 is in both; 9 dies and 2 is born, 7 and 1 are too young for the moment.
    Maker(blend.a, "Foam", Ids{9, 4, 7})
        .with(kPrtPosition, {1, 1, 1, 0, 0, 8, 5, 5, 5})
        .with(kPrtVelocity, {1, 2, 4, 0, 4, 0, 9, 9, 9})
        .with(kPrtAge, {0.25f, 0, 0.125f})
        .with(12, {1, 2, 3})
        .of(kPrtColor, 1);
    Maker(blend.b, "Foam", Ids{4, 2, 1})
        .with(kPrtPosition, {4, 0, 0, 2, 2, 2, 6, 6, 6})
        .with(kPrtVelocity, {8, 0, 0, -1, 0, 1, 9, 9, 9})
        .with(kPrtAge, {1, 0.5f, 0})
        .with(12, {4, 5, 6})
        .of(kPrtViscosity, 1);
    blend.a.groups[0]->userValue[3] = 77;
    // A cache that plays backwards moves those backwards that one frame has.
    for (const int backwards : {0, 1}) {
        blend.dst.clearGroups();
        blend.a.simInfo.setSimStep(backwards);
        EXPECT_EQ(blend.run(0.25f).message, "");
        PGroup& result = blend.result();
        EXPECT_EQ(result.frame, &blend.dst);
        EXPECT_EQ(result.userValue[3], 77);
        EXPECT_EQ(idsOf(result), (Ids{2, 4, 9}));
        EXPECT_EQ(floatsOf(result, kPrtPosition),
                  backwards ? (Floats{2.5f, 2, 1.5f, 1, 0, 6, 0.5f, 0, -1})
                            : (Floats{1.5f, 2, 2.5f, 1, 0, 6, 1.5f, 2, 3}));
        EXPECT_EQ(floatsOf(result, 12), (Floats{5, 2, 1})) << "integers: a's where it has one";
        EXPECT_EQ(result.channelMask, kSound | 1u << kPrtVelocity | 1u << 12) << "those of both";
        EXPECT_EQ(result.findById(9), 2);
        EXPECT_EQ(result.store[kPrtId].blendFrom.data, nullptr);
    }
}

TEST(BlendParticles, Groups_MatchByName) {
    Blend blend;
    for (const auto& [name, count] :
         {std::pair{"only a", 1}, {"twice", 1}, {"twice", 2}, {"twice", 3}})
        makeGroup(blend.a, name, count, kSound);
    for (const auto& [name, count] : {std::pair{"twice", 1}, {"only b", 1}, {"twice", 2}})
        makeGroup(blend.b, name, count, kSound);
    for (int method : {0, 1, 2, 255, -1}) {
        blend.dst.clearGroups();
        EXPECT_EQ(blend.run(0.5f, method).status, kFrameLoaded);
        ASSERT_EQ(blend.dst.groups.size, method == 0 || method == 1 ? 2 : 0) << method;
        for (int i = 0; i < blend.dst.groups.size; ++i) {
            EXPECT_EQ(blend.result(i).name, "twice");
            EXPECT_EQ(blend.result(i).count, i + 1);
        }
    }
}

TEST(BlendParticles, EmptyAndHeaderOnlyGroups) {
    constexpr int kMost = std::numeric_limits<int>::max();
    const struct {
        int countA;
        std::uint32_t ofA;
        int countB;
        std::uint32_t ofB;
        int count;
        std::uint32_t channels;
    } cases[] = {{10, 0, 5, kIds, 7, 0},  // a header's counts
                 {kMost, 0, kMost, 0, kMost, 0},
                 {0, kPositions, 2, kSound, 2, kSound},
                 {0, kIds | kPositions, 0, kIds | kSizes, 0, kIds},
                 {-5, kIds, 1, kIds | kAges, 1, kIds | kAges}};
    for (const auto& c : cases) {
        Blend blend;
        makeGroup(blend.a, "g", c.countA, c.ofA);
        makeGroup(blend.b, "g", c.countB, c.ofB);
        EXPECT_EQ(blend.run(0.5f).status, kFrameLoaded);
        EXPECT_EQ(blend.result().count, c.count);
        EXPECT_EQ(blend.result().channelMask, c.channels) << c.count;
    }
}

TEST(BlendParticles, MissingIdsAndAges_AreToldByGroup) {
    Blend blend;
    makeGroup(blend.a, "sound", 2, kSound);
    makeGroup(blend.b, "sound", 2, kSound);
    makeGroup(blend.a, "no age", 2, kSound);
    makeGroup(blend.b, "no age", 2, kSound & ~kAges);
    makeGroup(blend.a, "no age too", 2, kSound & ~kAges);
    makeGroup(blend.b, "no age too", 2, kSound);
    BlendResult answer = blend.run(0.5f);
    EXPECT_EQ(answer.status, kFrameNoParticleAge);
    EXPECT_EQ(answer.message, "no age, no age too");
    EXPECT_EQ(blend.run(0.5f, kBlendCrossFade).status, kFrameLoaded);
    makeGroup(blend.a, "", 2, kSound);
    makeGroup(blend.b, "", 2, kSound & ~kIds);
    makeGroup(blend.a, "nothing", 2, kPositions);
    makeGroup(blend.b, "nothing", 2, kPositions);
    for (int method : {kBlendById, kBlendCrossFade}) {
        blend.dst.clearGroups();
        answer = blend.run(0.5f, method);
        EXPECT_EQ(answer.status, kFrameNoParticleId);
        EXPECT_EQ(answer.message, ", nothing");
        EXPECT_EQ(blend.result(0).count, 2);
        EXPECT_EQ(blend.result(4).count, 0);
        EXPECT_EQ(blend.result(4).channelMask, 0u);
    }
}

TEST(BlendParticles, UnsortedDoubledAndNegativeIds) {
    const Ids a = {5, -3, 5, INT64_MAX, 5, 0, INT64_MIN}, b = {5, 6, 5, INT64_MIN, -3};
    Blend blend;
    Maker(blend.a, "g", a).of(kPrtAge, 1).with(kPrtSize, {1, 2, 3, 4, 5, 6, 7});
    Maker(blend.b, "g", b).of(kPrtAge, 1).with(kPrtSize, {10, 20, 30, 40, 50});
    blend.run(0.5f);
    EXPECT_EQ(idsOf(blend.result()), (Ids{INT64_MIN, -3, 0, 5, 5, 5, 6, INT64_MAX}));
    EXPECT_EQ(floatsOf(blend.result(), kPrtSize), (Floats{23.5f, 26, 6, 5.5f, 16.5f, 5, 20, 4}));
}

TEST(BlendParticles, Positions_AreInCellsOfTheResult) {
    Blend blend;
    blend.a.transform[9] = 10;
    blend.b.transform[9] = 12.5f;
    blend.dst.transform[9] = 8;
    const Floats positions = {20, 1, 2, 20, 3, 4};
    Maker(blend.a, "g", Ids{1, 2}).of(kPrtAge, 1).with(kPrtPosition, positions);
    Maker(blend.b, "g", Ids{1, 3}).of(kPrtAge, 1).with(kPrtPosition, positions);
    blend.run(0.5f);
    blend.run(1, kBlendCrossFade);
    EXPECT_EQ(floatsOf(blend.result(0), kPrtPosition),
              (Floats{16.75f, 1, 2, 18, 3, 4, 15.5f, 3, 4}));
    EXPECT_EQ(floatsOf(blend.result(1), kPrtPosition), (Floats{15.5f, 1, 2, 15.5f, 3, 4}));
}

TEST(BlendParticles, VelocityInTheGrid) {
    for (const bool bStores : {false, true}) {
        Blend blend;
        for (NimbraFrameData* frame : {&blend.a, &blend.b}) {
            std::fill_n(frame->gridSize, 3, 8);
            for (int axis = 0; axis < 3; ++axis)
                frame->channels[kVelocityX + axis] = test::denseChannel(
                    {8, 8, 8}, [axis](int x, int, int) { return axis == 0 ? float(x) : 0; });
            frame->channelMask = 7u << kVelocityX;
            const Maker made(*frame, "Liquid", Ids{1, frame == &blend.a ? 2 : 3});
            made.of(kPrtAge, 1).with(kPrtPosition, {2, 2, 2, 1.5f, 3, 3});
            if (bStores && frame == &blend.b)
                made.of(kPrtVelocity, 1);
            else
                made.group.flags = kPrtVelocityInGrid;
        }
        blend.run(0.25f);
        PGroup& result = blend.result();
        // The one of b moves by its own velocity.
        EXPECT_EQ(floatsOf(result, kPrtPosition),
                  bStores ? (Floats{2, 2, 2, 2.25f, 3, 3, 2, 3.5f, 3.5f})
                          : (Floats{2, 2, 2, 2.25f, 3, 3, 2.25f, 3, 3}));
        EXPECT_EQ(result.flags, kPrtVelocityInGrid);
        EXPECT_EQ(floatsOf(result, kPrtVelocity),
                  bStores ? (Floats{1.75f, 0.25f, 0.25f, 1.5f, 0, 0, 1, 1, 1}) : Floats{});
    }
}

TEST(BlendParticles, StoresThatFailToExpand_AreAbsent) {
    test::CaughtLog log;
    constexpr std::uint32_t kAll = kSound | 1u << kPrtVelocity | 1u << 12;
    for (const auto& [channel, status] : {std::pair{int(kPrtPosition), kFrameLoaded},
                                          {int(kPrtVelocity), kFrameLoaded},
                                          {12, kFrameLoaded},
                                          {int(kPrtId), kFrameNoParticleId},
                                          {int(kPrtAge), kFrameNoParticleAge}}) {
        Blend blend;
        makeGroup(blend.a, "g", 3, kAll);
        ASSERT_TRUE(makeGroup(blend.b, "g", 3, kAll).allocatePacked(channel, kPrtZip, 3));
        EXPECT_EQ(blend.run(0.5f).status, status) << channel;
        EXPECT_EQ(blend.result().channelMask, status == kFrameLoaded ? kAll & ~(1u << channel) : 0);
    }
}

TEST(BlendParticles, AnyAllocationThatFails_LeavesOutAChannel) {
    test::CaughtLog log;
    for (const int method : {kBlendById, kBlendCrossFade}) {
        Blend blend;
        for (NimbraFrameData* frame : {&blend.a, &blend.b})
            makeGroup(*frame, "g", 3, kSound | 1u << 12);
        std::map<std::string, int> missing;
        std::string text;
        test::failEachAllocation(
            25, [&] { return blend.run(0.5f, method).status; },
            [&](int status) {
                EXPECT_EQ(status, kFrameLoaded);
                text = log.take();
                ++missing[text.substr(text.rfind('[', text.size()) + 1)];
                EXPECT_TRUE(!text.empty() || blend.result().count == 3);
                blend.dst.clearGroups();
                for (NimbraFrameData* frame : {&blend.a, &blend.b})
                    frame->groups[0]->idOrder.Clear();
            });
        EXPECT_EQ(text, "") << "all allocations had their turn";
        const auto failures = [&](int channel) {
            return missing["ERROR] Failed to allocate channel " + std::to_string(channel) +
                           " for blending particles!\n"];
        };
        EXPECT_EQ(failures(kPrtAge), 1);
        EXPECT_EQ(failures(12), 1);
        EXPECT_EQ(failures(kPrtPosition), 2);  // and when there is no group
        EXPECT_GE(failures(kPrtId), 3);        // and without the lists
    }
}

/// Enough for several jobs.
TEST(BlendParticles, ManyThreads_AsOne) {
    constexpr int kCount = 100000;
    Blend blend;
    std::mt19937_64 random(3);
    for (NimbraFrameData* frame : {&blend.a, &blend.b}) {
        Ids ids(kCount);
        std::iota(ids.begin(), ids.end(), frame == &blend.a ? 0 : kCount / 2);
        std::shuffle(ids.begin(), ids.end(), random);
        Floats positions(ids.begin(), ids.end());
        positions.resize(std::size_t(kCount) * 3);
        Maker(*frame, "g", ids).of(kPrtAge, 1).with(kPrtPosition, positions);
    }
    blend.run(0.75f);
    const test::LentThreads lent(3);
    blend.run(0.75f);
    Ids expected(kCount * 3 / 2);
    std::iota(expected.begin(), expected.end(), 0);
    for (const int run : {0, 1})
        EXPECT_EQ(idsOf(blend.result(run)), expected);
    EXPECT_EQ(floatsOf(blend.result(0), kPrtPosition), floatsOf(blend.result(1), kPrtPosition));
}

void fillGolden(NimbraFrameData& frame, const nlohmann::json& json) {
    frame.timeStep = test::floatOf(json["timeStep"]);
    frame.simInfo.setSimTime(json["simTime"]);
    frame.simInfo.setSimStep(json["simStep"]);
    const Maker made(frame, "g", json["ids"].get<Ids>());
    const auto flat = [](const nlohmann::json& rows) {
        Floats out;
        for (const auto& row : rows)
            for (const auto& value : row)
                out.push_back(test::floatOf(value));
        return out;
    };
    made.with(kPrtPosition, flat(json["position"])).with(kPrtVelocity, flat(json["velocity"]));
    made.with(kPrtSize, test::floatsOf(json["size"])).with(kPrtAge, test::floatsOf(json["age"]));
}

TEST(BlendParticles, Golden_ById) {
    for (const test::GoldenCase& golden : test::goldenCases("groups"))
        for (const auto& json : golden.json["by_id"]) {
            Blend blend;
            fillGolden(blend.a, json["a"]);
            fillGolden(blend.b, json["b"]);
            blend.run(test::floatOf(json["weight"]));
            PGroup& result = blend.result();
            const auto& particles = json["expected"]["particles"];
            ASSERT_EQ(result.count, std::ssize(particles));
            const Ids ids = idsOf(result);
            const test::Tolerance tolerance(golden.json["tolerance"]),
                forPosition(golden.json["tolerance"], "position_");
            const auto expect = [&](int channel, int k, const nlohmann::json& value) {
                Floats got(static_cast<std::size_t>(prtChannelWords(channel)));
                ASSERT_TRUE(result.getValue(k, channel, got.data()));
                for (std::size_t w = 0; w < got.size(); ++w)
                    test::expectGolden(golden, channel == kPrtPosition ? forPosition : tolerance,
                                       got[w], test::numberOf(value.is_array() ? value[w] : value),
                                       "channel " + std::to_string(channel));
            };
            for (int k = 0; k < result.count; ++k) {
                const auto& particle = particles[static_cast<std::size_t>(k)];
                EXPECT_EQ(ids[static_cast<std::size_t>(k)], particle["id"]);
                expect(kPrtPosition, k,
                       particle.contains("position") ? particle["position"]
                                                     : particle["position_by_weight"]);
                expect(kPrtVelocity, k, particle["velocity"]);
                expect(kPrtSize, k, particle["size"]);
                expect(kPrtAge, k, particle["age"]);
            }
        }
}

TEST(BlendParticles, Golden_CrossFadeAndStatuses) {
    for (const test::GoldenCase& golden : test::goldenCases("groups")) {
        for (const auto& json : golden.json["cross_fade"]) {
            Blend blend;
            Ids expected;
            const char* const keys[2][2] = {{"a_ids", "taken_from_a"}, {"b_ids", "taken_from_b"}};
            for (const int f : {0, 1}) {
                const Ids ids = json[keys[f][0]].get<Ids>();
                Maker(f == 0 ? blend.a : blend.b, "g", ids);
                for (const std::size_t i : json["expected"][keys[f][1]])
                    expected.push_back(ids[i]);
            }
            blend.run(test::floatOf(json["weight"]), kBlendCrossFade);
            EXPECT_EQ(idsOf(blend.result()), expected);
        }
        for (const auto& json : golden.json["statuses"]) {
            Blend blend;
            for (const int f : {0, 1}) {
                std::uint32_t channels = 0;
                for (const int channel : json[f == 0 ? "a_channels" : "b_channels"])
                    channels |= channelBit(channel);
                makeGroup(f == 0 ? blend.a : blend.b, "g", 3, channels);
            }
            EXPECT_EQ(blend.run(0.5f).status, json["status"]);
        }
    }
    for (const test::GoldenCase& golden : test::goldenCases("streams"))
        for (const auto& json : golden.json["numbers"])
            EXPECT_EQ(crossFadeMoment(json["id"]) * 0x1p32,
                      static_cast<double>(
                          std::stoull(json["plain_hash"].get<std::string>(), nullptr, 16)));
}

}  // namespace
}  // namespace nimbra
