// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Path services. This host has no table of mapped drives; relative paths start at the scene's
// folder.
#include <mutex>

#include "tessra/managers.h"
#include "tessra/renderer.h"

namespace TessUtils {

namespace {

std::mutex folderMutex;

std::string& sceneFolder() {
    static std::string* const folder = new std::string;
    return *folder;
}

bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

/// Absolute on any of the systems where scenes are written: "/x", "\x" and "C:\x". A leading
/// "$env(" stands for text that the reader of the path puts in later, and which may be absolute.
bool startsAtRoot(const std::string& path) {
    const bool drive = path.size() > 2 && isLetter(path[0]) && path[1] == ':' &&
                       (path[2] == '/' || path[2] == '\\');
    return path[0] == '/' || path[0] == '\\' || drive || path.starts_with("$env(");
}

}  // namespace

void setSceneFolder(const std::string& folder) {
    const std::lock_guard lock(folderMutex);
    sceneFolder() = folder;
}

std::string remapPath(const TessraSequenceData&, const std::string& path) {
    return path;
}

std::string adjustRelativePath(Plugin*, const std::string& path) {
    if (path.empty() || startsAtRoot(path))
        return path;
    const std::lock_guard lock(folderMutex);
    const std::string& folder = sceneFolder();
    if (folder.empty())
        return path;
    return folder.back() == '/' ? folder + path : folder + "/" + path;
}

std::string AssetManagerInterface::assetPath(Plugin* plugin, const std::string& path) const {
    return adjustRelativePath(plugin, path);
}

}  // namespace TessUtils
