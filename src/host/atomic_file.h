// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Files that appear under their name only when they are complete.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace nimbra::host {

/// A file that is written piece by piece beside its place, as ".NAME.<pid>.tmp". Without a commit
/// nothing is left behind, and a file that was there before stays as it was.
class AtomicFile {
public:
    explicit AtomicFile(const std::string& path);
    ~AtomicFile();
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    // Each answers false, with "path: reason" in `error`, and may not be followed by another then.
    bool open(std::string& error);
    bool write(std::string_view bytes, std::string& error);
    /// Where the next bytes go, in bytes from the beginning.
    bool seek(std::uint64_t place, std::string& error);
    /// Has the system put the bytes on the disk and renames.
    bool commit(std::string& error);

private:
    std::string path_;
    std::unique_ptr<class TemporaryFile> file_;
};

/// Writes the bytes beside their place, as ".NAME.<pid>.tmp", has the system put them on the disk,
/// and renames. On failure nothing is left behind, a file that was there before stays as it was,
/// and `error` is "path: reason".
bool writeFileAtomically(const std::string& path, std::string_view bytes, std::string& error);

/// Makes the folder that `path` lies in if it is missing, finds out whether files can be written
/// there, and sweeps temporary files of processes that are gone.
bool prepareOutputFolder(const std::string& path, std::string& error);

/// False, with `error`, where something stands at `path` that no file can replace.
bool canBeWritten(const std::string& path, std::string& error);

/// Removes ".NAME.<pid>.tmp" of pictures, caches and arrays whose process no longer runs; returns
/// how many. Process numbers say nothing of other machines that share the folder, but writers hold
/// a lock on their files: one that is locked stays.
int sweepTemporaryFiles(const std::string& folder);

}  // namespace nimbra::host
