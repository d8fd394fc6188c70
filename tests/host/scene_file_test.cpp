// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/scene_file.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "host/scene_parser.h"
#include "support/temp_folder.h"

namespace nimbra::host {
namespace {

namespace fs = std::filesystem;

std::string faults(const std::string& text) {
    SceneDiagnostics diagnostics;
    SceneDocument::parse(text, "s.json", diagnostics);
    return diagnostics.str();
}

TEST(SceneFile, BadText_IsReportedAtItsPlace) {
    const std::pair<const char*, const char*> scenes[] = {
        {"", "1:1: this is no JSON"},
        {"[]", "1:1: found a list of 0 values, a scene is an object of plug-ins"},
        {"{}", R"(1:1: nimbra: found no format version, a scene holds "nimbra": 1)"},
        {R"({"nimbra": 2})", "1:12: nimbra: found the number 2, the format version is 1"},
        {R"({"nimbra": 1.0})", "1:12: nimbra: found the number 1, the format version is 1"},
        {"{\"nimbra\": 1,\n \"a\": 3}",
         R"(2:7: a: found the number 3, allowed is an object with the key "plugin")"},
        {"{\"nimbra\": 1,\n \"a\": {}}",
         R"(2:7: a: found no key "plugin", which names the kind of plug-in)"},
        {"{\"nimbra\": 1,\n \"a\": {\"plugin\": 7}}",
         R"(2:18: a: found the number 7, "plugin" is the name of a kind)"},
        {R"({"nimbra": 1, "a.b": {"plugin": "X"}})",
         "1:15: a.b: found this as a name, allowed are 1 to 255 characters without '.', '@' "
         "and '='"},
        {R"({"nimbra": 1, "a=b": {"plugin": "X"}})", "1:15: a=b: found this as a name, allowed"},
        {"{\"nimbra\": 1,\n \"a\": {\"plugin\": \"X\"},\n \"a\": {\"plugin\": \"X\"}}",
         "3:2: a: found the key 'a' twice, every key may be given once"},
        {"{\"nimbra\": 1,\n \"a\": {\"plugin\": \"X\", // one\n   \"p\": 1, /* two\n */ \"p\": 2}}",
         "4:5: a.p: found the key 'p' twice, every key may be given once"},
        {R"({"nimbra": 1, "a": {"plugin": "X", "p": NaN}})",
         "1:41: a.p: found NaN, numbers must be finite"},
        {R"({"nimbra": 1, "a": {"plugin": "X", "p": [0, -Infinity]}})",
         "1:45: a.p: found -Infinity, numbers must be finite"},
        {R"({"nimbra": 1, "a": {"plugin": "X", "p": [1, 1e999]}})",
         "1:45: a.p: found 1e999, numbers must be finite"},
        {R"({"nimbra": 1, "a": tru})", "1:20: a: this is no JSON"},
        {R"({"nimbra": 1,, "a": 1})", "1:14: nimbra: this is no JSON"},
        {R"({"nimbra": 1} x)", "1:15: this is no JSON"},
        {"{\"nimbra\": 1, \"a\": \"\xff\"}", "1:20: a: this is no JSON"},
        {R"({"nimbra": 1 /* open)", "1:14: nimbra: this is no JSON"},
        {R"({"nimbra": 1, "include": 5})",
         "1:26: include: found the number 5, allowed is a list of file names"},
        {R"({"nimbra": 1, "include": ["no/such.json"]})", "1:27: include: there is no file"},
    };
    for (const auto& [text, message] : scenes)
        EXPECT_TRUE(faults(text).starts_with(std::string("s.json:") + message)) << text << "\n"
                                                                                << faults(text);
}

TEST(SceneFile, CommentsAndByteOrderMark_AreSkipped) {
    SceneDiagnostics diagnostics;
    const SceneDocument document = SceneDocument::parse(
        "\xEF\xBB\xBF// first\n{ /* a */ \"nimbra\": 1, \"a\" /* b */ : {\"plugin\": \"X\",\n"
        "\"p\": [1, -2.5e1 /* c */, true, null, \"x\\n\"]}}",
        "s.json", diagnostics);
    ASSERT_EQ(diagnostics.str(), "");
    ASSERT_EQ(document.plugins.size(), 1u);
    const SceneNode& list = document.plugins[0].parameters.at(0).value;
    ASSERT_EQ(list.items.size(), 5u);
    EXPECT_EQ(list.location.str(), "s.json:3:6");
    EXPECT_EQ(list.items[1].number, -25.0);
    EXPECT_EQ(list.items[1].location.str(), "s.json:3:10");
    EXPECT_EQ(list.items[2].location.str(), "s.json:3:26");
    EXPECT_TRUE(list.items[2].boolean);
    EXPECT_EQ(list.items[3].kind, SceneNode::Kind::Null);
    EXPECT_EQ(list.items[4].text, "x\n");
    EXPECT_EQ(list.items[4].location.str(), "s.json:3:38");
}

TEST(SceneFile, NestingAt64_IsReadAndAt65Refused) {
    const auto nested = [](int lists) {
        return "{\"nimbra\": 1, \"a\": {\"plugin\": \"X\", \"p\": " + std::string(lists, '[') +
               std::string(lists, ']') + "}}";
    };
    EXPECT_EQ(faults(nested(62)), "");
    EXPECT_EQ(
        faults(nested(63)),
        "s.json:1:103: a.p: found values nested deeper than 64 levels, that many are allowed\n");
    // Deep enough to end a recursive reader.
    EXPECT_NE(faults(nested(3'000'000)), "");
}

class SceneFolder : public ::testing::Test {
protected:
    std::string write(const std::string& name, const std::string& text) {
        return folder_.write(name, text).string();
    }
    std::string load(const std::string& path, SceneDocument* document = nullptr) {
        SceneDiagnostics diagnostics;
        SceneDocument read = SceneDocument::load(path, diagnostics);
        if (document)
            *document = std::move(read);
        std::string text = diagnostics.str();
        // Messages begin with the folder of this run.
        const std::string folder = folder_.path().string() + "/";
        for (std::size_t at; (at = text.find(folder)) != std::string::npos;)
            text.erase(at, folder.size());
        return text;
    }
    nimbra::test::TempFolder folder_;
};

TEST_F(SceneFolder, Include_BringsPluginsFirstAndOnce) {
    write("parts/deep.json", R"({"nimbra": 1, "deep": {"plugin": "X"}})");
    write("parts/left.json", R"({"nimbra": 1, "include": ["deep.json"], "left": {"plugin": "X"}})");
    const std::string main = write(
        "main.json",
        R"({"nimbra": 1, "a": {"plugin": "X"}, "include": ["parts/left.json", "parts/deep.json"]})");
    SceneDocument document;
    ASSERT_EQ(load(main, &document), "");
    std::string found;
    for (const ScenePluginEntry& plugin : document.plugins)
        found += plugin.name + " of " + fs::relative(plugin.folder, folder_.path()).string() + ", ";
    EXPECT_EQ(found, "deep of parts, left of parts, a of ., ");
    EXPECT_EQ(document.folder, folder_.path().string());
    EXPECT_EQ(document.files.size(), 3u);
}

TEST_F(SceneFolder, IncludeFaults_AreReportedAtTheInclude) {
    write("b.json", "{\"nimbra\": 1,\n\"include\": [\"a.json\"]}");
    const std::string a = write("a.json", R"({"nimbra": 1, "include": ["b.json"]})");
    EXPECT_EQ(
        load(a),
        "b.json:2:13: include: found 'a.json', which includes this file, files must not include "
        "each other in a circle\n");

    write("one.json", R"({"nimbra": 1, "x": {"plugin": "X"}})");
    const std::string twice = write(
        "twice.json", "{\"nimbra\": 1, \"include\": [\"one.json\"],\n\"x\": {\"plugin\": \"X\"}}");
    EXPECT_EQ(load(twice),
              "twice.json:2:1: x: found the name again, it is defined at one.json:1:15\n");

    fs::create_directories(folder_ / "parts");
    const std::string folder = write("folder.json", R"({"nimbra": 1, "include": ["parts"]})");
    EXPECT_NE(load(folder).find("is no regular file"), std::string::npos);
}

TEST_F(SceneFolder, UnreadableMainFile_IsReported) {
    EXPECT_EQ(load((folder_.path() / "none.json").string()),
              "none.json: there is no file 'none.json'\n");
    const std::string big = write("big.json", "{}");
    fs::resize_file(big, SceneDocument::kMostBytes + 1);
    EXPECT_EQ(load(big),
              "big.json: found 67108865 bytes in 'big.json', a scene file may hold 64 MB\n");
}

class Override : public ::testing::Test {
protected:
    std::string set(const std::string& assignment) {
        SceneDiagnostics diagnostics;
        const bool done = document_.setOverride(assignment, diagnostics);
        EXPECT_EQ(done, diagnostics.empty());
        return diagnostics.str();
    }
    const SceneNode& value(const std::string& name, const std::string& key) {
        for (const SceneNode::Member& member : document_.find(name)->parameters)
            if (member.key == key)
                return member.value;
        throw std::out_of_range("no " + name + "." + key);
    }
    SceneDiagnostics ignored_;
    SceneDocument document_ = SceneDocument::parse(
        R"({"nimbra": 1, "plume": {"plugin": "Sim", "step": 90}, "a": {"plugin": "Tex"},
            "b": {"plugin": "Tex"}})",
        "s.json", ignored_);
};

TEST_F(Override, Value_ReplacesOrAdds) {
    EXPECT_EQ(set("plume.step=40"), "");
    EXPECT_EQ(value("plume", "step").number, 40);
    EXPECT_EQ(document_.find("plume")->parameters.size(), 1u);
    EXPECT_EQ(set("plume.list=[1, 2]"), "");
    EXPECT_EQ(value("plume", "list").items.size(), 2u);
    // A text that looks like a number keeps its spelling for rows that take text.
    const std::pair<const char*, const char*> texts[] = {{"x=1.vdb", "x=1.vdb"},
                                                         {"007", "007"},
                                                         {"\"a b\"", "a b"},
                                                         {"@a.out_color", "@a.out_color"}};
    for (const auto& [given, text] : texts) {
        EXPECT_EQ(set(std::string("plume.text=") + given), "");
        EXPECT_EQ(value("plume", "text").text, text);
    }
}

TEST_F(Override, Kind_StandsForItsOnlyPlugin) {
    EXPECT_EQ(set("Sim.step=7"), "");
    EXPECT_EQ(value("plume", "step").number, 7);
    EXPECT_EQ(set("Tex.size=2"),
              "Tex.size=2: found 2 plug-ins of kind 'Tex', name the one that is meant\n");
}

TEST_F(Override, Settings_AreAddedWhereTheSceneHasNone) {
    EXPECT_EQ(set("settings.samples=4"), "");
    EXPECT_EQ(set("TessraSettings.seed=5"), "");
    EXPECT_EQ(document_.find("settings")->type, "TessraSettings");
    EXPECT_EQ(document_.find("settings")->parameters.size(), 2u);
}

TEST_F(Override, Faults_NameTheAssignment) {
    EXPECT_EQ(set("plum.step=4"), "plum.step=4: found no plug-in 'plum' (did you mean 'plume'?)\n");
    for (const char* text : {"plume", "plume.step", ".step=1", "plume.=1", "=", ""})
        EXPECT_NE(set(text).find("allowed is plugin.param=value"), std::string::npos) << text;
}

}  // namespace
}  // namespace nimbra::host
