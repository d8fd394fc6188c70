// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "foundation/array.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <string>

#include "tessra/allocator.h"

namespace NMBUtils {
namespace {

template <class Array>
void fillUp(Array& array, int count) {
    for (int i = 0; i < count; ++i)
        ASSERT_EQ(array.Append(static_cast<float>(i)), 1);
}

TEST(NmbArray, Growth_LeavesTheGreaterOfEightAndAQuarterSpare) {
    struct Case {
        int size, capacity;
    };
    for (const Case& c : {Case{1, 9}, {31, 39}, {32, 40}, {36, 45}, {100, 125}, {103, 128}}) {
        NmbArray<float> array;
        EXPECT_EQ(array.SetSize(c.size), 1);
        EXPECT_EQ(array.size, c.size);
        EXPECT_EQ(array.capacity, c.capacity) << c.size;
    }
    NmbArray<float, long long> exact;
    EXPECT_EQ(exact.SetSize(10, nullptr, true), 1);
    EXPECT_EQ(exact.capacity, 10);

    NmbArray<float> thrifty;
    thrifty.growDivisor = 2;
    thrifty.SetSize(100);
    EXPECT_EQ(thrifty.capacity, 150);
    NmbArray<float> undivided;
    undivided.growDivisor = 0;
    undivided.SetSize(100);
    EXPECT_EQ(undivided.capacity, 108);
}

TEST(NmbArray, FailedGrowth_LosesEverythingAndAnswersZero) {
    for (const bool zeroFill : {false, true}) {
        NmbArray<float> plain;
        NmbArray<float, int, 1> zeroed;
        NmbArrayBase<float>& array = zeroFill ? static_cast<NmbArrayBase<float>&>(zeroed) : plain;
        fillUp(array, 9);
        getGlobalMemoryTracker()->failAllocation(1);
        EXPECT_EQ(array.Append(9), 0);
        EXPECT_EQ(array.size, 0);
        EXPECT_EQ(array.capacity, 0);
        EXPECT_EQ(array.data, nullptr);
        EXPECT_EQ(array.Append(5), 1);
        EXPECT_EQ(array[0], 5.0f);
    }
}

TEST(NmbArray, SizeBeyondAllMemory_FailsWithoutWrappingAround) {
    NmbArray<double, long long> wide;
    EXPECT_EQ(wide.SetSize(INT64_MAX / 4), 0);
    EXPECT_EQ(wide.SetSize(INT64_MAX - 3), 0);
    NmbArray<double, unsigned long long> unsignedSizes;
    EXPECT_EQ(unsignedSizes.SetSize(UINT64_MAX / 2), 0);
    EXPECT_EQ(unsignedSizes.data, nullptr);
}

TEST(NmbArray, NegativeSize_IsRefusedYetStored) {
    NmbArray<float> array;
    EXPECT_EQ(array.SetSize(-1), 0);
    EXPECT_EQ(array.size, -1);
    EXPECT_EQ(array.data, nullptr);
    EXPECT_EQ(array.SetSize(0), 1);
    EXPECT_EQ(array.size, 0);

    fillUp(array, 3);
    EXPECT_EQ(array.SetSize(-5), 0);
    EXPECT_EQ(array.begin(), array.end());
    EXPECT_EQ(array.capacity, 9);
    const float one = 1;
    EXPECT_EQ(array.SetSize(12, &one), 1);  // grows past the store with nothing to copy
    EXPECT_EQ(std::count(array.begin(), array.end(), 1.0f), 12);

    EXPECT_EQ(array.SetSize(-1), 0);
    EXPECT_EQ(array.Append(7), 0);  // there is no place before the first
    EXPECT_EQ(array.size, 0);
}

TEST(NmbArray, NewPlaces_AreFilledConstructedOrZero) {
    struct Constructed {
        int value = 42;
    };
    NmbArray<Constructed> constructed;
    constructed.SetSize(20);
    for (const Constructed& element : constructed)
        EXPECT_EQ(element.value, 42);

    NmbArray<int, int, 1> zeroed;
    zeroed.SetSize(1000);
    EXPECT_EQ(std::accumulate(zeroed.begin(), zeroed.end(), 0), 0);
    const int seven = 7;
    zeroed.SetSize(1500, &seven);
    EXPECT_EQ(std::accumulate(zeroed.begin(), zeroed.end(), 0), 3500);

    NmbArray<std::string> texts;
    const std::string text(100, 'x');
    texts.SetSize(3, &text);
    EXPECT_EQ(texts[2], text);
    for (std::string& element : texts)
        element.~basic_string();  // the array destroys nothing
}

TEST(NmbArray, FillFromTheArrayItself_KeepsItsValue) {
    NmbArray<float> array;
    fillUp(array, 9);
    EXPECT_EQ(array.SetSize(4), 1);
    EXPECT_EQ(array.SetSize(9, &array[3]), 1);  // in place
    EXPECT_EQ(std::count(array.begin(), array.end(), 3.0f), 6);
    EXPECT_EQ(array.SetSize(100, &array[1]), 1);  // into a new store
    EXPECT_EQ(std::count(array.begin(), array.end(), 1.0f), 92);
}

TEST(NmbArray, Insert_MovesTheRestAndRefusesPlacesOutside) {
    NmbArray<int> array;
    EXPECT_EQ(array.Insert(0, 10), 1);
    EXPECT_EQ(array.Insert(1, 30), 1);
    EXPECT_EQ(array.Insert(1, 20), 1);
    EXPECT_EQ(array.Insert(0, array[2]), 1);
    const int expected[] = {30, 10, 20, 30};
    EXPECT_TRUE(std::equal(array.begin(), array.end(), std::begin(expected), std::end(expected)));
    EXPECT_EQ(array.Insert(5, 0), 0);
    EXPECT_EQ(array.Insert(-1, 0), 0);
    EXPECT_EQ(array.size, 4);
}

/// Knows how often it was constructed, copied or destroyed, and has a virtual table.
struct Counting {
    static int events;
    int id = 0;
    Counting() = default;
    explicit Counting(int number) : id(number) {}
    Counting(const Counting& other) : id(other.id) { ++events; }
    Counting& operator=(const Counting& other) {
        id = other.id;
        ++events;
        return *this;
    }
    virtual ~Counting() { ++events; }
    virtual int answer() const { return id * 2; }
};
int Counting::events = 0;

TEST(NmbArray, Growth_RelocatesByRawCopy) {
    NmbArray<Counting> array;
    array.SetSize(5);
    for (int i = 0; i < 5; ++i)
        array[i].id = i;
    Counting::events = 0;
    array.SetSize(1000);
    EXPECT_EQ(Counting::events, 0);
    EXPECT_EQ(array[4].answer(), 8);
    array.Clear();
    EXPECT_EQ(Counting::events, 0);
    EXPECT_EQ(array.data, nullptr);
    EXPECT_EQ(array.capacity, 0);
}

}  // namespace
}  // namespace NMBUtils
