// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The marcher against analytic values and laws.
#include "volume/march.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>

#include "support/threads.h"
#include "volume/qnd_tree.h"
#include "volume/test_scene.h"

namespace nimbra::test {
namespace {

using TessUtils::Color;
using TessUtils::TracePoint;

/// Relative error of the cheap exponential; a product of n has n times that.
constexpr double kFastExpError = 7.5e-5;

/// The marcher's surroundings: a ray's illuminator without lights, and a ray through boxes that
/// start in the origin.
class Marcher : public testing::Test {
protected:
    TestIlluminator illuminator;
    const ShadeQuery ray = rayAlongX(3, 3, -2, 40);

    double transmittance(const std::vector<const VolumeShader*>& shaders, const ShadeQuery& query) {
        return 1.0 - shadeOver({}, query, shaders, illuminator).opacity.r;
    }
    double transmittance(const TestVolume& volume, const ShadeQuery& query) {
        return transmittance({&volume.shader}, query);
    }
};
using MarcherLimits = Marcher;

const TestIlluminator::Light kWhite{.color = {1, 1, 1}};

using VolumePtr = std::unique_ptr<TestVolume>;

/// A homogeneous box without emission. `density` per cell, step and sizes in cells.
VolumePtr makeBox(int nx, int ny, int nz, float density, double step = 0.9) {
    auto box = std::make_unique<TestVolume>(nx, ny, nz);
    box->fill(kSmoke, density);
    const std::pair<const char*, double> rows[] = {
        {"earg", 0},       {"transpmode", 0}, {"smoketransp", std::exp(-1.0)},
        {"stoptransp", 0}, {"skiptransp", 1}, {"rendstep", std::round(step * 100)},
        {"lightcache", 0}};
    for (const auto& [key, value] : rows)
        box->params.set(key, value);
    return box;
}

VolumePtr loadedBox(int nx, int ny, int nz, float density, double step = 0.9) {
    auto box = makeBox(nx, ny, nz, density, step);
    box->load();
    return box;
}

/// Cells that a march over `length` cells counts: whole steps, the last one reaching the end or
/// beyond.
double marchedLength(double length, double step) {
    return step * (std::floor(length / step + 1e-6) + 1);
}

TEST_F(Marcher, HomogeneousBox_TransmittanceIsExponential) {
    for (const double step : {0.07, 0.25, 0.9, 1.3, 2.0}) {
        for (const float density : {0.02f, 0.15f, 0.6f}) {
            const auto box = loadedBox(10, 6, 6, density, step);
            const double got = transmittance(*box, ray);
            const double length = marchedLength(10, step);
            const double expected = std::exp(-density * length);
            EXPECT_NEAR(got, expected, expected * kFastExpError * length / step + 2e-6)
                << "step " << step << ", density " << density;
        }
    }
    // A ray that starts and ends within marches its own length.
    const auto box = loadedBox(20, 6, 6, 0.1f, 0.5);
    EXPECT_NEAR(transmittance(*box, rayAlongX(3, 3, 4.1, 9.3)),
                std::exp(-0.1 * marchedLength(5.2, 0.5)), 11 * kFastExpError);
    EXPECT_EQ(transmittance(*box, rayAlongX(3, 3, 21, 30)), 1) << "behind the box";
    EXPECT_EQ(transmittance(*box, rayAlongX(6.5, 3, -5, 30)), 1) << "beside the box";
}

TEST_F(Marcher, DensityCountsPerCell_WhereverTheBoxStands) {
    const auto plain = loadedBox(10, 6, 6, 0.3f, 0.5);
    const double expected = transmittance(*plain, rayAlongX(2.3, 3.1, -4, 30));

    const auto placed = makeBox(10, 6, 6, 0.3f, 0.5);
    // Turned by a quarter around z, three times as large, moved far away.
    placed->nodeTransform = {{{0, 3, 0}, {-3, 0, 0}, {0, 0, 3}}, {5000, -300, 70}};
    placed->load();
    ShadeQuery query;
    query.rayStart = {5000 - 3 * 2.3, -300 - 20, 70 + 3 * 3.1};
    query.rayEnd = {5000 - 3 * 2.3, -300 + 90, 70 + 3 * 3.1};
    EXPECT_NEAR(transmittance(*placed, query), expected, 1e-4);
    placed->shader.cell_aspect[0] = 2;
    EXPECT_NEAR(transmittance(*placed, query), expected * expected, 1e-4);
}

/// Gives a box fire that is the same everywhere: `light` by the table, over an opacity of its own.
void setFire(TestVolume& box, const Color& light, float ownOpacity) {
    box.params.set("earg", 1);
    box.luts.emission = std::make_unique<float[]>(3 * kLutEntries);
    box.luts.fireOpacity = std::make_unique<float[]>(kLutEntries);
    for (int i = 0; i < kLutEntries; ++i) {
        for (int channel = 0; channel < 3; ++channel)
            box.luts.emission[3 * i + channel] = light[channel];
        box.luts.fireOpacity[i] = ownOpacity;
    }
}

/// Containers that overlap and glow in different colours.
struct GlowingBoxes {
    std::vector<VolumePtr> owned;
    std::vector<const VolumeShader*> shaders;

    explicit GlowingBoxes(int count) {
        for (int i = 0; i < count; ++i) {
            auto box =
                makeBox(6, 6, 6, 0.05f + 0.03f * static_cast<float>(i % 5), 0.35 + 0.09 * (i % 4));
            box->nodeTransform.offs = {i * 0.83, 0, 0};
            box->fill(kTemperature, 0.5f);
            Color light;
            light[i % 3] = 1.0f + static_cast<float>(i);
            setFire(*box, light, 0);
            box->load();
            shaders.push_back(&box->shader);
            owned.push_back(std::move(box));
        }
    }
};

TEST_F(Marcher, OrderOfContainers_ChangesNothing) {
    // More than one pool block of segments, more than the inline list of active ones.
    GlowingBoxes boxes(40);
    const ShadeResult expected = shadeOver({1, 1, 1}, ray, boxes.shaders, illuminator);
    ASSERT_GT(expected.opacity.r, 0.99f);
    ASSERT_GT(expected.color.g, 0.1f);
    for (int turn = 0; turn < 5; ++turn) {
        std::rotate(boxes.shaders.begin(), boxes.shaders.begin() + 7, boxes.shaders.end());
        std::swap(boxes.shaders[3], boxes.shaders[30]);
        const ShadeResult got = shadeOver({1, 1, 1}, ray, boxes.shaders, illuminator);
        EXPECT_EQ(got.opacity, expected.opacity);
        EXPECT_EQ(got.color, expected.color);
    }
}

TEST_F(Marcher, TreeOfContainers_IsAskedFromElevenOn) {
    const GlowingBoxes boxes(15);
    for (const std::size_t count : {10u, 11u, 1025u}) {
        std::vector<const VolumeShaderTessra*> all;
        for (std::size_t i = 0; i < count; ++i)
            all.push_back(&boxes.owned[i % 15]->shader);
        const std::vector<const VolumeShader*> shaders(all.begin(), all.end());
        const auto colorWith = [&](const ShaderTree* tree) {
            ShadeQuery query = ray;
            query.tree = tree;
            return shadeOver({1, 1, 1}, query, shaders, illuminator).color;
        };
        QndTree notBuilt, full, empty;
        full.build(all);
        empty.build({});
        const Color expected = colorWith(nullptr);
        EXPECT_EQ(colorWith(&notBuilt), expected);
        EXPECT_EQ(colorWith(&full), expected);
        // Who asks a tree without shaders meets none.
        EXPECT_EQ(colorWith(&empty), count > 10 ? Color({1, 1, 1}) : expected);
    }
}

TEST_F(Marcher, StopTransparency_EndsTheRayOpaque) {
    const auto box = loadedBox(30, 6, 6, 1.0f, 0.5);
    box->shader.stoptransp = 0.01f;
    const ShadeResult result = shadeOver({9, 9, 9}, ray, {&box->shader}, illuminator);
    EXPECT_EQ(result.opacity, (Color{1, 1, 1}));
    EXPECT_EQ(result.color.r, 0) << "nothing of the background is left";
    // e^-4.61 = 0.01: ten steps, and one that is composited when the next is taken.
    EXPECT_NEAR(illuminator.stepCounter, 10, 1);
    box->shader.noscatter = kScatterDisabled;
    EXPECT_EQ(box->shadow(ray, illuminator).r, 1);
    // Bright smoke passes light on however deep it is, unless the ray stops.
    box->shader.simpleColor = {0.99f, 0.99f, 0.99f};
    box->shader.noscatter = kScatterApproximateShadows;
    box->shader.stoptransp = 0;
    EXPECT_LT(box->shadow(ray, illuminator).r, 1);
    box->shader.stoptransp = 0.3f;
    EXPECT_EQ(box->shadow(ray, illuminator).r, 1);
}

/// A box of smoke that is lit by white light from everywhere, and a ray through it.
class LitMarcher : public Marcher {
protected:
    LitMarcher() {
        box.fill(kSmoke, [](int x, int, int) { return 0.05f + 0.06f * static_cast<float>(x); });
        box.params.simpleColor = {0.9f, 0.6f, 0.3f};
        box.load();
        illuminator.lights = {kWhite};
    }
    ShadeResult shade() { return box.shade(query, illuminator); }

    VolumePtr owned = makeBox(9, 6, 6, 0.25f, 0.5);
    TestVolume& box = *owned;
    ShadeQuery query = rayAlongX(2.6, 3.2, -2, 20);
};

TEST_F(LitMarcher, ProbabilisticColor_ConvergesToBlended) {
    const ShadeResult blended = shade();
    ASSERT_GT(blended.color.r, 0.5f);
    for (const int samples : {1, 7, 50, 2000}) {
        query.probabilisticSamples = samples;
        const ShadeResult got = shade();
        // Stratified thresholds: one sample more or less than the transmittance asks for.
        const double error = 1.0 / samples + 1e-5;
        EXPECT_NEAR(got.opacity.r, blended.opacity.r, error) << samples;
        EXPECT_NEAR(got.color.r, blended.color.r, error) << samples;
        EXPECT_NEAR(got.color.b, blended.color.b, error) << samples;
    }
}

TEST_F(LitMarcher, ProbabilisticSteps_ConvergeToBlended) {
    const ShadeResult blended = shade();
    box.shader.flags |= kProbPrimary;
    constexpr int kRays = 20000;
    double opacity = 0, red = 0;
    for (int i = 0; i < kRays; ++i) {
        const ShadeResult one = shade();
        ASSERT_TRUE(one.opacity.r == 0 || one.opacity.r == 1);
        opacity += one.opacity.r;
        red += one.color.r;
    }
    // Four standard deviations of a mean of zeros and ones.
    const double error = 4 * 0.5 / std::sqrt(kRays);
    EXPECT_NEAR(opacity / kRays, blended.opacity.r, error);
    EXPECT_NEAR(red / kRays, blended.color.r, error);
}

/// Homogeneous fire whose tables hold the same value everywhere.
VolumePtr fireBox(int mode, float smoke) {
    auto box = makeBox(8, 6, 6, smoke, 0.5);
    box->fill(kTemperature, 0.4f);
    box->params.set("darg", 0);
    box->params.set("skiptransp", 0.999);
    box->params.set("fire_opacity_mode", mode);
    setFire(*box, {2.0f, 1.0f, 0.25f}, -0.3f);
    box->load();
    return box;
}

TEST_F(Marcher, FireOverBlack_GivesTheTablesValues) {
    const double length = marchedLength(8, 0.5);
    const double bySmoke = 1 - std::exp(-0.1 * length), byFire = 1 - std::exp(-0.3 * length);
    const struct {
        int mode;
        float smoke;
        double opacity, light;
    } cases[] = {{kFireUsesSmoke, 0.1f, bySmoke, bySmoke},
                 {kFireVisible, 0.0f, 0, length},  // light by length, not by opacity
                 {kFireOwnOpacity, 0.0f, byFire, byFire}};
    for (const auto& c : cases) {
        const ShadeResult result = fireBox(c.mode, c.smoke)->shade(ray, illuminator);
        EXPECT_NEAR(result.opacity.r, c.opacity, 2e-3) << c.mode;
        EXPECT_NEAR(result.color.r, 2.0 * c.light, 4e-3) << c.mode;
        EXPECT_NEAR(result.color.b, 0.25 * c.light, 1e-3) << c.mode;
    }
}

TEST_F(Marcher, RayClasses_DecideWhoTakesPart) {
    const auto box = loadedBox(8, 6, 6, 0.2f, 0.5);
    box->shader.noscatter = kScatterDisabled;
    VolumeShader& shader = box->shader;
    TestIlluminator& lit = illuminator;
    lit.lights = {kWhite};
    const auto shade = [&] { return box->shade(ray, lit); };
    EXPECT_GT(shade().color.r, 0.1f);
    EXPECT_GT(box->shadow(ray, lit).r, 0.5f);

    lit.kind = kKindDiffuse;
    lit.bounces = 11;
    const ShadeResult beyond = shade();
    EXPECT_EQ(beyond.color.r, 0) << "past its bounce limit it gives no colour";
    EXPECT_GT(beyond.opacity.r, 0.5f) << "but blocks";
    lit.bounces = 10;
    const float whole = shade().color.r;
    shader.giMultiplier = 0.5f;
    EXPECT_NEAR(shade().color.r, whole * 0.5f, 1e-6);

    shader.visibility |= kNoShadow;
    EXPECT_EQ(box->shadow(ray, lit).r, 0);
    EXPECT_GT(shade().opacity.r, 0.5f);
    lit.exclusionMask = kNoShadow;
    EXPECT_EQ(shade().marched, 0);

    lit.exclusionMask = 0;
    lit.kind = kKindGI;
    shader.visibility &= ~kVisibleInGI;
    EXPECT_EQ(shade().marched, 0);
    lit.kind = kKindGI | kKindAlwaysVisible;
    EXPECT_EQ(shade().marched, 1);

    // Fire is left to the lights that stand for it.
    lit.kind = kKindGI;
    const auto fire = fireBox(kFireVisible, 0.0f);
    fire->shader.flags &= ~kProbBounces;
    EXPECT_EQ(fire->shade(ray, lit).color.r, 0);
    fire->shader.flags &= ~kExtraLights;
    EXPECT_GT(fire->shade(ray, lit).color.r, 1);
}

TEST_F(Marcher, Shadows_FollowTheirDensityScale) {
    const auto box = loadedBox(8, 6, 6, 0.3f, 0.5);
    VolumeShader& shader = box->shader;
    shader.noscatter = kScatterDisabled;
    shader.rendshadstep = 0.5f;
    const double steps = marchedLength(8, 0.5) / 0.5;
    const double a = 1 - std::exp(-0.3 * 0.5);
    for (const float scale : {1.0f, 0.5f}) {
        shader.shadowDensityScale = scale;
        EXPECT_NEAR(box->shadow(ray, illuminator).r, 1 - std::pow(1 - scale * a, steps), 1e-3);
    }
    // White smoke passes on what it takes away: 1 / (depth + 1), on itself twice that. Black smoke
    // takes all: 1 / exp(depth).
    shader.noscatter = kScatterApproximateShadows;
    const double depth = 0.5 * a * steps;
    shader.simpleColor = {1, 1, 0};
    TestIlluminator own;
    own.from = &shader;
    const Color other = box->shadow(ray, illuminator);
    EXPECT_NEAR(1 - other.r, 1 / (depth + 1), 1e-3);
    EXPECT_NEAR(1 - other.b, std::exp(-depth), 1e-3);
    EXPECT_NEAR(1 - box->shadow(ray, own).r, 2 / (depth + 1), 1e-3);
}

TEST_F(Marcher, Cutter_SplitsTheRay) {
    const double step = 0.05, density = 0.1;
    const auto box = loadedBox(20, 6, 6, static_cast<float>(density), step);
    ShapesGizmo gizmo({{true, {2, 1, 1}, {6, 5, 5}},
                       {false, {9, 0, 0}, {14, 6, 6}},
                       {true, {17.5f, 1, 1}, {21.5f, 5, 5}}});
    // The world lies 1 to the right of the cutter's own space.
    NMBUtils::Matrix34 place, later;
    place.offset = {1, 0, 0};
    later.offset = {1001, 0, 0};
    box->shader.setGizmo(&gizmo, place, place);
    // 4 inside the first sphere, 5 in the box; the last sphere begins at 18.5 and the grid ends it
    // at 20. Each span may count a step more.
    const double inside = 4 + 5 + 1.5;
    const auto expectLength = [&](const ShadeQuery& query, double length, int spans) {
        EXPECT_NEAR(-std::log(transmittance(*box, query)) / density, length + spans * step / 2,
                    spans * step / 2 + 0.02);
    };
    const ShadeQuery aside = rayAlongX(0.5, 0.5, -6, 8);
    expectLength(ray, inside, 3);
    expectLength(rayAlongX(3, 3, 6.5, 11), 0.5 + 1, 2);
    EXPECT_EQ(transmittance(*box, aside), 1) << "no body is met";
    box->shader.flags |= kInvertGizmo;
    expectLength(ray, 20 - inside, 3);
    expectLength(aside, 8, 1);

    box->shader.flags &= ~kInvertGizmo;
    box->shader.setGizmo(&gizmo, place, later);
    ShadeQuery moving = ray;
    moving.time = 0.001f;
    expectLength(moving, 4 + 5 + 0.5, 3);
}

TEST_F(Marcher, EmptyMap_HidesVoxels) {
    const auto box = loadedBox(16, 6, 6, 0.1f, 0.25);
    const double full = transmittance(*box, ray);
    VolumeShader& shader = box->shader;
    shader.emptyMapCount = 16 * 6 * 6;
    shader.emptyMapBits = std::make_unique<std::uint32_t[]>(shader.emptyMapCount / 32 + 1);
    EXPECT_EQ(transmittance(*box, ray), full);
    for (int i = 0; i < shader.emptyMapCount; ++i)
        if (i % 16 >= 8)
            shader.emptyMapBits[i / 32] |= 1u << i % 32;
    EXPECT_NEAR(std::log(transmittance(*box, ray)), std::log(full) / 2, 0.1 * 0.25);
}

/// Smoke with holes, clear cells, and what is no smoke.
float unevenSmoke(int x, int y, int z) {
    const float odd[] = {std::numeric_limits<float>::quiet_NaN(), -0.4f, 1e38f,
                         std::numeric_limits<float>::infinity()};
    const int i = x * 7 + y * 3 + z;
    return x % 11 < 3 ? 0.0f : i % 29 == 0 ? odd[i / 29 % 4] : 0.02f + 0.01f * float(i % 13);
}

TEST_F(Marcher, PlainSmoke_IsNoOtherThanAnySmoke) {
    const auto plain = makeBox(30, 6, 6, 0.0f);
    plain->fill(kSmoke, unevenSmoke);
    for (int i = 0; i < 3; ++i)
        plain->fill(kColorR + i, [i](int x, int y, int) { return 0.1f * float((x + i * y) % 7); });
    plain->fill(kTemperature, [](int x, int y, int) { return 0.1f * float((2 * x + y) % 9); });
    plain->params.set("jitter", 1);
    plain->params.set("darg", 6);  // colours of the grid
    plain->load();
    plain->shader.bindChannel(&plain->frame, kSlotE, kTemperature);
    VolumeShader& shader = plain->shader;
    const std::uint32_t flags = shader.flags;
    ASSERT_TRUE(shader.useGridColor && (shader.sampleMask & kSampleColor) != 0);
    const std::uint32_t mask = shader.sampleMask;
    shader.shadowDensityScale = 0.7f;
    shader.shad_strength = 0.9f;
    shader.simpleColor = {0.9f, 0.5f, 0.1f};
    std::vector<float> table(kLutEntries);
    for (int i = 0; i < kLutEntries; ++i)
        table[i] = i % 500 < 100 ? 0.0f : -0.0007f * static_cast<float>(i % 1900);
    // With a map of empty voxels that marks none, steps go the general way.
    shader.emptyMapBits = std::make_unique<std::uint32_t[]>(30 * 6 * 6 / 32 + 1);
    const auto answers = [&](bool general) {
        shader.emptyMapCount = general ? 30 * 6 * 6 : 0;
        std::vector<Color> out;
        for (int i = 0; i < 30; ++i) {
            TestIlluminator anew;
            anew.from = i % 2 == 0 ? &shader : nullptr;
            anew.lights = {kWhite};
            ShadeQuery slanted = rayAlongX(0.19 * i, 3, -3, 8 + i);
            slanted.rayEnd.z = 5.5;
            out.push_back(plain->shadow(slanted, anew));
            const ShadeResult seen = plain->shade(slanted, anew);
            out.insert(out.end(), {seen.color, seen.opacity});
        }
        return out;
    };
    const struct {
        std::uint32_t flag;
        bool table;
        std::uint32_t wrap;
        bool gridColor, fire;
    } cases[] = {{0, false, 0, false, false},
                 {kHeatHaze, false, 0, false, false},
                 {kProbPrimary, true, 0, false, false},
                 {0, true, 0, false, false},
                 {0, false, kSampleWrapX, false, false},
                 {0, true, kSampleWrapY, false, false},
                 {0, false, 0, true, false},
                 {0, true, kSampleWrapX, true, false},
                 {kEmissive, false, 0, false, true},
                 {kEmissive, true, 0, true, true}};
    std::vector<float> fire(3 * kLutEntries);
    for (int i = 0; i < 3 * kLutEntries; ++i)
        fire[i] = 0.001f * static_cast<float>(i % 1700);
    for (const auto& c : cases)
        for (const int scatter : {kScatterDisabled, kScatterApproximateShadows})
            for (const float stop : {0.0f, 0.3f, 0.7f}) {
                shader.noscatter = scatter;
                shader.stoptransp = stop;
                shader.flags = flags | c.flag;
                shader.useGridColor = c.gridColor;
                shader.sampleMask = c.gridColor ? mask : mask & ~kSampleColor;
                shader.sampleMask |= c.fire ? static_cast<std::uint32_t>(kSampleE) : 0u;
                shader.emissionTable = c.fire ? fire.data() : nullptr;
                shader.wrapFlags = c.wrap;
                shader.opacityTable = c.table ? table.data() : nullptr;
                EXPECT_EQ(answers(false), answers(true))
                    << "scatter " << scatter << ", stop " << stop << ", case " << &c - cases;
            }
}

TEST_F(Marcher, StepsForOpacityAlone_AreThoseOfShadowRays) {
    const auto box = makeBox(30, 6, 6, 0.0f);
    box->fill(kSmoke, unevenSmoke);
    box->params.set("sampler", 2);
    box->params.set("softb", 1.5);
    box->params.set("pmbounces", 0);
    box->load();
    box->shader.shadowDensityScale = 0.7f;
    const VolumeShader* const shader = &box->shader;
    ShadeQuery query = rayAlongX(2.4, 3.1, -2, 40);
    query.shaders = &shader;
    query.count = 1;
    for (const std::uint32_t kind :
         {std::uint32_t{kKindTransparency}, kKindTransparency | kKindGI}) {
        illuminator.kind = kind;
        RayData rays[2];
        for (RayData& data : rays) {
            data.illuminator = &illuminator;
            ASSERT_FALSE(BuildSegments(data, query));
        }
        RaySegment &full = *rays[0].head, &lean = *rays[1].head;
        int steps = 0;
        for (bool more = true; more; ++steps) {
            more = shader->stepSegment(full, illuminator, 0, steps == 0, nullptr);
            ASSERT_EQ(shader->stepSegmentAlpha(lean, illuminator, 0, steps == 0), more);
            ASSERT_EQ(lean.samplePos, full.samplePos);
            ASSERT_EQ(lean.alpha, full.alpha) << "kind " << kind << " at " << full.tCur;
        }
        EXPECT_GT(steps, 5);
    }
}

TEST_F(Marcher, Jitter_MovesTheSamplesNotTheWalk) {
    auto box = makeBox(12, 6, 6, 0.0f, 1.0);
    box->fill(kSmoke, [](int x, int, int) { return static_cast<float>(x); });
    box->params.set("jitter", 1);
    box->params.set("smoketransp", std::exp(-0.01));
    box->load();
    // Samples at 1 - j, 2 - j ... 10 - j and 10.5 - j, each counting one cell.
    for (const float jitter : {0.0f, 0.3f, 0.75f}) {
        TestIlluminator jittered;
        jittered.randomNumbers = {jitter};
        const double opacity = box->shade(rayAlongX(3, 3, -0.5, 10.5), jittered).opacity.r;
        EXPECT_NEAR(-std::log(1 - opacity) / 0.01, 55 + 10.5 - 11 * jitter, 0.05) << jitter;
    }
}

TEST_F(LitMarcher, GammaActsOnTheVolumesOwnColor) {
    const ShadeResult plain = shade();
    query.gamma = 2.2f;
    const ShadeResult curved = shade();
    const double alpha = plain.opacity.g;
    EXPECT_NEAR(curved.color.g, std::pow(plain.color.g / alpha, 2.2) * alpha, 1e-5);
    EXPECT_EQ(curved.opacity, plain.opacity);
}

TEST_F(LitMarcher, Elements_AreSummedOverTheRay) {
    const auto& written = illuminator.written;
    illuminator.wantedElements = 1u << kElementDiffuse | 1u << kElementTotalLighting |
                                 1u << kElementRawTotalLighting | 1u << kElementAge;
    box.shader.volzdepth = 1;
    const ShadeResult result = shade();
    ASSERT_EQ(written.size(), static_cast<std::size_t>(kElementCount));
    EXPECT_NEAR(written[kElementDiffuse].g, result.color.g, 1e-5) << "white light";
    EXPECT_NEAR(written[kElementTotalLighting].g, result.color.g, 1e-5);
    EXPECT_NEAR(written[kElementRawTotalLighting].g, result.opacity.g, 1e-5);
    // Age asks for the depth, too: a mean of distances through the box, 2 to 11 from the start.
    EXPECT_GT(written[kElementZDepth].g, 2 * result.opacity.g);
    EXPECT_LT(written[kElementZDepth].g, 11 * result.opacity.g);
    // Normals: blended, by chance, and by chance beyond the volume's bounces.
    illuminator.wantedElements = 1u << kElementNormal;
    for (const int way : {0, 1, 2}) {
        query.probabilisticSamples = way > 0 ? 1 : 0;
        illuminator.kind = way > 1 ? kKindDiffuse : 0u;
        illuminator.bounces = box.shader.bounces + 1;
        illuminator.randomNumbers = {0.5f, 0.5f, 0.5f};
        shade();
        EXPECT_LT(written[kElementNormal].r, -0.3f) << "density rises along x, way " << way;
        EXPECT_NEAR(written[kElementNormal].g, 0, 1e-3) << way;
    }
}

TEST_F(LitMarcher, LightCache_GivesTheSamePictureOnManyThreads) {
    const auto picture = [&](std::vector<Color>& out) {
        TestIlluminator sun;
        sun.lights = {{{1, 1, 1}, true, {0.3f, 1, 0.2f}, 30}};
        sun.scene = {&box.shader};
        for (int i = 0; i < 60; ++i)
            out.push_back(box.shade(rayAlongX(0.1 * i, 3.2, -2, 20), sun).color);
    };
    box.params.set("lightcache", 1);
    box.load();
    std::vector<Color> expected, got[4];
    picture(expected);
    box.load();
    onThreads(4, [&](int t) { picture(got[t]); });
    for (const std::vector<Color>& out : got)
        EXPECT_EQ(out, expected);
}

// ---- What must end, and stay finite -------------------------------------------------------------

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

void expectFinite(const TestVolume& box, const ShadeQuery& ray, Illuminator& illuminator) {
    const ShadeResult result = shadeOver({1, 1, 1}, ray, {&box.shader}, illuminator);
    const Color shadow = box.shadow(ray, illuminator);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(std::isfinite(result.color[i]));
        EXPECT_TRUE(result.opacity[i] >= 0 && result.opacity[i] <= 1);
        EXPECT_TRUE(shadow[i] >= 0 && shadow[i] <= 1);
    }
}

TEST_F(MarcherLimits, SenselessVoxels_GiveFinitePixels) {
    const float bad[] = {kNaN, kInfinity, -kInfinity, 1e38f, -1e38f, -3.0f};
    const auto poison = [&](int x, int y, int z) {
        const int i = x + 3 * y + 5 * z;
        return i % 4 == 0 ? bad[i / 4 % 6] : 0.1f;
    };
    illuminator.lights = {kWhite};
    for (const int sampler : {0, 1, 2}) {
        for (const int mode : {kFireUsesSmoke, kFireVisible, kFireOwnOpacity}) {
            const auto box = fireBox(mode, 0.1f);
            box->fill(kSmoke, poison);
            box->fill(kTemperature, poison);
            box->params.set("sampler", sampler);
            box->params.set("darg", 5);
            box->load();
            for (int i = 0; i < 20; ++i)
                expectFinite(*box, rayAlongX(0.3 * i, 0.29 * i, -2, 20), illuminator);
        }
    }
}

TEST_F(MarcherLimits, SenselessRays_MeetNothingOrEnd) {
    const auto box = loadedBox(8, 6, 6, 0.2f);
    const Color background{0.5f, 0.5f, 0.5f};
    for (const double x : {kNaN, kInfinity, -kInfinity}) {
        ShadeQuery bad = ray;
        bad.rayEnd.y = x;
        EXPECT_EQ(box->shade(bad, illuminator).marched, 0);
        bad = rayAlongX(x, 3, -2, 20);
        EXPECT_EQ(shadeOver(background, bad, {&box->shader}, illuminator).color, background);
    }
    EXPECT_EQ(box->shade(rayAlongX(3, 3, 2, 2 + 1e-7), illuminator).marched, 0);
    expectFinite(*box, rayAlongX(3, 3, -1e18, 1e18), illuminator);
}

TEST_F(MarcherLimits, StepsThatDoNotAdvance_End) {
    for (const float step : {0.0f, -1.0f, 1e-30f, kNaN}) {
        for (const std::uint32_t flag : {0u, std::uint32_t{kHeatHaze}}) {
            const auto box = loadedBox(8, 6, 6, 0.2f);
            box->shader.rendstep = box->shader.rendshadstep = step;
            box->shader.flags |= flag;
            expectFinite(*box, ray, illuminator);
        }
    }
}

TEST_F(MarcherLimits, GridsWithoutExtent_ShowNothing) {
    const ShadeQuery corner = rayAlongX(0, 0, -2, 20);
    EXPECT_EQ(loadedBox(0, 4, 4, 1)->shade(corner, illuminator).marched, 0);
    const auto flat = makeBox(4, 4, 4, 1);
    flat->nodeTransform.f[1] = {0, 0, 0};
    flat->load();
    EXPECT_EQ(flat->shade(corner, illuminator).marched, 0);
    VolumeShader unloaded;
    EXPECT_EQ(shadeOver({}, corner, {&unloaded}, illuminator).marched, 0);
    VoxelSample sample;
    unloaded.sampleVoxel({1, 1, 1}, sample, kSampleScalars, nullptr, 0, -1);
    EXPECT_EQ(sample.t, 0);
    EXPECT_EQ(sample.position.x, 0);
}

}  // namespace
}  // namespace nimbra::test
