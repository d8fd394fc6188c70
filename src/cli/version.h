// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace nimbra::cli {

/// The program's version and those of the libraries that it was built with, a line each.
std::string versionText();

}  // namespace nimbra::cli
