// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Whole files into memory.
#pragma once

#include <string>

namespace nimbra::host {

/// The bytes of a regular file of at most `limit` bytes. On failure `bytes` stays as it was and
/// `error` is "path: reason"; pipes, folders and devices are refused without waiting for them.
bool readFileBytes(const std::string& path, std::size_t limit, std::string& bytes,
                   std::string& error);

}  // namespace nimbra::host
