// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Files that appear under their name only when they are complete.
#pragma once

#include <string>
#include <string_view>

namespace nimbra::host {

/// Writes the bytes beside their place, as ".NAME.<pid>.tmp", has the system put them on the disk,
/// and renames. On failure nothing is left behind, a file that was there before stays as it was,
/// and `error` is "path: reason".
bool writeFileAtomically(const std::string& path, std::string_view bytes, std::string& error);

/// Makes the folder that `path` lies in if it is missing, finds out whether files can be written
/// there, and sweeps temporary picture files of processes that are gone.
bool prepareOutputFolder(const std::string& path, std::string& error);

/// False, with `error`, where something stands at `path` that no file can replace.
bool canBeWritten(const std::string& path, std::string& error);

/// Removes ".NAME.<pid>.tmp" of .exr and .png files whose process no longer runs; returns how many.
/// Process numbers say nothing of other machines that share the folder, but writers hold a lock on
/// their files: one that is locked stays.
int sweepTemporaryFiles(const std::string& folder);

}  // namespace nimbra::host
