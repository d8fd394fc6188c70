// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "tessra/parameter_values.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

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
    real.setKey(20, 4.0f);
    real.setKey(10, 1.0f);  // keys may come in any order
    real.setKey(40, 0.0f);
    EXPECT_TRUE(real.isAnimated());
    EXPECT_EQ(real.getFloat(0, -5), 1.0f);
    EXPECT_EQ(real.getFloat(0, 10), 1.0f);
    EXPECT_EQ(real.getFloat(0, 15), 2.5f);
    EXPECT_EQ(real.getInt(0, 15), 2);  // of the blended value
    EXPECT_EQ(real.getFloat(0, 20), 4.0f);
    EXPECT_EQ(real.getFloat(0, 35), 1.0f);
    EXPECT_EQ(real.getFloat(0, 1e9), 0.0f);
    real.setKey(20, 8.0f);  // in place of the other
    EXPECT_EQ(real.getFloat(0, 20), 8.0f);

    DefParam number("n", 0);
    number.setKey(0, 1);
    number.setKey(10, 5);
    EXPECT_EQ(number.getInt(0, 9.99), 1);
    EXPECT_EQ(number.getFloat(0, 9.99), 1.0f);

    DefParam transform("t", Transform());
    Transform end;
    end.f[0] = {3, 0, 0};
    end.offs = {1e9, 0, 4};
    transform.setKey(0, Transform());
    transform.setKey(1, end);
    EXPECT_EQ(transform.getTransform(0, 0.5).f[0], (Vector{2, 0, 0}));
    EXPECT_EQ(transform.getTransform(0, 0.5).offs, (TracePoint{5e8, 0, 2}));
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
    EXPECT_EQ(list.getFloat(2, 0), 3.0f);
    EXPECT_EQ(list.getFloat(3, 0), 0.0f);
    EXPECT_EQ(list.getFloat(-1, 0), 0.0f);
    EXPECT_EQ(list.getType(1), paramtype_float);
    EXPECT_EQ(list.getType(9), paramtype_float);

    list.setKey(0, ParamList{0.0f, 10.0f});
    list.setKey(1, ParamList{1.0f, 20.0f});
    list.setKey(2, ParamList{5.0f});
    EXPECT_EQ(list.getFloat(1, 0.5), 15.0f);
    EXPECT_EQ(list.getFloat(0, 1.5), 1.0f);  // lists of two lengths don't blend
    EXPECT_EQ(list.getCount(1.5), 2);
    EXPECT_EQ(list.getCount(2), 1);

    Plugin* const none = nullptr;
    const DefParam mixed("m", paramtype_list,
                         {1, std::string("two"), Vector{1, 2, 3}, static_cast<PluginBase*>(none)});
    EXPECT_EQ(mixed.getType(0), paramtype_int);
    EXPECT_EQ(mixed.getType(1), paramtype_string);
    EXPECT_EQ(mixed.getType(2), paramtype_vector);
    EXPECT_EQ(mixed.getType(3), paramtype_plugin);
    EXPECT_EQ(mixed.getType(4), paramtype_list);
    EXPECT_EQ(mixed.getString(1, 0), "two");
    EXPECT_EQ(DefParam("e", paramtype_int, {}).getCount(0), 0);
}

}  // namespace
}  // namespace TessUtils
