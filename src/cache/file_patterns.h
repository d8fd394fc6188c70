// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Frame numbers in the names of cache files: "smoke_####.vdb", "smoke_%04d.vdb",
// "smoke_<frame04>.vdb". Only the file name part of a path is looked at.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace nimbra {

/// A piece of a file name: text, or the place of a frame number.
struct PatternPiece {
    std::string text{};  // where it is no number
    bool isNumber = false;
    int width = 0;       // at least so many characters, at most 12
    bool zeros = false;  // filled up with zeros, else with blanks

    bool operator==(const PatternPiece&) const = default;
};

/// A path with its folder apart and its file name in pieces. In a name without any number the
/// pieces are one text, to the letter; in one with a number "%%" has become "%".
class FilePattern {
public:
    explicit FilePattern(const std::string& path);

    bool hasNumber() const { return hasNumber_; }
    /// The part up to the last separator, with it; empty when there is none.
    const std::string& folder() const { return folder_; }
    const std::vector<PatternPiece>& pieces() const { return pieces_; }

    /// The file name, and the path, of a frame. A minus sign counts into the width and stands in
    /// front of the zeros.
    std::string fillName(std::int64_t frame) const;
    std::string fill(std::int64_t frame) const { return folder_ + fillName(frame); }
    /// Whether the name has the texts of the pattern, with anything in the places of the numbers.
    bool matches(std::string_view name) const;
    /// The same pattern with every number unpadded.
    FilePattern unpadded() const;

private:
    std::string folder_;
    std::vector<PatternPiece> pieces_;
    bool hasNumber_ = false;
};

/// The place of the file name in a path: behind the last "/" or "\".
std::size_t fileNameStart(std::string_view path);
/// The extension without its dot, in lower case; empty when the file name has none.
std::string fileExtension(std::string_view path);

/// The number of a file name: the digits in front of the last dot (or of the end), with a "-"
/// directly in front as its sign. False when there are none or they make no 64-bit number.
bool frameNumberOfName(std::string_view name, std::int64_t& frame);

}  // namespace nimbra
