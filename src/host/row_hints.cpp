// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/row_hints.h"

#include <charconv>

namespace nimbra::host {

namespace {

std::string_view trimmed(std::string_view text) {
    const std::string_view blanks = " \t\r\n,";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

/// The offset of the parenthesis that closes the one at `open`; npos without one.
std::size_t closingParenthesis(std::string_view text, std::size_t open) {
    int depth = 0;
    for (std::size_t i = open; i < text.size(); ++i) {
        if (text[i] == '(')
            ++depth;
        else if (text[i] == ')' && --depth == 0)
            return i;
    }
    return std::string_view::npos;
}

std::optional<double> number(std::string_view text) {
    text = trimmed(text);
    double value = 0;
    const auto read = std::from_chars(text.data(), text.data() + text.size(), value);
    if (read.ec != std::errc() || read.ptr != text.data() + text.size())
        return std::nullopt;
    return value;
}

std::vector<std::pair<int, std::string>> choices(std::string_view text) {
    std::vector<std::pair<int, std::string>> result;
    while (!text.empty()) {
        const std::size_t end = text.find(';');
        const std::string_view item = text.substr(0, end);
        if (const std::size_t colon = item.find(':'); colon != std::string_view::npos)
            if (const auto value = number(item.substr(0, colon)))
                result.emplace_back(static_cast<int>(*value), trimmed(item.substr(colon + 1)));
        if (end == std::string_view::npos)
            break;
        text.remove_prefix(end + 1);
    }
    return result;
}

}  // namespace

std::string RowHints::choiceText() const {
    std::string text;
    for (const auto& [value, label] : choices)
        text += (text.empty() ? "" : ", ") + std::to_string(value) + " (" + label + ")";
    return text;
}

RowHints parseRowHints(const char* hint) {
    RowHints hints;
    std::string_view rest = hint ? hint : "";
    while (true) {
        const std::size_t equals = rest.find("=(");
        if (equals == std::string_view::npos)
            return hints;
        const std::string_view key = trimmed(rest.substr(0, equals));
        const std::size_t close = closingParenthesis(rest, equals + 1);
        if (close == std::string_view::npos)
            return hints;
        const std::string_view value = rest.substr(equals + 2, close - equals - 2);
        if (key == "displayName")
            hints.displayName = value;
        else if (key == "minValue")
            hints.minValue = number(value);
        else if (key == "maxValue")
            hints.maxValue = number(value);
        else if (key == "enum")
            hints.choices = choices(value);
        else if (key == "fileAsset")
            hints.isFile = true;
        rest.remove_prefix(close + 1);
    }
}

}  // namespace nimbra::host
