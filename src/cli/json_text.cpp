// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/json_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <nlohmann/json.hpp>

namespace nimbra::cli {
namespace {

using Json = nlohmann::ordered_json;

// Short lists of lists stay in one line.
constexpr std::size_t kMostInLine = 60;

bool isPlain(const Json& value) {
    return !value.is_structured();
}

std::string plainText(const Json& value) {
    if (!value.is_number_float())
        return value.dump(-1, ' ', true, Json::error_handler_t::replace);
    std::string text = fmt::format("{}", value.get<double>());
    return text.find_first_of(".en") == std::string::npos ? text + ".0" : text;
}

/// A list without objects in it.
std::string lineOf(const Json& value) {
    if (isPlain(value))
        return plainText(value);
    std::string text = "[";
    for (const Json& element : value)
        text += (text.size() > 1 ? ", " : "") + lineOf(element);
    return text + "]";
}

bool holdsObjects(const Json& value) {
    return value.is_object() ||
           (value.is_array() && std::any_of(value.begin(), value.end(), holdsObjects));
}

std::string text(const Json& value, std::size_t depth);

std::string blockOf(const Json& value, std::size_t depth) {
    const bool object = value.is_object();
    const std::string indent(depth + 1, ' ');
    std::string out = object ? "{" : "[";
    for (auto it = value.begin(); it != value.end(); ++it) {
        out += (it == value.begin() ? "\n" : ",\n") + indent;
        if (object)
            out += plainText(it.key()) + ": ";
        out += text(*it, depth + 1);
    }
    return out + "\n" + std::string(depth, ' ') + (object ? "}" : "]");
}

std::string text(const Json& value, std::size_t depth) {
    if (isPlain(value))
        return plainText(value);
    if (value.empty())
        return value.is_object() ? "{}" : "[]";
    if (!holdsObjects(value)) {
        std::string line = lineOf(value);
        if (line.size() <= kMostInLine || std::all_of(value.begin(), value.end(), isPlain))
            return line;
    }
    return blockOf(value, depth);
}

}  // namespace

std::string jsonText(const Json& value) {
    return text(value, 0);
}

Json doubleJson(double value) {
    if (std::isnan(value))
        return "nan";
    if (std::isinf(value))
        return value > 0 ? "inf" : "-inf";
    return value;
}

Json floatJson(float value) {
    if (!std::isfinite(value))
        return doubleJson(value);
    return std::strtod(fmt::format("{:.9g}", value).c_str(), nullptr);
}

}  // namespace nimbra::cli
