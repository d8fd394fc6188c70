// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What is done to the path that a user typed before files are looked for.
#pragma once

#include <string>

namespace nimbra {

/// Puts the value of the environment variable in the place of each "$env(NAME)"; nothing for an
/// undefined one. Text without its closing bracket stays.
std::string expandEnvironment(const std::string& path);

/// True for a path that starts with two slashes or two backslashes.
bool isNetworkPath(const std::string& path);
/// A network path with all its slashes turned into backslashes; any other path as it is.
std::string networkPath(const std::string& path);
/// The path as this system opens it: network paths with slashes.
std::string nativePath(const std::string& path);

}  // namespace nimbra
