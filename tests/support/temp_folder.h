// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A folder for a test's own files, gone with the object.
#pragma once

#include <filesystem>
#include <string>

namespace nimbra::test {

class TempFolder {
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }
    /// A path in the folder.
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }
    /// Writes a file into the folder and gives its path.
    std::filesystem::path write(const std::string& name, const std::string& bytes) const;

private:
    std::filesystem::path path_;
};

/// All bytes of a file; "" if it can't be read.
std::string readFile(const std::filesystem::path& path);

}  // namespace nimbra::test
