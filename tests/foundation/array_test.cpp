// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "foundation/array.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <numeric>

#include "support/caught_log.h"
#include "tessra/allocator.h"

namespace NMBUtils {
namespace {

template <class Array>
void fillUp(Array& array, int count) {
    for (int i = 0; i < count; ++i)
        ASSERT_EQ(array.Append(static_cast<float>(i)), 1);
}

TEST(NmbArray, Growth_LeavesTheGreaterOfEightAndAQuarterSpare) {
    for (const auto& [size, capacity] :
         {std::pair{1, 9}, {31, 39}, {32, 40}, {36, 45}, {103, 128}}) {
        NmbArray<float> array;
        EXPECT_EQ(array.SetSize(size), 1);
        EXPECT_EQ(array.size, size);
        EXPECT_EQ(array.capacity, capacity) << size;
    }
    for (const auto& [divisor, capacity] : {std::pair{2, 150}, {0, 108}}) {
        NmbArray<float> array;
        array.growDivisor = divisor;
        array.SetSize(100);
        EXPECT_EQ(array.capacity, capacity);
    }
    NmbArray<float, long long> exact;
    EXPECT_EQ(exact.SetSize(10, nullptr, true), 1);
    EXPECT_EQ(exact.capacity, 10);
}

TEST(NmbArray, FailedGrowth_LosesEverythingAndAnswersZero) {
    NmbArray<float> plain;
    NmbArray<float, int, 1> zeroed;
    for (NmbArrayBase<float>* array :
         {static_cast<NmbArrayBase<float>*>(&plain), static_cast<NmbArrayBase<float>*>(&zeroed)}) {
        fillUp(*array, 9);
        getGlobalMemoryTracker()->failAllocation(1);
        EXPECT_EQ(array->Append(9), 0);
        EXPECT_TRUE(array->size == 0 && array->capacity == 0 && !array->data);
        EXPECT_EQ(array->Append(5), 1);
        EXPECT_EQ((*array)[0], 5.0f);
    }
    // Sizes beyond all memory don't wrap around.
    NmbArray<double, long long> wide;
    EXPECT_EQ(wide.SetSize(INT64_MAX / 4), 0);
    EXPECT_EQ(wide.SetSize(INT64_MAX - 3), 0);
    NmbArray<double, unsigned long long> unsignedSizes;
    EXPECT_EQ(unsignedSizes.SetSize(UINT64_MAX / 2), 0);
}

TEST(NmbArray, NegativeSize_IsRefusedYetStored) {
    nimbra::test::CaughtLog log;
    NmbArray<float> array;
    fillUp(array, 3);
    EXPECT_EQ(array.SetSize(-5), 0);
    EXPECT_EQ(log.take(), "[ERROR] NmbArray SetSize() with a negative newsz!\n");
    EXPECT_EQ(array.size, -5);
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
    EXPECT_TRUE(std::all_of(constructed.begin(), constructed.end(),
                            [](const Constructed& element) { return element.value == 42; }));
    NmbArray<int, int, 1> zeroed;
    zeroed.SetSize(1000);
    EXPECT_EQ(std::accumulate(zeroed.begin(), zeroed.end(), 0), 0);
    const int seven = 7;
    zeroed.SetSize(1500, &seven);
    EXPECT_EQ(std::accumulate(zeroed.begin(), zeroed.end(), 0), 3500);
    // A fill that is of the array itself keeps its value.
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

/// Knows how often it was copied or destroyed.
struct Counting {
    static inline int events = 0;
    int id = 0;
    Counting() = default;
    Counting(const Counting& other) : id(other.id) { ++events; }
    Counting& operator=(const Counting&) = delete;
    ~Counting() { ++events; }
};

TEST(NmbArray, Growth_RelocatesByRawCopy) {
    NmbArray<Counting> array;
    array.SetSize(5);
    array[4].id = 4;
    array.SetSize(1000);
    EXPECT_EQ(array[4].id, 4);
    array.Clear();
    EXPECT_EQ(Counting::events, 0);
    EXPECT_TRUE(!array.data && array.capacity == 0);
}

}  // namespace
}  // namespace NMBUtils
