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
    std::string folder, file, target;  // the target with its quotes or angles
    int line;
};

const std::vector<Include>& allIncludes() {
    static const std::vector<Include> all = [] {
        const fs::path src = fs::path(NIMBRA_SOURCE_DIR) / "src";
        const std::regex include("^\\s*#\\s*include\\s*([\"<][^\">]+)[\">]");
        std::vector<Include> found;
        for (const auto& entry : fs::recursive_directory_iterator(src)) {
            const fs::path relative = fs::relative(entry.path(), src);
            if (relative.extension() != ".h" && relative.extension() != ".cpp")
                continue;
            std::ifstream in(entry.path());
            std::string text;
            std::smatch m;
            for (int line = 1; std::getline(in, text); ++line)
                if (std::regex_search(text, m, include))
                    found.push_back({relative.begin()->string(), relative.string(), m[1], line});
        }
        return found;
    }();
    return all;
}

TEST(IncludeArrows, EveryIncludeNamesAFileAndRunsDownwards) {
    const fs::path root = NIMBRA_SOURCE_DIR;
    ASSERT_GT(allIncludes().size(), 50u) << "the walk found too little to mean anything";
    for (const Include& i : allIncludes()) {
        if (i.target[0] != '"')
            continue;
        SCOPED_TRACE(i.file + ":" + std::to_string(i.line) + " includes " + i.target);
        const std::string target = i.target.substr(1), to = target.substr(0, target.find('/'));
        EXPECT_TRUE(fs::exists(root / "src" / target) || fs::exists(root / "tools" / target));
        const auto allowed = kMayInclude.find(i.folder);
        ASSERT_NE(allowed, kMayInclude.end()) << "unknown folder";
        const std::set<std::string> blind = {"host", "cli", "tessra", "foundation"};
        const bool lowerKnowsSim = target == kSimInterface && !blind.count(i.folder);
        EXPECT_TRUE(to == i.folder || allowed->second.count(to) || lowerKnowsSim);
        EXPECT_TRUE(i.file != kSimInterface || to == "tessra") << "it stays pure";
    }
}

TEST(IncludeArrows, HeavyHeadersStayInSources) {
    const std::regex heavy("^<(openvdb/|embree3/|OpenImageIO/|OpenEXR/|nlohmann/json\\.)");
    for (const Include& i : allIncludes())
        EXPECT_FALSE(i.file.ends_with(".h") && std::regex_search(i.target, heavy))
            << i.file << ":" << i.line;
}

}  // namespace
