// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Walks the include lines of src/ and fails on an arrow that runs the wrong way.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

// Folder -> folders whose headers it may include, beside its own.
const std::map<std::string, std::set<std::string>> kMayInclude = {
    {"tessra", {}},
    {"foundation", {"tessra"}},
    {"cache", {"tessra", "foundation"}},
    {"field3d", {"tessra", "foundation", "cache"}},
    {"volume", {"tessra", "foundation", "cache"}},
    {"particles", {"tessra", "foundation", "cache", "volume"}},
    {"mesher", {"tessra", "foundation", "cache", "volume"}},
    {"textures", {"tessra", "foundation", "cache", "volume"}},
    {"plugin", {"tessra", "foundation", "cache", "volume", "particles", "mesher", "textures"}},
    {"host", {"tessra"}},
    {"cli", {"tessra", "host", "cache", "field3d", "mesher", "foundation", "kol_writer"}},
};
// The one header of the top layer that lower layers know: pure interfaces, forward declarations
// only.
const std::string kSimInterface = "plugin/sim_interface.h";

struct Include {
    std::string folder, file, target;
    int line;
};

std::vector<Include> projectIncludes(const fs::path& src) {
    static const std::regex quoted("^\\s*#\\s*include\\s*\"([^\"]+)\"");
    std::vector<Include> found;
    for (const auto& entry : fs::recursive_directory_iterator(src)) {
        const fs::path& path = entry.path();
        if (path.extension() != ".h" && path.extension() != ".cpp")
            continue;
        const fs::path relative = fs::relative(path, src);
        std::ifstream in(path);
        std::string text;
        for (int line = 1; std::getline(in, text); ++line) {
            std::smatch m;
            if (std::regex_search(text, m, quoted))
                found.push_back({relative.begin()->string(), relative.string(), m[1], line});
        }
    }
    return found;
}

std::string folderOf(const std::string& target) {
    return target.substr(0, target.find('/'));
}

TEST(IncludeArrows, EveryIncludeRunsDownwards) {
    const fs::path src = fs::path(NIMBRA_SOURCE_DIR) / "src";
    const auto includes = projectIncludes(src);
    ASSERT_GT(includes.size(), 50u) << "the walk found too little to mean anything";
    for (const Include& i : includes) {
        const auto allowed = kMayInclude.find(i.folder);
        ASSERT_NE(allowed, kMayInclude.end()) << "unknown folder " << i.folder;
        const std::string to = folderOf(i.target);
        const bool lowerKnowsSim = i.target == kSimInterface && i.folder != "host" &&
                                   i.folder != "cli" && i.folder != "tessra" &&
                                   i.folder != "foundation";
        EXPECT_TRUE(to == i.folder || allowed->second.count(to) || lowerKnowsSim)
            << i.file << ":" << i.line << " includes " << i.target;
    }
}

TEST(IncludeArrows, IncludesNameTheirFolder) {
    const fs::path src = fs::path(NIMBRA_SOURCE_DIR) / "src";
    for (const Include& i : projectIncludes(src))
        EXPECT_TRUE(fs::exists(src / i.target) || fs::exists(src / "../tools" / i.target))
            << i.file << ":" << i.line << ": \"" << i.target << "\" is no file of src/ or tools/";
}

TEST(IncludeArrows, SimInterfaceStaysPure) {
    const fs::path src = fs::path(NIMBRA_SOURCE_DIR) / "src";
    for (const Include& i : projectIncludes(src))
        if (i.file == kSimInterface) {
            EXPECT_EQ(folderOf(i.target), "tessra") << "line " << i.line;
        }
}

TEST(IncludeArrows, HeavyHeadersStayInSources) {
    static const std::regex heavy(
        "^\\s*#\\s*include\\s*<(openvdb/|embree3/|OpenImageIO/|OpenEXR/|nlohmann/json\\.)");
    const fs::path src = fs::path(NIMBRA_SOURCE_DIR) / "src";
    for (const auto& entry : fs::recursive_directory_iterator(src)) {
        if (entry.path().extension() != ".h")
            continue;
        std::ifstream in(entry.path());
        std::string text;
        for (int line = 1; std::getline(in, text); ++line)
            EXPECT_FALSE(std::regex_search(text, heavy)) << entry.path() << ":" << line;
    }
}

}  // namespace
