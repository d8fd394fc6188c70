// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/env_path.h"

#include <algorithm>
#include <cstdlib>

namespace nimbra {

std::string expandEnvironment(const std::string& path) {
    static const std::string kOpen = "$env(";
    std::string out;
    std::size_t at = 0;
    for (;;) {
        const std::size_t open = path.find(kOpen, at);
        const std::size_t shut =
            open == std::string::npos ? open : path.find(')', open + kOpen.size());
        if (shut == std::string::npos)
            return out + path.substr(at);
        out += path.substr(at, open - at);
        const std::string name = path.substr(open + kOpen.size(), shut - open - kOpen.size());
        if (const char* value = std::getenv(name.c_str()))
            out += value;
        at = shut + 1;
    }
}

bool isNetworkPath(const std::string& path) {
    return path.size() >= 2 && (path[0] == '/' || path[0] == '\\') && path[1] == path[0];
}

std::string networkPath(const std::string& path) {
    std::string out = path;
    if (isNetworkPath(path))
        std::replace(out.begin(), out.end(), '/', '\\');
    return out;
}

std::string nativePath(const std::string& path) {
    std::string out = path;
    if (isNetworkPath(path))
        std::replace(out.begin(), out.end(), '\\', '/');
    return out;
}

}  // namespace nimbra
