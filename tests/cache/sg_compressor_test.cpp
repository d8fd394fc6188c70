// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cache/sg_compressor.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <random>
#include <span>

#include "support/golden.h"
#include "support/temp_folder.h"

namespace NMBUtils {
namespace {

using nimbra::test::GoldenCase;
using Bytes = std::vector<std::uint8_t>;

Bytes bytesOf(const std::filesystem::path& path) {
    const std::string text = nimbra::test::readFile(path);
    return {text.begin(), text.end()};
}

int decode(int dimensions, const Bytes& bytes, std::vector<float>& out) {
    if (dimensions == 1)
        return SGCompressor<1>().Decode(bytes.data(), bytes.size(), out.data(), out.size());
    return SGCompressor<3>().Decode(bytes.data(), bytes.size(), out.data(), out.size());
}

void checkStream(const nlohmann::json& c, float prefill, const std::filesystem::path& folder) {
    const Bytes bytes = bytesOf(folder / c["file"].get<std::string>());
    std::vector<float> out(c["elementLimit"].get<std::size_t>(), prefill);
    EXPECT_EQ(decode(c["dimensions"], bytes, out) != 0, c["returns"].get<bool>());
    if (c.value("untouched", false)) {
        EXPECT_TRUE(std::all_of(out.begin(), out.end(), [&](float v) { return v == prefill; }));
    }
    if (!c.contains("checkedCount"))
        return;
    const auto checked = c["checkedCount"].get<std::size_t>();
    EXPECT_EQ(nimbra::test::crc32Of(std::as_bytes(std::span(out).first(checked))), c["crc32"]);
    const auto& index = c["sample_index"];
    for (std::size_t i = 0; i < index.size(); ++i)
        EXPECT_EQ(nimbra::test::bitsOf(out[index[i].get<std::size_t>()]), c["sample_bits"][i]);
}

TEST(SGCompressor, GoldenStreams_DecodeToTheBit) {
    for (const GoldenCase& golden : nimbra::test::goldenNamed("streams")) {
        if (!golden.json.contains("prefill"))
            continue;
        for (const auto& c : golden.json["streams"]) {
            SCOPED_TRACE(c["file"].get<std::string>() + ": " + c["covers"].get<std::string>());
            checkStream(c, nimbra::test::floatOf(golden.json["prefill"]),
                        golden.path.parent_path());
        }
    }
}

// Smoke-like: empty space, smooth bodies, a little noise.
std::vector<float> smoke(std::size_t count, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<float> v(count);
    for (std::size_t i = 0; i < count; ++i) {
        const double s = std::sin(static_cast<double>(i) * 0.01) - 0.4;
        v[i] = s > 0 ? static_cast<float>(s + (random() % 1000) * 1e-5) : 0.0f;
    }
    return v;
}

TEST(SGCompressor, StreamsInAFile_DecodeAsThoseInMemory) {
    const nimbra::test::TempFolder folder;
    const std::string path = folder / "stream";
    const std::vector<float> in = smoke(5000, 5);
    SGCompressor<1> compressor;
    for (const int zones : {1, 3}) {
        Bytes bytes;
        ASSERT_TRUE(compressor.Encode(in.data(), in.size(), zones, {.bits = 10}, bytes));
        std::filesystem::remove(path);
        std::vector<float> fromFile(in.size());
        EXPECT_EQ(compressor.Decode(nullptr, 100, fromFile.data(), in.size(), path.c_str()), 0);
        // A length beyond the file's end, then files that end too early.
        for (const std::size_t left : {bytes.size(), bytes.size() - 40, std::size_t{30},
                                       std::size_t{10}, std::size_t{3}, std::size_t{0}}) {
            SCOPED_TRACE(testing::Message() << zones << " zones, " << left << " bytes");
            const std::string cut(bytes.begin(), bytes.begin() + static_cast<long>(left));
            folder.write("stream", cut);
            fromFile.assign(in.size(), -7.0f);
            std::vector<float> fromMemory = fromFile;
            EXPECT_EQ(compressor.Decode(nullptr, bytes.size() + 9, fromFile.data(), in.size(),
                                        path.c_str()),
                      decode(1, Bytes(cut.begin(), cut.end()), fromMemory));
            EXPECT_EQ(fromFile, fromMemory);
        }
    }
}

TEST(SGCompressor, ConstantAndNonFiniteZones_TakeElevenBytes) {
    std::vector<float> v(300, 2.5f);
    Bytes bytes;
    ASSERT_TRUE(encodeZone(v.data(), v.size(), {}, bytes));
    EXPECT_EQ(bytes.size(), 11u);
    v[100] = std::nanf("");
    bytes.clear();
    ASSERT_TRUE(encodeZone(v.data(), v.size(), {}, bytes));
    ASSERT_EQ(decode(1, bytes, v), 1);
    EXPECT_EQ(v[0], 0.0f) << "a value that isn't finite turns its zone into a constant 0";
    // A few values are shorter without a table of symbols.
    std::vector<float> few = {1, 2, 5, 9, 3};
    bytes.clear();
    ASSERT_TRUE(encodeZone(few.data(), few.size(), {}, bytes));
    ASSERT_EQ(decode(1, bytes, few), 1);
    EXPECT_NEAR(few[3], 9, 1e-3f);
}

TEST(SGCompressor, DamagedStreams_StayInsideTheirBuffers) {
    const std::vector<float> in = smoke(4000, 3);
    std::mt19937 random(11);
    for (const int zones : {1, 4}) {
        Bytes sound;
        ASSERT_TRUE(encodeStream(in.data(), in.size(), zones, {.bits = 10}, sound));
        std::vector<float> out(in.size());
        for (std::size_t cut = 0; cut < std::min<std::size_t>(sound.size(), 600); ++cut)
            decode(1, Bytes(sound.begin(), sound.begin() + static_cast<long>(cut)), out);
        for (int i = 0; i < 3000; ++i) {
            Bytes broken = sound;
            for (unsigned hits = 1 + random() % 4; hits > 0; --hits)
                broken[random() %
                       std::min<std::size_t>(broken.size(), i % 2 ? 60 : broken.size())] =
                    static_cast<std::uint8_t>(random());
            decode(1 + 2 * (i & 1), broken, out);
        }
    }
}

TEST(SGCompressor, ABoxOfHugeEmptySides_EndsAtOnce) {
    const std::int32_t huge = 0x7FFFFFFF;
    for (const std::array<std::int32_t, 3>& size :
         {std::array{0, huge, huge}, {huge, 0, huge}, {huge, huge, 0}}) {
        Bytes bytes{0x01, 0xFC, 2};
        const auto append = [&](const auto& field) {
            const auto* const at = reinterpret_cast<const std::uint8_t*>(&field);
            bytes.insert(bytes.end(), at, at + sizeof field);
        };
        append(size);
        append(std::array{1.0f, 0.0f});  // scale, minimum
        append(std::int32_t{0});
        append(std::uint8_t{3});  // passes
        append(std::uint8_t{8});  // direct form
        append(std::int32_t{0});
        std::vector<float> out(10, -7.0f);
        EXPECT_EQ(decode(3, bytes, out), 1);
        EXPECT_EQ(out, std::vector<float>(10, -7.0f));
    }
}

TEST(SGCompressor, ALongSequence_TakesNoMoreWorkMemory) {
    const std::vector<float> in = smoke(450000, 5);
    Bytes bytes;
    const ZoneEncoding e{.bits = 0, .step = 0.01f, .order = 2};
    ASSERT_TRUE(encodeStream(in.data(), in.size(), 1, e, bytes));
    std::vector<float> out(in.size());
    SGCompressor<1> compressor;
    ASSERT_EQ(compressor.Decode(bytes.data(), bytes.size(), out.data(), out.size()), 1);
    EXPECT_LE(compressor.workBytes(), 500000u);
    for (std::size_t i = 0; i < in.size(); ++i)
        ASSERT_NEAR(out[i], in[i], 0.0051) << i;
}

}  // namespace
}  // namespace NMBUtils
