// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/mesh_file.h"

#include <algorithm>
#include <cctype>

#include "host/file_bytes.h"

namespace nimbra::host {

namespace {

constexpr std::size_t kMostMeshBytes = std::size_t(8) << 30;

std::string lowerExtension(const std::string& path) {
    const std::size_t dot = path.find_last_of("./");
    if (dot == std::string::npos || path[dot] == '/')
        return "";
    std::string extension = path.substr(dot);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

}  // namespace

bool readMeshFile(const std::string& path, TessUtils::TriangleMesh& mesh, std::string& error) {
    const std::string extension = lowerExtension(path);
    if (extension != ".obj" && extension != ".ply") {
        error = path + ": the name must end in .obj or .ply";
        return false;
    }
    std::string bytes;
    if (!readFileBytes(path, kMostMeshBytes, bytes, error))
        return false;
    return extension == ".obj" ? readObj(bytes, path, mesh, error)
                               : readPly(bytes, path, mesh, error);
}

}  // namespace nimbra::host
