// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cache/blend_particles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <numeric>
#include <random>
#include <vector>

#include "cache/prt_group.h"
#include "cache/test_grids.h"
#include "cache/test_log.h"
#include "support/golden.h"
#include "support/lent_threads.h"
#include "tessra/allocator.h"

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

TEST(BlendParticles, ById_MixesPairsAndMovesTheOthers) {
    Blend blend;
    // 4 is in both; 9 dies and 2 is born, 7 and 1 are too young for the moment.
    Maker(blend.a, "Foam", Ids{9, 4, 7})
        .with(kPrtPosition, {1, 1, 1, 0, 0, 8, 5, 5, 5})
        .with(kPrtVelocity, {1, 2, 4, 0, 4, 0, 9, 9, 9})
        .with(kPrtAge, {0.25f, 0, 0.125f})
        .with(kPrtSize, {10, 20, 30})
        .with(12, {1, 2, 3})
        .of(kPrtColor, 1);
    Maker(blend.b, "Foam", Ids{4, 2, 1})
        .with(kPrtPosition, {4, 0, 0, 2, 2, 2, 6, 6, 6})
        .with(kPrtVelocity, {8, 0, 0, -1, 0, 1, 9, 9, 9})
        .with(kPrtAge, {1, 0.5f, 0})
        .with(kPrtSize, {40, 50, 60})
        .with(12, {4, 5, 6})
        .of(kPrtViscosity, 1);
    blend.a.groups[0]->userValue[3] = 77;
    const BlendResult answer = blend.run(0.25f);
    EXPECT_EQ(answer.status, kFrameLoaded);
    EXPECT_EQ(answer.message, "");
    PGroup& result = blend.result();
    EXPECT_EQ(result.name, "Foam");
    EXPECT_EQ(result.frame, &blend.dst);
    EXPECT_EQ(result.userValue[3], 77);
    EXPECT_EQ(idsOf(result), (Ids{2, 4, 9}));
    EXPECT_EQ(floatsOf(result, kPrtPosition), (Floats{1.5f, 2, 2.5f, 1, 0, 6, 1.5f, 2, 3}));
    EXPECT_EQ(floatsOf(result, kPrtVelocity), (Floats{-1, 0, 1, 2, 3, 0, 1, 2, 4}));
    EXPECT_EQ(floatsOf(result, kPrtAge), (Floats{0.5f, 0.25f, 0.25f}));
    EXPECT_EQ(floatsOf(result, kPrtSize), (Floats{50, 25, 10}));
    // Integers: a's, and b's where a has none. A channel that only one has is left out.
    EXPECT_EQ(floatsOf(result, 12), (Floats{5, 2, 1}));
    EXPECT_EQ(result.channelMask, 1u << kPrtPosition | 1u << kPrtVelocity | 1u << kPrtSize |
                                      1u << kPrtAge | 1u << kPrtId | 1u << 12);
    EXPECT_EQ(result.findById(9), 2);
    EXPECT_EQ(result.idOrder.size, 0);
    EXPECT_EQ(result.store[kPrtId].blendFrom.data, nullptr);
    EXPECT_EQ(result.store[kPrtId].blendTo.data, nullptr);

    // A cache that plays backwards moves them backwards.
    blend.dst.clearGroups();
    blend.a.simInfo.setSimStep(1);
    blend.run(0.25f);
    EXPECT_EQ(floatsOf(blend.result(), kPrtPosition),
              (Floats{2.5f, 2, 1.5f, 1, 0, 6, 0.5f, 0, -1}));
}

TEST(BlendParticles, Groups_MatchByName) {
    Blend blend;
    const auto add = [](NimbraFrameData& frame, const char* name, const Ids& ids) {
        Maker(frame, name, ids).of(kPrtAge, 9);
    };
    add(blend.a, "only a", {1});
    add(blend.a, "twice", {1});
    add(blend.a, "twice", {2});
    add(blend.a, "twice", {3});
    add(blend.b, "twice", {1});
    add(blend.b, "only b", {1});
    add(blend.b, "twice", {2});
    for (int method : {0, 1, 2, 255, -1}) {
        blend.dst.clearGroups();
        EXPECT_EQ(blend.run(0.5f, method).status, kFrameLoaded);
        ASSERT_EQ(blend.dst.groups.size, method == 0 || method == 1 ? 2 : 0) << method;
        for (int i = 0; i < blend.dst.groups.size; ++i) {
            EXPECT_EQ(blend.result(i).name, "twice");
            EXPECT_EQ(idsOf(blend.result(i)), Ids{i + 1});
        }
    }
}

TEST(BlendParticles, EmptyAndHeaderOnlyGroups) {
    Blend blend;
    // No mask: a header's counts.
    Maker(blend.a, "header", 10);
    Maker(blend.b, "header", Ids{1, 2, 3, 4, 5});
    Maker(blend.a, "huge", 0x7FFFFFFF);
    Maker(blend.b, "huge", 0x7FFFFFFF);
    // All are born or die.
    Maker(blend.a, "born", 0).of(kPrtPosition, 0);
    Maker(blend.b, "born", Ids{3, 1}).of(kPrtAge, 1).of(kPrtPosition, 5);
    Maker(blend.a, "dies", Ids{7}).of(kPrtAge, 1).of(kPrtSize, 4);
    Maker(blend.b, "dies", 0).of(kPrtPosition, 0);
    Maker(blend.a, "empty", Ids{}).of(kPrtPosition, 0);
    Maker(blend.b, "empty", Ids{}).of(kPrtSize, 0);
    // A count without anything behind it, or below 0.
    Maker(blend.a, "negative", Ids{}).group.count = -5;
    Maker(blend.b, "negative", Ids{1}).of(kPrtAge, 1);
    const BlendResult answer = blend.run(0.5f);
    EXPECT_EQ(answer.status, kFrameLoaded);
    const int counts[] = {7, 0x7FFFFFFF, 2, 1, 0, 1};
    const std::uint32_t id = 1u << kPrtId, age = 1u << kPrtAge;
    const std::uint32_t masks[] = {
        0, 0, id | age | 1u << kPrtPosition, id | age | 1u << kPrtSize, id, id | age};
    ASSERT_EQ(blend.dst.groups.size, 6);
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(blend.result(i).count, counts[i]) << i;
        EXPECT_EQ(blend.result(i).channelMask, masks[i]) << i;
    }
    EXPECT_EQ(idsOf(blend.result(2)), (Ids{1, 3}));
    EXPECT_EQ(floatsOf(blend.result(3), kPrtSize), Floats{4});
}

TEST(BlendParticles, MissingIdsAndAges_AreToldByGroup) {
    Blend blend;
    const auto group = [](NimbraFrameData& frame, const char* name, int count, bool id, bool age) {
        const Maker made(frame, name, count);
        made.of(kPrtPosition, 0);
        if (age)
            made.of(kPrtAge, 1);
        const Ids ids(static_cast<std::size_t>(count), 5);
        if (id) {
            EXPECT_TRUE(made.group.setChannel(kPrtId, ids.data()));
        }
    };
    for (NimbraFrameData* frame : {&blend.a, &blend.b}) {
        const bool isA = frame == &blend.a;
        group(*frame, "sound", 2, true, true);
        group(*frame, "no age", 2, true, isA);
        group(*frame, "no age too", 2, true, !isA);
    }
    BlendResult answer = blend.run(0.5f);
    EXPECT_EQ(answer.status, kFrameNoParticleAge);
    EXPECT_EQ(answer.message, "no age, no age too");
    EXPECT_EQ(blend.run(0.5f, kBlendCrossFade).status, kFrameLoaded);
    for (NimbraFrameData* frame : {&blend.a, &blend.b}) {
        group(*frame, "", 2, frame == &blend.a, true);
        group(*frame, "nothing", 2, false, false);
    }
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
    const float offsets[3] = {10, 12.5f, 8};  // of a, b and the result, along x
    NimbraFrameData* const frames[] = {&blend.a, &blend.b, &blend.dst};
    for (int f = 0; f < 3; ++f)
        frames[f]->transform[9] = offsets[f];
    for (NimbraFrameData* frame : {&blend.a, &blend.b})
        Maker(*frame, "g", Ids{1, frame == &blend.a ? 2 : 3})
            .of(kPrtAge, 1)
            .with(kPrtPosition, {20, 1, 2, 20, 3, 4});
    for (int method : {kBlendById, kBlendCrossFade}) {
        blend.run(method == kBlendById ? 0.5f : 1.0f, method);
        const Floats byId = {16.75f, 1, 2, 18, 3, 4, 15.5f, 3, 4},
                     later = {15.5f, 1, 2, 15.5f, 3, 4};
        EXPECT_EQ(floatsOf(blend.result(method), kPrtPosition),
                  method == kBlendById ? byId : later);
    }
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
    const auto damage = [](PGroup& group, int channel) {
        ASSERT_TRUE(group.allocatePacked(channel, kPrtZip, 3));
        std::fill_n(group.store[channel].packed.data, 3, static_cast<unsigned char>(0xAA));
    };
    const std::map<int, int> statuses = {{kPrtPosition, kFrameLoaded},
                                         {kPrtVelocity, kFrameLoaded},
                                         {kPrtId, kFrameNoParticleId},
                                         {12, kFrameLoaded},
                                         {kPrtAge, kFrameNoParticleAge}};
    for (const auto& [channel, status] : statuses)
        for (const bool inA : {true, false}) {
            Blend blend;
            for (NimbraFrameData* frame : {&blend.a, &blend.b})
                Maker(*frame, "g", Ids{1, 2, frame == &blend.a ? 3 : 4})
                    .of(kPrtPosition, 1)
                    .of(kPrtVelocity, 1)
                    .of(kPrtAge, 1)
                    .of(12, 1);
            damage(*(inA ? blend.a : blend.b).groups[0], channel);
            EXPECT_EQ(blend.run(0.5f).status, status) << channel;
            const std::uint32_t all = 0x100B | 1u << kPrtId;
            EXPECT_EQ(blend.result().channelMask,
                      status == kFrameLoaded ? all & ~(1u << channel) : 0);
            EXPECT_EQ(blend.result().count, status == kFrameLoaded ? 4 : 0);
        }
}

TEST(BlendParticles, AnyAllocationThatFails_LeavesOutAChannel) {
    test::CaughtLog log;
    TessUtils::MemoryTracker& memory = *getGlobalMemoryTracker();
    for (const int method : {kBlendById, kBlendCrossFade}) {
        std::map<int, int> missing;
        int n = 0;
        for (bool failed = true; failed; ++n) {
            Blend blend;
            for (NimbraFrameData* frame : {&blend.a, &blend.b})
                Maker(*frame, "g", Ids{4, 1, 9}).of(kPrtPosition, 1).of(kPrtAge, 1).of(12, 1);
            log.take();
            const std::size_t blocks = memory.currentBlocks();
            memory.failAllocation(static_cast<std::uint64_t>(n) + 1);
            const BlendResult answer = blend.run(0.5f, method);
            memory.failAllocation(0);
            EXPECT_EQ(answer.status, kFrameLoaded);
            const std::string text = log.take();
            for (const int c : {int(kPrtPosition), int(kPrtAge), int(kPrtId), 12}) {
                const std::string line = "[ERROR] Failed to allocate channel " + std::to_string(c) +
                                         " for blending particles!\n";
                if (!text.ends_with(line))
                    continue;
                ++missing[c];
                EXPECT_TRUE(blend.dst.groups.size == 0 || !(blend.result().channelMask & 1u << c));
            }
            const bool whole = blend.dst.groups.size == 1 && blend.result().count == 3;
            EXPECT_TRUE(whole || !text.empty());
            blend.dst.clearGroups();
            for (NimbraFrameData* frame : {&blend.a, &blend.b})
                frame->groups[0]->idOrder.Clear();
            EXPECT_EQ(memory.currentBlocks(), blocks);
            // The sort can do without memory of its own.
            failed = !text.empty() || n < 10;
        }
        EXPECT_EQ(missing[kPrtAge], 1);
        EXPECT_EQ(missing[12], 1);
        EXPECT_EQ(missing[kPrtPosition], 2);  // and when there is no group
        EXPECT_GE(missing[kPrtId], 3);        // and without the lists
    }
}

/// Enough for several jobs.
TEST(BlendParticles, ManyThreads_AsOne) {
    constexpr int kCount = 100000;
    Blend blend;
    std::mt19937_64 random(3);
    for (NimbraFrameData* frame : {&blend.a, &blend.b}) {
        Ids ids(kCount);
        std::iota(ids.begin(), ids.end(), frame == &blend.a ? -kCount / 4 : kCount / 4);
        std::shuffle(ids.begin(), ids.end(), random);
        Floats age(kCount), positions(ids.begin(), ids.end());
        std::generate(age.begin(), age.end(), [&] { return float(random() % 8) / 4; });
        positions.resize(std::size_t(kCount) * 3);
        Maker(*frame, "g", ids).with(kPrtAge, age).with(kPrtPosition, positions);
    }
    blend.run(0.75f);
    {
        const test::LentThreads lent(3);
        blend.run(0.75f);
    }
    const Ids ids = idsOf(blend.result(1));
    EXPECT_EQ(std::adjacent_find(ids.begin(), ids.end(), std::greater_equal<>()), ids.end());
    // Half of the IDs are in both frames; of those in one, 5 of 8 are old enough.
    EXPECT_NEAR(static_cast<double>(ids.size()), kCount / 2 + kCount * 5 / 8, 4 * 153);
    EXPECT_EQ(idsOf(blend.result(0)), ids);
    for (const int channel : {kPrtAge, kPrtPosition})
        EXPECT_EQ(floatsOf(blend.result(0), channel), floatsOf(blend.result(1), channel));
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
            for (const int f : {0, 1})
                for (const int channel : json[f == 0 ? "a_channels" : "b_channels"]) {
                    NimbraFrameData& frame = f == 0 ? blend.a : blend.b;
                    if (frame.groups.size == 0)
                        Maker(frame, "g", 3);
                    const Floats values(12, 1);
                    EXPECT_TRUE(frame.groups[0]->setChannel(channel, values.data()));
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
