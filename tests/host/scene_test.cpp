// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/scene.h"

#include <gtest/gtest.h>

#include "host/fake_library.h"
#include "support/temp_folder.h"
#include "tessra/renderer.h"

namespace nimbra::host {
namespace {

using namespace TessUtils;
using test::TestRegistry;

class SceneTest : public ::testing::Test {
protected:
    /// Makes a scene of the plug-ins in `body`; null with messages in `faults_`.
    std::unique_ptr<Scene> make(const std::string& body,
                                const std::vector<std::string>& overrides = {}) {
        SceneDiagnostics diagnostics;
        SceneDocument document =
            SceneDocument::parse("{\"nimbra\": 1,\n" + body + "}", "s.json", diagnostics);
        for (const std::string& text : overrides)
            document.setOverride(text, diagnostics);
        auto scene = Scene::create(document, registry_.registry, diagnostics);
        faults_ = diagnostics.str();
        EXPECT_EQ(scene == nullptr, !faults_.empty());
        return scene;
    }
    std::string faultsOf(const std::string& body) {
        make(body);
        return faults_;
    }
    /// The faults of one parameter of one recorder.
    std::string faultOf(const std::string& parameter) {
        return faultsOf("\"a\": {\"plugin\": \"Recorder\", " + parameter + "}");
    }
    /// One fault, at the place of the '^' in `body`, which is one line.
    void expectFault(std::string body, const std::string& message) {
        const std::size_t column = body.find('^') + 1;
        body.erase(column - 1, 1);
        EXPECT_EQ(faultsOf(body), "s.json:2:" + std::to_string(column) + ": " + message + "\n")
            << body;
    }
    TessraPluginParameter* parameter(Scene& scene, const char* plugin, const char* name) {
        auto* found = dynamic_cast<TessraPlugin*>(scene.findPlugin(plugin));
        TessraPluginParameter* value = found ? found->getParameter(name) : nullptr;
        EXPECT_NE(value, nullptr) << plugin << "." << name;
        return value;
    }
    TestRegistry registry_;
    std::string faults_;
};

TEST_F(SceneTest, BadValue_IsReportedWithWhatIsAllowed) {
    // '^' stands before the place that the message is to name.
    const char* cases[][2] = {
        {R"("flag": ^1)", "a.flag: found the number 1, allowed is true or false"},
        {R"("count": ^1.5)",
         "a.count: found the number 1.5, allowed is one of 0 (Off), 1 (Smoke), 2 (Fire)"},
        {R"("count": ^"Smok")",
         "a.count: found the text 'Smok', allowed is one of 0 (Off), 1 (Smoke), 2 (Fire)"},
        {R"("amount": ^"x")", "a.amount: found the text 'x', allowed is a number"},
        {R"("amount": ^1e39)",
         "a.amount: found the number 1e+39, allowed is a number of single precision"},
        {R"("amount": ^null)", "a.amount: found null, allowed is a number"},
        {R"("text": ^5)", "a.text: found the number 5, allowed is a text"},
        {R"("text": ^"a\u0000b")",
         "a.text: found the text 'a?b', allowed is a text without zero bytes"},
        {R"("tint": ^[1, 2])", "a.tint: found a list of 2 values, allowed is a colour [r, g, b]"},
        {R"("tint": [1, 2, ^"3"])",
         "a.tint: found the text '3', allowed is a number of single precision in a colour [r, g, "
         "b]"},
        {R"("place": {^"rotat": [0, 0, 0]})",
         "a.place: found the key 'rotat', allowed are \"translate\", \"rotate\" and \"scale\""},
        {R"("aspect": ^[1, 2])",
         "a.aspect: found a list of 2 values, allowed is a list of 3 values"},
        {R"("numbers": ^4)", "a.numbers: found the number 4, allowed is a list of values"},
        {R"("mixed": [^{}])",
         "a.mixed: found an object, allowed is a number, a text, a colour or a plug-in"},
        {R"(^"amuont": 4)",
         "a.amuont: found a parameter that Recorder doesn't have (did you mean "
         "'amount'?)"},
        {R"(^"qqqqqq": 4)", "a.qqqqqq: found a parameter that Recorder doesn't have"},
        {R"(^"out_color": 4)", "a.out_color: found a value for an output, which can't be set"},
        {R"("map": ^"@a.out_color")",
         "a.map: found a cycle of references: a -> a, none is allowed"},
        {R"("map": ^true)",
         "a.map: found true, allowed is a plug-in as \"@name\", a number or a "
         "colour [r, g, b]"},
        {R"("map": ^[1, 2])",
         "a.map: found a list of 2 values, allowed is \"@texture\", a number or "
         "a colour [r, g, b]"},
        {R"("source": ^"a")", "a.source: found the text 'a', allowed is a plug-in as \"@name\""},
        {R"("amount": {"keys": ^[]})",
         "a.amount: found a list of 0 values, allowed is a list of [time, value] pairs with "
         "different times"},
        {R"("amount": {"keys": ^[[1, 2], [1, 3]]})",
         "a.amount: found two keys at time 1, allowed is a list of [time, value] pairs with "
         "different times"},
        {R"("amount": {"keys": [^[1, 2, 3]]})",
         "a.amount: found a list of 3 values, allowed is a pair [time, value]"},
        {R"("amount": {"keys": [[1, ^"x"]]})", "a.amount: found the text 'x', allowed is a number"},
        {R"("amount": {"keys": [[1, 2]], ^"loop": 1})",
         "a.amount: found the key 'loop', an animated value has \"keys\" alone"},
        {R"("source": ^{"keys": [[1, "@a"]]})",
         "a.source: found keys, a connection to another plug-in can't be animated"},
    };
    for (const auto& one : cases)
        expectFault("\"a\": {\"plugin\": \"Recorder\", " + std::string(one[0]) + "}", one[1]);
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
    const int count = 20000;
    for (int i = 0; i < count; ++i)
        body += "\"p" + std::to_string(i) + "\": {\"plugin\": \"Recorder\", \"source\": \"@p" +
                std::to_string(i + 1) + "\"},\n";
    const auto scene =
        make(body + "\"p" + std::to_string(count) + "\": {\"plugin\": \"Recorder\"}");
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
    EXPECT_FALSE(parameter(*scene, "a", "flag")->getBool(0, 0));
    EXPECT_EQ(parameter(*scene, "a", "count")->getInt(0, 0), 2);
    EXPECT_EQ(parameter(*scene, "a", "amount")->getFloat(0, 0), 7.0f);
    EXPECT_EQ(parameter(*scene, "a", "text")->getString(0, 0), "hello");
    EXPECT_EQ(parameter(*scene, "a", "tint")->getColor(0, 0), (Color{0.1f, 0.2f, 0.3f}));
    EXPECT_EQ(parameter(*scene, "a", "glaze")->getAColor(0, 0), (AColor{{1, 2, 3}, 1}));
    EXPECT_EQ(parameter(*scene, "a", "numbers")->getCount(0), 2);
    EXPECT_EQ(parameter(*scene, "a", "numbers")->getFloat(1, 0), 2.5f);
    EXPECT_EQ(parameter(*scene, "a", "aspect")->getFloat(2, 0), 3.0f);
    EXPECT_EQ(parameter(*scene, "a", "colors")->getColor(1, 0), (Color{0, 1, 0}));
    EXPECT_EQ(parameter(*scene, "a", "mixed")->getCount(0), 4);
    EXPECT_EQ(parameter(*scene, "a", "mixed")->getString(1, 0), "two");
    EXPECT_EQ(parameter(*scene, "a", "source")->getObject(0), scene->findPlugin("b"));

    EXPECT_EQ(parameter(*scene, "b", "shade")->getCount(0), -1);
    EXPECT_EQ(parameter(*scene, "b", "shade")->getColor(0, 0), (Color{0, 1, 0}));
    EXPECT_EQ(parameter(*scene, "b", "weight")->getFloat(0, 0), 2);
    EXPECT_EQ(parameter(*scene, "c", "shade")->getCount(0), 2);
    EXPECT_EQ(parameter(*scene, "c", "shade")->getColor(1, 0), (Color{0, 1, 0}));
    EXPECT_EQ(parameter(*scene, "c", "weight")->getFloat(1, 1), 3);

    // Scaled first, then turned: x goes to y.
    const Transform place = parameter(*scene, "a", "place")->getTransform(0, 0);
    EXPECT_EQ(place.f[0], (Vector{0, 2, 0}));
    EXPECT_EQ(place.f[1], (Vector{-3, 0, 0}));
    EXPECT_EQ(place.f[2], (Vector{0, 0, 4}));
    EXPECT_EQ(place.offs, (TracePoint{10, 20, 30}));
    EXPECT_EQ(parameter(*scene, "b", "place")->getTransform(0, 0).offs, (TracePoint{1e7, 0.5, 0}));
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
    const auto file = [&](const char* plugin, const char* row) {
        return parameter(*scene, plugin, row)->getString(0, 0);
    };
    EXPECT_EQ(file("inner", "file"), (folder.path() / "parts/smoke.vdb").string());
    EXPECT_EQ(file("inner", "text"), "smoke.vdb");
    EXPECT_EQ(file("env", "file"), "$env(X)/a.vdb");
    EXPECT_EQ(file("outer", "file"), "smoke.vdb");
    EXPECT_EQ(file("root", "file"), "set.vdb");
}

TEST_F(SceneTest, LimitsOfHostRows_AreKept) {
    expectFault(R"("s": {"plugin": "TessraSettings", "width": ^0})",
                "s.width: found the number 0, allowed is a number from 1 to 65536");
    // The hints of a library's rows are for editors alone.
    EXPECT_EQ(faultOf(R"("amount": 11)"), "");
    EXPECT_EQ(faultOf(R"("count": 9)"), "");
}

TEST_F(SceneTest, Plugins_AreDeletedUsersFirst) {
    make(R"("user": {"plugin": "Recorder", "source": "@used"}, "used": {"plugin": "Recorder"})")
        .reset();
    const std::vector<std::string> expected{"user.delete", "used.delete"};
    EXPECT_EQ(registry_.record.calls, expected);
}

}  // namespace
}  // namespace nimbra::host
