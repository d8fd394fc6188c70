// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Damaged scenes: whatever the bytes, the answer is a scene or messages with a place.
#include <gtest/gtest.h>

#include <random>
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

using Random = std::mt19937_64;

void mutate(std::string& text, Random& random) {
    static const char* const kPieces[] = {"{",  "]",  ",",       "\"",   "@",  "1e400", "null",
                                          "/*", "//", "\\u0000", "\xff", "\n", "NaN",   "-0"};
    const auto below = [&](std::size_t limit) {
        return static_cast<std::size_t>(random() % limit);
    };
    if (text.empty())
        return;
    const std::size_t at = below(text.size());
    const std::size_t length = 1 + below(12);
    switch (below(9)) {
        case 0:
            text[at] = static_cast<char>(below(256));
            break;
        case 1:
            text.erase(at, length);
            break;
        case 2:
            text.insert(at, kPieces[below(std::size(kPieces))]);
            break;
        case 3:
            text.insert(below(text.size()), text.substr(at, length * 4));
            break;
        case 4:
            text.replace(at, length, kPieces[below(std::size(kPieces))]);
            break;
        default: {
            // Another digit, so that values are reached behind the parser.
            const std::size_t digit = text.find_first_of("0123456789", at);
            if (digit != text.npos)
                text[digit] = static_cast<char>('0' + below(10));
        }
    }
}

TEST(SceneMutation, DamagedScene_GivesASceneOrMessagesWithAPlace) {
    test::TestRegistry registry;
    Random random(2026);
    int parsed = 0, scenes = 0, refused = 0;
    for (int i = 0; i < 20000; ++i) {
        std::string text = kSeedScene;
        for (unsigned n = 1 + random() % 4; n > 0; --n)
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
