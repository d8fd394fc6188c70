// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/file_patterns.h"

#include <algorithm>
#include <cctype>
#include <charconv>

namespace nimbra {

namespace {

constexpr int kMostWidth = 12;

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

/// "[0][width]" from `at` on; moves behind it.
PatternPiece widthFrom(std::string_view name, std::size_t& at) {
    PatternPiece piece{.isNumber = true};
    piece.zeros = at < name.size() && name[at] == '0';
    for (; at < name.size() && isDigit(name[at]); ++at)
        piece.width = std::min(piece.width * 10 + (name[at] - '0'), kMostWidth);
    return piece;
}

/// The number field that starts at `at`, if there is one; moves behind it.
bool numberField(std::string_view name, std::size_t& at, PatternPiece& piece) {
    constexpr std::string_view kFrame = "<frame";
    std::size_t end = at;
    if (name[at] == '#') {
        end = std::min(name.find_first_not_of('#', at), name.size());
        const auto run = std::min<std::size_t>(end - at, kMostWidth);
        piece = {.isNumber = true, .width = static_cast<int>(run), .zeros = true};
    } else if (name[at] == '%') {
        piece = widthFrom(name, ++end);
        const char letter =
            end < name.size()
                ? static_cast<char>(std::tolower(static_cast<unsigned char>(name[end])))
                : '\0';
        if (letter != 'd' && letter != 'i' && letter != 'u')
            return false;
        ++end;
    } else if (name.substr(at, kFrame.size()) == kFrame) {
        end += kFrame.size();
        piece = widthFrom(name, end);
        if (end >= name.size() || name[end] != '>')
            return false;
        ++end;
    } else {
        return false;
    }
    at = end;
    return true;
}

std::string padded(std::int64_t frame, const PatternPiece& piece) {
    std::string digits = std::to_string(frame);
    const std::size_t width = static_cast<std::size_t>(piece.width);
    if (digits.size() < width) {
        const std::size_t sign = piece.zeros && frame < 0 ? 1 : 0;
        digits.insert(sign, width - digits.size(), piece.zeros ? '0' : ' ');
    }
    return digits;
}

}  // namespace

std::size_t fileNameStart(std::string_view path) {
    const std::size_t separator = path.find_last_of("/\\");
    return separator == std::string_view::npos ? 0 : separator + 1;
}

std::string fileExtension(std::string_view path) {
    const std::string_view name = path.substr(fileNameStart(path));
    const std::size_t dot = name.rfind('.');
    std::string extension(dot == std::string_view::npos ? std::string_view()
                                                        : name.substr(dot + 1));
    for (char& c : extension)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return extension;
}

FilePattern::FilePattern(const std::string& path) {
    const std::size_t start = fileNameStart(path);
    folder_ = path.substr(0, start);
    const std::string_view name = std::string_view(path).substr(start);
    std::string text;
    const auto endText = [&] {
        if (!text.empty())
            pieces_.push_back({.text = std::move(text)});
        text.clear();
    };
    for (std::size_t at = 0; at < name.size();) {
        PatternPiece piece;
        if (name.substr(at, 2) == "%%") {
            text += '%';
            at += 2;
        } else if (numberField(name, at, piece)) {
            endText();
            pieces_.push_back(piece);
            hasNumber_ = true;
        } else {
            text += name[at++];
        }
    }
    endText();
    if (!hasNumber_)
        pieces_.assign(1, {.text = std::string(name)});
}

std::string FilePattern::fillName(std::int64_t frame) const {
    std::string name;
    for (const PatternPiece& piece : pieces_)
        name += piece.isNumber ? padded(frame, piece) : piece.text;
    return name;
}

bool FilePattern::matches(std::string_view name) const {
    // Texts in order: the first at the start, the last at the end, each other one at its first
    // place behind the one before.
    std::size_t at = 0;
    bool open = false;  // a number stands before the current piece
    for (std::size_t i = 0; i < pieces_.size(); ++i) {
        if (pieces_[i].isNumber) {
            open = true;
            continue;
        }
        const std::string& text = pieces_[i].text;
        std::size_t place = at;
        if (open && i + 1 == pieces_.size())
            place = name.size() >= at + text.size() ? name.size() - text.size() : name.npos;
        else if (open)
            place = name.find(text, at);
        if (place == name.npos || name.substr(place, text.size()) != text)
            return false;
        at = place + text.size();
        open = false;
    }
    return open || at == name.size();
}

FilePattern FilePattern::unpadded() const {
    FilePattern plain = *this;
    for (PatternPiece& piece : plain.pieces_)
        if (piece.isNumber)
            piece.width = 0;
    return plain;
}

bool frameNumberOfName(std::string_view name, std::int64_t& frame) {
    const std::size_t dot = name.rfind('.');
    const std::size_t end = dot == std::string_view::npos ? name.size() : dot;
    std::size_t start = end;
    while (start > 0 && isDigit(name[start - 1]))
        --start;
    if (start == end)
        return false;
    if (start > 0 && name[start - 1] == '-')
        --start;
    const auto [stop, error] = std::from_chars(name.data() + start, name.data() + end, frame);
    return error == std::errc() && stop == name.data() + end;
}

}  // namespace nimbra
