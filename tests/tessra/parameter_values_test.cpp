// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "tessra/parameter_values.h"

#include <gtest/gtest.h>

#include <cmath>
#include <deque>
#include <limits>
#include <string>

#include "tessra/parameters.h"
#include "tessra/texture.h"

namespace TessUtils {
namespace {

TEST(DefParam, Conversions_AreThoseThatMakeSense) {
    const DefParam real("a", 2.75f);
    EXPECT_EQ(real.getInt(0, 0), 2);
    EXPECT_TRUE(real.getBool(0, 0));
    EXPECT_EQ(real.getCount(0), -1);
    EXPECT_EQ(DefParam("a", -2.75f).getInt(0, 0), -2);
    EXPECT_EQ(DefParam("a", true).getFloat(0, 0), 1.0f);
    EXPECT_EQ(DefParam("a", 7).getFloat(0, 0), 7.0f);

    const DefParam color("c", AColor{{1, 2, 3}, 0.5f});
    EXPECT_EQ(color.getColor(0, 0), (Color{1, 2, 3}));
    EXPECT_EQ(color.getVector(0, 0), (Vector{1, 2, 3}));
    EXPECT_EQ(DefParam("c", Color{1, 2, 3}).getAColor(0, 0), (AColor{{1, 2, 3}, 1}));

    // What can't turn into the type reads as nothing.
    EXPECT_EQ(DefParam("s", std::string("12")).getInt(0, 0), 0);
    EXPECT_EQ(color.getFloat(0, 0), 0.0f);
    EXPECT_EQ(real.getString(0, 0), "");
    EXPECT_EQ(real.getObject(0), nullptr);
    EXPECT_EQ(real.getTransform(0, 0), Transform());
}

TEST(DefParam, NumbersBeyondAnInt_AreClamped) {
    EXPECT_EQ(DefParam("a", 1e20f).getInt(0, 0), std::numeric_limits<int>::max());
    EXPECT_EQ(DefParam("a", -INFINITY).getInt(0, 0), std::numeric_limits<int>::min());
    EXPECT_EQ(DefParam("a", NAN).getInt(0, 0), 0);
}

TEST(DefParam, Keys_BlendWhatCanBeBlendedAndHoldTheRest) {
    DefParam real("a", 100.0f);
    EXPECT_EQ(real.getFloat(0, 5), 100.0f);
    real.setKey(20, 9.0f);
    real.setKey(10, 1.0f);  // keys may come in any order
    real.setKey(40, 0.0f);
    real.setKey(20, 4.0f);  // in place of the other
    EXPECT_TRUE(real.isAnimated());
    const std::pair<double, float> blended[] = {{-5, 1}, {10, 1}, {15, 2.5f},
                                                {20, 4}, {35, 1}, {1e9, 0}};
    for (const auto& [time, value] : blended)
        EXPECT_EQ(real.getFloat(0, time), value) << time;
    EXPECT_EQ(real.getInt(0, 15), 2);  // of the blended value

    DefParam number("n", 0);
    number.setKey(0, 1);
    number.setKey(10, 5);
    EXPECT_EQ(number.getInt(0, 9.99), 1);
    EXPECT_EQ(number.getFloat(0, 9.99), 1.0f);

    DefParam transform("t", Transform());
    Transform end{.offs = {1e9, 0, 4}}, middle{.offs = {5e8, 0, 2}};
    end.f[0] = {3, 0, 0};
    middle.f[0] = {2, 0, 0};
    transform.setKey(0, Transform());
    transform.setKey(1, end);
    EXPECT_EQ(transform.getTransform(0, 0.5), middle);
    EXPECT_EQ(transform.getTransform(0, 1), end);

    DefParam color("c", AColor());
    color.setKey(0, AColor{{0, 0, 0}, 0});
    color.setKey(4, AColor{{4, 8, 12}, 1});
    EXPECT_EQ(color.getAColor(0, 1), (AColor{{1, 2, 3}, 0.25f}));
    EXPECT_EQ(color.getColor(0, 1), (Color{1, 2, 3}));
}

TEST(DefParam, Lists_ReadByEntryAndAnswerNothingOutside) {
    DefParam list("l", paramtype_float, {1.0f, 2.0f, 3.0f});
    EXPECT_EQ(list.getCount(0), 3);
    for (const int i : {-1, 0, 2, 3, 9}) {
        EXPECT_EQ(list.getFloat(i, 0), i < 0 || i > 2 ? 0 : float(i + 1));
        EXPECT_EQ(list.getType(i), paramtype_float);
    }
    list.setKey(0, ParamList{0.0f, 10.0f});
    list.setKey(1, ParamList{1.0f, 20.0f});
    list.setKey(2, ParamList{5.0f});
    EXPECT_EQ(list.getFloat(1, 0.5), 15.0f);
    EXPECT_EQ(list.getFloat(0, 1.5), 1.0f);  // lists of two lengths don't blend
    EXPECT_EQ(list.getCount(1.5), 2);
    EXPECT_EQ(list.getCount(2), 1);

    const DefParam mixed(
        "m", paramtype_list,
        {1, std::string("two"), Vector{1, 2, 3}, static_cast<PluginBase*>(nullptr)});
    const TessraParameterType types[] = {paramtype_int, paramtype_string, paramtype_vector,
                                         paramtype_plugin, paramtype_list};
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(mixed.getType(i), types[i]) << i;
    EXPECT_EQ(mixed.getString(1, 0), "two");
    EXPECT_EQ(DefParam("e", paramtype_int, {}).getCount(0), 0);
}

/// An object with a colour and a float texture behind it.
struct TextureObject : PluginBase {
    struct : TextureInterface {
        AColor getTexColor(const TextureContext&) override { return {}; }
    } color;
    struct : TextureFloatInterface {
        float getTexFloat(const TextureContext&) override { return 0; }
    } number;
    TextureObject() {
        addInterface(&color, false);
        addInterface(&number, false);
    }
};

class ParametersTest : public testing::Test {
protected:
    ParametersTest() {
        table.addParamBool("on", true);
        table.addParamInt("steps", 90);
        table.addParamFloat("scale", 0.5f);
        table.addParamColor("tint", {1, 0.5f, 0.25f});
        table.addParamTexture("tex");
        table.addParamTextureFloat("ftex");
        table.addParamPlugin("cache", 77);
        table.addParamPlugin("caches", 77, 0);
    }
    TessraParameterListDesc table;
    std::deque<DefParam> values;
};

TEST_F(ParametersTest, ConnectedObjects_ComeAsTheirInterfaces) {
    TessraParameterList list(&table);
    TextureInterface* tex = nullptr;
    TextureFloatInterface* ftex = nullptr;
    PluginBase* cache = nullptr;
    TessraPluginList caches;
    list.setParamCache("tex", &tex);
    list.setParamCache("ftex", &ftex);
    list.setParamCache("cache", &cache);
    list.setParamCache("caches", &caches);
    const auto set = [&](auto... value) {
        EXPECT_TRUE(list.setParameter(&values.emplace_back(value...)));
    };
    TextureObject object;
    PluginBase bare;
    set("tex", &object);
    set("ftex", &object);
    set("cache", &bare);
    set("caches", paramtype_plugin, ParamList{&bare, static_cast<PluginBase*>(nullptr)});
    list.cacheParams(0);
    EXPECT_EQ(tex, &object.color);
    EXPECT_EQ(ftex, &object.number);
    EXPECT_EQ(cache, &bare);
    EXPECT_EQ(caches, (TessraPluginList{&bare, nullptr}));

    set("tex", &bare);
    set("caches", &bare);
    list.cacheParams(0);
    EXPECT_EQ(tex, nullptr);
    EXPECT_EQ(caches, TessraPluginList{&bare});
}

TEST_F(ParametersTest, Enumeration_GivesSetRowsInTableOrderUntilToldToStop) {
    struct Collect : EnumParameterCallback {
        std::string names;
        std::string last;
        int process(TessraPluginParameter* parameter) override {
            names += parameter->getName() + std::string(" ");
            return parameter->getName() != last;
        }
    };
    TessraParameterList* const list = table.newParameterList();
    DefParam scale("scale", 1.0f), on("on", false), tint("tint", Color());
    for (DefParam* value : {&tint, &scale, &on})
        list->setParameter(value);
    Collect all, two;
    EXPECT_EQ(list->enumParams(&all), 3);
    EXPECT_EQ(all.names, "on scale tint ");
    two.last = "scale";
    EXPECT_EQ(list->enumParams(&two), 2);
    table.deleteParameterList(list);
}

}  // namespace
}  // namespace TessUtils
