// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/enum_files.h"

#include <algorithm>
#include <filesystem>
#include <vector>

#include "cache/env_path.h"
#include "cache/file_patterns.h"

namespace NimbraEnum {

namespace {

namespace fs = std::filesystem;
using nimbra::FilePattern;

bool isRegularFile(const fs::path& path) {
    std::error_code error;
    return fs::is_regular_file(path, error);
}

/// Names of the regular files in a folder that the pattern could give, in byte order.
std::vector<std::string> listMatches(const std::string& folder, const FilePattern& pattern) {
    std::vector<std::string> names;
    std::error_code error;
    fs::directory_iterator entry(folder.empty() ? "." : folder, error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        std::error_code ignored;
        if (pattern.matches(name) && entry->is_regular_file(ignored))
            names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

/// The number of a name, if it is what the pattern gives for just this number. A "-" in front of
/// the digits always is a sign: names of "sim-####.vdb" have negative numbers and don't fit it.
bool numberByPattern(const std::string& name, const FilePattern& pattern, std::int64_t& frame) {
    return nimbra::frameNumberOfName(name, frame) && pattern.fillName(frame) == name;
}

}  // namespace

int EnumFiles::enumerate(const std::string& pathPattern, std::int64_t wanted, Mode mode) {
    const FilePattern pattern(nimbra::nativePath(pathPattern));
    const std::string& folder = pattern.folder();
    // One file needs no listing of its folder.
    if (!pattern.hasNumber() || mode == Mode::Exact) {
        const std::string path = pattern.fill(wanted);
        if (!isRegularFile(path))
            return 0;
        found(pattern.hasNumber() ? wanted : kAnyFrame, path);
        return 1;
    }

    const std::vector<std::string> names = listMatches(folder, pattern);
    if (names.size() == 1) {
        found(wanted, folder + names[0]);
        return 1;
    }
    int calls = 0;
    const auto visit = [&](const FilePattern& form) {
        for (const std::string& name : names) {
            std::int64_t frame = 0;
            if (!numberByPattern(name, form, frame))
                continue;
            ++calls;
            if (!found(frame, folder + name))
                return;
        }
    };
    visit(pattern);
    if (calls == 0 && nimbra::fileExtension(pathPattern) == "kol")
        visit(pattern.unpadded());
    return calls;
}

namespace {

class Chooser : public EnumFiles {
public:
    Chooser(std::int64_t wanted, Mode mode) : wanted_(wanted), mode_(mode) {}

    std::string path;
    std::int64_t frame = 0;
    bool any = false;

protected:
    bool found(std::int64_t candidate, const std::string& candidatePath) override {
        const std::uint64_t away = distance(candidate);
        if (mode_ == Mode::Exact && candidate != wanted_ && candidate != kAnyFrame)
            return true;
        if (any && away >= away_)
            return true;
        any = true;
        away_ = away;
        path = candidatePath;
        frame = candidate;
        return true;
    }

private:
    std::uint64_t distance(std::int64_t candidate) const {
        const auto a = static_cast<std::uint64_t>(candidate);
        const auto b = static_cast<std::uint64_t>(wanted_);
        return candidate > wanted_ ? a - b : b - a;
    }

    std::int64_t wanted_;
    Mode mode_;
    std::uint64_t away_ = 0;
};

}  // namespace

bool chooseFile(const std::string& pathPattern, std::int64_t wanted, Mode mode, std::string& path,
                std::int64_t& frame) {
    Chooser chooser(wanted, mode);
    chooser.enumerate(pathPattern, wanted, mode);
    if (!chooser.any)
        return false;
    path = chooser.path;
    frame = chooser.frame;
    return true;
}

}  // namespace NimbraEnum
