// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What belongs to the running program.
#pragma once

#include <string>

namespace nimbra::host {

/// Where the module of that name (with or without "lib" before it) lies beside the program or in
/// the folder of its libraries; "" if it isn't there.
std::string findModule(const std::string& name);

}  // namespace nimbra::host
