// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Damaged scenes: whatever the bytes, the answer is a scene or messages with a place.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "host/fake_library.h"
#include "host/scene.h"

namespace nimbra::host {
namespace {

constexpr const char* kSeedScene = R"(// a scene
{"nimbra": 1, /* two */
 "settings": {"plugin": "TessraSettings", "width": 64, "up_axis": "z", "background": [0, 0.1, 1]},
 "ramp": {"plugin": "TessraGradient", "positions": [0, 0.5, 1], "colors": [[0, 0, 0], [1, 1, 1]]},
 "noise": {"plugin": "TessraTexNoise", "color_a": "@checker", "color_b": 0.5, "octaves": 3},
 "checker": {"plugin": "TessraTexChecker", "transform": {"rotate": [0, 90, 0], "scale": 2}},
 "rec": {"plugin": "Recorder", "flag": true, "count": "fire", "amount": {"keys": [[0, 1], [5, 2e1]]},
   "text": "caf\u00e9 \n", "place": [[1, 0, 0], [0, 1, 0], [0, 0, 1], [1e7, 0, -5]],
   "map": "@noise.out_color", "mask": null, "source": "@other", "mixed": [1, "a", false, [1, 2, 3]]},
 "other": {"plugin": "Recorder", "numbers": [], "aspect": [1, 1.5, 2]}
})";

/// A fixed stream of numbers (Vigna, splitmix64).
class Stream {
public:
    explicit Stream(std::uint64_t seed) : state_(seed) {}
    std::size_t below(std::size_t limit) {
        std::uint64_t z = (state_ += 0x9e3779b97f4a7c15U);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9U;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebU;
        return static_cast<std::size_t>((z ^ (z >> 31)) % limit);
    }

private:
    std::uint64_t state_;
};

void mutate(std::string& text, Stream& random) {
    static const char* const kPieces[] = {"{",
                                          "}",
                                          "[",
                                          "]",
                                          ",",
                                          ":",
                                          "\"",
                                          "@",
                                          "@rec",
                                          "1e400",
                                          "-0",
                                          "4294967296",
                                          "null",
                                          "true",
                                          "\"keys\": ",
                                          "/*",
                                          "*/",
                                          "//",
                                          "\\u0000",
                                          "\xff",
                                          "\"include\": [\"x\"], ",
                                          "NaN",
                                          "\n",
                                          "0.5",
                                          "@other.out_color"};
    if (text.empty())
        return;
    const std::size_t at = random.below(text.size());
    const std::size_t length = 1 + random.below(12);
    switch (random.below(9)) {
        case 0:
            text[at] = static_cast<char>(random.below(256));
            break;
        case 1:
            text.erase(at, length);
            break;
        case 2:
            text.insert(at, kPieces[random.below(std::size(kPieces))]);
            break;
        case 3:
            text.insert(random.below(text.size()), text.substr(at, length * 4));
            break;
        case 4:
            text.replace(at, length, kPieces[random.below(std::size(kPieces))]);
            break;
        default: {
            // Another digit, so that values are reached behind the parser.
            const std::size_t digit = text.find_first_of("0123456789", at);
            if (digit != text.npos)
                text[digit] = static_cast<char>('0' + random.below(10));
        }
    }
}

TEST(SceneMutation, DamagedScene_GivesASceneOrMessagesWithAPlace) {
    test::TestRegistry registry;
    Stream random(2026);
    int parsed = 0, scenes = 0, refused = 0;
    for (int i = 0; i < 20000; ++i) {
        std::string text = kSeedScene;
        for (std::size_t n = 1 + random.below(4); n > 0; --n)
            mutate(text, random);
        SceneDiagnostics diagnostics;
        const SceneDocument document = SceneDocument::parse(text, "m.json", diagnostics);
        // Plug-ins take their time to make: those of 5000 scenes will do.
        parsed += diagnostics.empty();
        if (diagnostics.empty() && parsed > 5000)
            continue;
        const auto scene = Scene::create(document, registry.registry, diagnostics);
        registry.record.calls.clear();
        ASSERT_EQ(scene == nullptr, !diagnostics.empty()) << text;
        (scene ? scenes : refused) += 1;
        for (const SceneMessage& message : diagnostics.messages()) {
            ASSERT_GE(message.location.line, 1) << text;
            ASSERT_GE(message.location.column, 1) << text;
            ASSERT_LE(message.str().size(), 3000u) << text;
        }
    }
    // The mutations are neither all harmless nor all fatal.
    EXPECT_GT(scenes, 500);
    EXPECT_GT(parsed, 2000);
    EXPECT_GT(refused, 5000);
}

}  // namespace
}  // namespace nimbra::host
