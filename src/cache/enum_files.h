// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Finds the files of a sequence in its folder.
#pragma once

#include <cstdint>
#include <string>

namespace NimbraEnum {

/// The frame of a path without a pattern: it serves any.
inline constexpr std::int64_t kAnyFrame = 0x7FFFFFFF;

enum class Mode {
    Exact,    // the one file of the wanted frame
    Nearest,  // all files of the pattern; the visitor picks
};

/// Lists the files of a pattern. Names come in byte order; only regular files count.
class EnumFiles {
public:
    virtual ~EnumFiles() = default;
    /// Calls `found` for each file of the pattern until it answers false; returns the calls made.
    /// A name must be what the pattern gives for the number that stands in it, with two allowances:
    /// a single file that fits is taken for the wanted frame, and .kol files may lack the padding
    /// where no file has it.
    int enumerate(const std::string& pathPattern, std::int64_t wanted, Mode mode);

protected:
    /// `path`: folder and name, as the system opens it.
    virtual bool found(std::int64_t frame, const std::string& path) = 0;
};

/// Picks the file for a frame: the wanted one, or in Nearest mode the one whose number is nearest,
/// the first of two that are equally far. False when there is none.
bool chooseFile(const std::string& pathPattern, std::int64_t wanted, Mode mode, std::string& path,
                std::int64_t& frame);

}  // namespace NimbraEnum
