// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// From a scene's text to plug-ins with values. Whatever the bytes, the answer is a scene or
// messages with a place.
#include "host/scene.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "host/fake_library.h"
#include "support/mutated.h"
#include "support/temp_folder.h"
#include "tessra/renderer.h"

namespace nimbra::host {
namespace {

using namespace TessUtils;
using test::TestRegistry;

class SceneTest : public ::testing::Test {
protected:
    /// Makes a scene of the plug-ins in `body`; null with messages in `faults_`.
    std::unique_ptr<Scene> make(const std::string& body) {
        return test::makeScene(registry_.registry, body, faults_);
    }
    std::string faultsOf(const std::string& body) {
        make(body);
        return faults_;
    }
    static std::string recorder(const std::string& rows) {
        return "\"a\": {\"plugin\": \"Recorder\", " + rows + "}";
    }
    /// One fault, at the place of the '^' in `body`, which is one line.
    void expectFault(std::string body, const std::string& message) {
        const std::size_t column = body.find('^') + 1;
        body.erase(column - 1, 1);
        EXPECT_EQ(faultsOf(body), "s.json:2:" + std::to_string(column) + ": " + message + "\n")
            << body;
    }
    static TessraPluginParameter& row(Scene& scene, const char* plugin, const char* name) {
        return *dynamic_cast<TessraPlugin&>(*scene.findPlugin(plugin)).getParameter(name);
    }
    TestRegistry registry_;
    std::string faults_;
};

TEST_F(SceneTest, BadValue_IsReportedWithWhatIsAllowed) {
    // '^' stands before the place that the message is to name.
    const std::pair<std::string, const char*> cases[] = {
        {R"("flag": ^1)", "the number 1, allowed is true or false"},
        {R"("count": ^1.5)", "the number 1.5, allowed is one of 0 (Off), 1 (Smoke), 2 (Fire)"},
        {R"("count": ^"Smok")", "the text 'Smok', allowed is one of 0 (Off), 1 (Smoke), 2 (Fire)"},
        {R"("amount": ^"x")", "the text 'x', allowed is a number"},
        {R"("amount": ^1e39)", "the number 1e+39, allowed is a number of single precision"},
        {R"("amount": ^null)", "null, allowed is a number"},
        {R"("text": ^5)", "the number 5, allowed is a text"},
        {R"("text": ^"a\u0000b")", "the text 'a?b', allowed is a text without zero bytes"},
        {R"("tint": ^[1, 2])", "a list of 2 values, allowed is a colour [r, g, b]"},
        {R"("tint": [1, 2, ^"3"])",
         "the text '3', allowed is a number of single precision in a colour [r, g, b]"},
        {R"("place": {^"rotat": [0, 0, 0]})",
         R"(the key 'rotat', allowed are "translate", "rotate" and "scale")"},
        {R"("aspect": ^[1, 2])", "a list of 2 values, allowed is a list of 3 values"},
        {R"("numbers": ^4)", "the number 4, allowed is a list of values"},
        {R"("mixed": [^{}])", "an object, allowed is a number, a text, a colour or a plug-in"},
        {R"(^"amuont": 4)", "a parameter that Recorder doesn't have (did you mean 'amount'?)"},
        {R"(^"qqqqqq": 4)", "a parameter that Recorder doesn't have"},
        {R"(^"out_color": 4)", "a value for an output, which can't be set"},
        {R"("map": ^"@a.out_color")", "a cycle of references: a -> a, none is allowed"},
        {R"("map": ^true)",
         R"(true, allowed is a plug-in as "@name", a number or a colour [r, g, b])"},
        {R"("map": ^[1, 2])",
         R"(a list of 2 values, allowed is "@texture", a number or a colour [r, g, b])"},
        {R"("source": ^"a")", R"(the text 'a', allowed is a plug-in as "@name")"},
        {R"("amount": {"keys": ^[]})",
         "a list of 0 values, allowed is a list of [time, value] pairs with different times"},
        {R"("amount": {"keys": ^[[1, 2], [1, 3]]})",
         "two keys at time 1, allowed is a list of [time, value] pairs with different times"},
        {R"("amount": {"keys": [^[1, 2, 3]]})",
         "a list of 3 values, allowed is a pair [time, value]"},
        {R"("shade": {"keys": [^[]]})", "a list of 0 values, allowed is a pair [time, value]"},
        {R"("amount": {"keys": [[1, ^"x"]]})", "the text 'x', allowed is a number"},
        {R"("amount": {"keys": [[1, 2]], ^"loop": 1})",
         R"(the key 'loop', an animated value has "keys" alone)"},
        {R"("source": ^{"keys": [[1, "@a"]]})",
         "keys, a connection to another plug-in can't be animated"},
    };
    for (const auto& [rows, found] : cases) {
        const std::size_t name = rows.find('"') + 1;
        const std::string key = rows.substr(name, rows.find('"', name) - name);
        expectFault(recorder(rows), "a." + key + ": found " + found);
    }
}

TEST_F(SceneTest, BadPlugin_IsReportedAtItsKind) {
    expectFault(R"("a": {"plugin": ^"Recordr"})",
                "a.plugin: found the unknown kind 'Recordr' (did you mean 'Recorder'?)");
    expectFault(R"("a": {"plugin": ^"Absent"})",
                "a.plugin: plug-in 'Absent' is not available in this build of Recorders");
    expectFault(R"("s": {"plugin": "TessraSettings"}, ^"t": {"plugin": "TessraSettings"})",
                "t.plugin: found a second TessraSettings, a scene has one");
}

TEST_F(SceneTest, BadReference_IsReportedAtTheReference) {
    const std::string head =
        R"("plume": {"plugin": "Recorder"}, "curve": {"plugin": "TessraCurve"}, )"
        R"("a": {"plugin": "Recorder", )";
    expectFault(head + R"("source": ^"@plum"})",
                "a.source: found '@plum', there is no such plug-in (did you mean 'plume'?)");
    expectFault(head + R"("source": ^"@curve"})",
                "a.source: found '@curve', a TessraCurve, allowed is one of Recorder, Absent");
    expectFault(head + R"("map": ^"@curve"})",
                "a.map: found '@curve', a TessraCurve, allowed is a texture");
    expectFault(head + R"("map": ^"@plume.out_colour"})",
                "a.map: found '@plume.out_colour', Recorder has no such output (did you mean "
                "'out_color'?)");
}

TEST_F(SceneTest, CycleOfReferences_IsReportedWithItsMembers) {
    EXPECT_EQ(faultsOf("\"start\": {\"plugin\": \"Recorder\", \"source\": \"@x\"},\n"
                       "\"x\": {\"plugin\": \"Recorder\", \"source\": \"@y\"},\n"
                       "\"y\": {\"plugin\": \"Recorder\", \"map\": \"@x.out_color\"}"),
              "s.json:4:36: y.map: found a cycle of references: x -> y -> x, none is allowed\n");
}

TEST_F(SceneTest, LongChainOfReferences_IsOrdered) {
    std::string body;
    for (int i = 0; i < 20000; ++i)
        body += "\"p" + std::to_string(i) + R"(": {"plugin": "Recorder", "source": "@p)" +
                std::to_string(i + 1) + "\"},";
    const auto scene = make(body + R"("p20000": {"plugin": "Recorder"})");
    ASSERT_EQ(faults_, "");
    EXPECT_STREQ(scene->dependencyOrder().front()->getPluginName(), "p20000");
    EXPECT_STREQ(scene->plugins().front()->getPluginName(), "p0");
}

TEST_F(SceneTest, Values_ReachThePlugin) {
    const auto scene = make(R"("a": {"plugin": "Recorder", "flag": false, "count": "fire",
        "amount": 7, "text": "hello", "tint": [0.1, 0.2, 0.3], "glaze": [1, 2, 3],
        "numbers": [1, 2.5], "aspect": [1, 2, 3], "colors": [[1, 0, 0], [0, 1, 0]],
        "mixed": [1, "two", true, [1, 2, 3, 4]], "source": "@b",
        "place": {"translate": [10, 20, 30], "rotate": [0, 0, 90], "scale": [2, 3, 4]}},
        "b": {"plugin": "Recorder", "place": [[1, 0, 0], [0, 1, 0], [0, 0, 1], [1e7, 0.5, 0]],
        "shade": [0, 1, 0], "weight": 2},
        "c": {"plugin": "Recorder", "shade": [[1, 0, 0], [0, 1, 0]],
        "weight": {"keys": [[0, [1, 2]], [2, [3, 4]]]}})");
    ASSERT_NE(scene, nullptr) << faults_;
    const auto a = [&](const char* name) -> auto& {
        return row(*scene, "a", name);
    };
    const auto b = [&](const char* name) -> auto& {
        return row(*scene, "b", name);
    };
    const auto c = [&](const char* name) -> auto& {
        return row(*scene, "c", name);
    };
    EXPECT_FALSE(a("flag").getBool(0, 0));
    EXPECT_EQ(a("count").getInt(0, 0), 2);
    EXPECT_EQ(a("amount").getFloat(0, 0), 7.0f);
    EXPECT_EQ(a("text").getString(0, 0), "hello");
    EXPECT_EQ(a("tint").getColor(0, 0), (Color{0.1f, 0.2f, 0.3f}));
    EXPECT_EQ(a("glaze").getAColor(0, 0), (AColor{{1, 2, 3}, 1}));
    EXPECT_EQ(a("numbers").getCount(0), 2);
    EXPECT_EQ(a("numbers").getFloat(1, 0), 2.5f);
    EXPECT_EQ(a("aspect").getFloat(2, 0), 3.0f);
    EXPECT_EQ(a("colors").getColor(1, 0), (Color{0, 1, 0}));
    EXPECT_EQ(a("mixed").getCount(0), 4);
    EXPECT_EQ(a("mixed").getString(1, 0), "two");
    EXPECT_EQ(a("source").getObject(0), scene->findPlugin("b"));
    EXPECT_EQ(b("shade").getCount(0), -1);
    EXPECT_EQ(b("shade").getColor(0, 0), (Color{0, 1, 0}));
    EXPECT_EQ(b("weight").getFloat(0, 0), 2);
    EXPECT_EQ(c("shade").getCount(0), 2);
    EXPECT_EQ(c("shade").getColor(1, 0), (Color{0, 1, 0}));
    EXPECT_EQ(c("weight").getFloat(1, 1), 3);
    // Scaled first, then turned: x goes to y.
    EXPECT_EQ(a("place").getTransform(0, 0),
              (Transform{{{0, 2, 0}, {-3, 0, 0}, {0, 0, 4}}, {10, 20, 30}}));
    EXPECT_EQ(b("place").getTransform(0, 0).offs, (TracePoint{1e7, 0.5, 0}));
}

TEST_F(SceneTest, FilesOfAnIncludedScene_StartAtItsFolder) {
    const nimbra::test::TempFolder folder;
    folder.write("parts/p.json", R"({"nimbra": 1, "inner": {"plugin": "Recorder",
        "file": "smoke.vdb", "text": "smoke.vdb"}, "env": {"plugin": "Recorder",
        "file": "$env(X)/a.vdb"}, "root": {"plugin": "Recorder", "file": "/a.vdb"}})");
    const auto path = folder.write("main.json", R"({"nimbra": 1, "include": ["parts/p.json"],
        "outer": {"plugin": "Recorder", "file": "smoke.vdb"}})");
    SceneDiagnostics diagnostics;
    SceneDocument document = SceneDocument::load(path.string(), diagnostics);
    document.setOverride("root.file=set.vdb", diagnostics);
    const auto scene = Scene::create(document, registry_.registry, diagnostics);
    ASSERT_EQ(diagnostics.str(), "");
    const char* expected[][3] = {{"inner", "file", "parts/smoke.vdb"},
                                 {"inner", "text", "smoke.vdb"},
                                 {"env", "file", "$env(X)/a.vdb"},
                                 {"outer", "file", "smoke.vdb"},
                                 {"root", "file", "set.vdb"}};
    for (const auto& [plugin, name, file] : expected) {
        const bool ofPart = file == std::string("parts/smoke.vdb");
        EXPECT_EQ(row(*scene, plugin, name).getString(0, 0), ofPart ? folder / file : file);
    }
}

TEST_F(SceneTest, LimitsOfHostRows_AreKept) {
    expectFault(R"("s": {"plugin": "TessraSettings", "width": ^0})",
                "s.width: found the number 0, allowed is a number from 1 to 65536");
    // The hints of a library's rows are for editors alone.
    EXPECT_EQ(faultsOf(recorder(R"("amount": 11, "count": 9)")), "");
}

TEST_F(SceneTest, Plugins_AreDeletedUsersFirst) {
    make(R"("user": {"plugin": "Recorder", "source": "@used"}, "used": {"plugin": "Recorder"})")
        .reset();
    EXPECT_EQ(registry_.record.calls, (std::vector<std::string>{"user.delete", "used.delete"}));
}

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

/// Any change, a telling piece, or another digit: then values are reached behind the parser.
std::string damaged(std::string text, std::mt19937_64& random) {
    static const char* const kPieces[] = {"{",  "]",  ",",       "\"",   "@",  "1e400", "null", "",
                                          "/*", "//", "\\u0000", "\xff", "\n", "NaN",   "-0"};
    const std::size_t at = random() % text.size(), way = random() % 6;
    const std::size_t digit = text.find_first_of("0123456789", at);
    if (way == 0)
        return nimbra::test::mutated(std::move(text), random);
    if (way < 3)
        text.replace(at, random() % 12, kPieces[random() % std::size(kPieces)]);
    else if (digit != text.npos)
        text[digit] = static_cast<char>('0' + random() % 10);
    return text;
}

TEST(SceneMutation, DamagedScene_GivesASceneOrMessagesWithAPlace) {
    test::TestRegistry registry;
    std::mt19937_64 random(2026);
    int parsed = 0, scenes = 0, refused = 0;
    for (int i = 0; i < 20000; ++i) {
        std::string text = kSeedScene;
        for (unsigned n = 1 + random() % 4; n > 0 && text.size() > 64; --n)
            text = damaged(std::move(text), random);
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
