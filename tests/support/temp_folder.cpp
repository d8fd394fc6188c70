// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "support/temp_folder.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace nimbra::test {

TempFolder::TempFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "nimbra_test_XXXXXX").string();
    if (!mkdtemp(name.data()))
        throw std::runtime_error("no temporary folder: " + name);
    path_ = name;
}

TempFolder::~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::filesystem::path TempFolder::write(const std::string& name, const std::string& bytes) const {
    std::filesystem::path place = path_ / name;
    std::filesystem::create_directories(place.parent_path());
    std::ofstream file(place, std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!file.flush())
        throw std::runtime_error("cannot write " + place.string());
    return place;
}

std::string readFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace nimbra::test
