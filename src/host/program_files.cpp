// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/program_files.h"

#include <filesystem>

namespace nimbra::host {

namespace fs = std::filesystem;

std::string findModule(const std::string& name) {
    std::error_code code;
    const fs::path program = fs::read_symlink("/proc/self/exe", code);
    if (code)
        return "";
    const fs::path folder = program.parent_path();
    for (const fs::path& place : {folder, folder / ".." / "lib"})
        for (const std::string& file : {name, "lib" + name})
            if (fs::is_regular_file(place / file, code))
                return (place / file).lexically_normal().string();
    return "";
}

}  // namespace nimbra::host
