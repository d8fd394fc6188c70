// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/parameter_json.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <nlohmann/json.hpp>

namespace nimbra::cli {
namespace {

using Json = nlohmann::ordered_json;
using TessUtils::ParameterDef;
using TessUtils::TessraPluginParameter;

// The shortest decimal that reads back as the same float: 0.1, not 0.10000000149011612.
double shortest(float v) {
    return std::strtod(fmt::format("{}", v).c_str(), nullptr);
}

Json colorJson(const TessUtils::Color& c) {
    return Json::array({shortest(c.r), shortest(c.g), shortest(c.b)});
}

Json acolorJson(const TessUtils::AColor& c) {
    return Json::array(
        {shortest(c.color.r), shortest(c.color.g), shortest(c.color.b), shortest(c.alpha)});
}

Json transformJson(const TessUtils::Transform& t) {
    Json out = Json::array();
    for (const TessUtils::Vector& axis : t.f)
        for (int i = 0; i < 3; ++i)
            out.push_back(shortest(axis[i]));
    for (int i = 0; i < 3; ++i)
        out.push_back(t.offs[i]);
    return out;
}

Json valueJson(TessUtils::TessraParameterType type, const TessraPluginParameter& p, int index) {
    switch (type) {
        case TessUtils::paramtype_bool:
            return p.getBool(index, 0);
        case TessUtils::paramtype_int:
            return p.getInt(index, 0);
        case TessUtils::paramtype_float:
        case TessUtils::paramtype_textureFloat:
            return shortest(p.getFloat(index, 0));
        case TessUtils::paramtype_string:
            return p.getString(index, 0);
        case TessUtils::paramtype_color:
            return colorJson(p.getColor(index, 0));
        case TessUtils::paramtype_acolor:
        case TessUtils::paramtype_texture:
            return acolorJson(p.getAColor(index, 0));
        case TessUtils::paramtype_transform:
            return transformJson(p.getTransform(index, 0));
        default:
            return nullptr;
    }
}

Json defaultJson(const ParameterDef& row) {
    if (!row.hasDefault || !row.defaultValue)
        return nullptr;
    return valueJson(row.type, *row.defaultValue, 0);
}

Json textOrNull(const char* text) {
    return text ? Json(text) : Json(nullptr);
}

Json rowJson(const ParameterDef& row) {
    Json out;
    out["name"] = row.name;
    out["type"] = typeWord(row.type);
    out["default"] = defaultJson(row);
    out["count"] = row.isOutput ? Json(nullptr) : Json(row.count);
    out["interface"] = row.interfaceID ? Json(row.interfaceID) : Json(nullptr);
    out["description"] = textOrNull(row.description);
    out["uiHint"] = textOrNull(row.uiHint);
    return out;
}

Json typeJson(const host::PluginType& type) {
    Json out;
    out["plugin"] = type.name();
    out["id"] = type.desc->getPluginID();
    out["description"] = textOrNull(type.desc->getDescription());
    out["parameters"] = Json::array();
    for (const ParameterDef* row : type.rows)
        out["parameters"].push_back(rowJson(*row));
    return out;
}

std::string typeText(const ParameterDef& row) {
    std::string text = typeWord(row.type);
    if (row.isOutput)
        return text + " output";
    if (row.count == 0)
        return text + " list";
    return row.count > 0 ? fmt::format("{}[{}]", text, row.count) : text;
}

std::string defaultText(const ParameterDef& row) {
    const Json value = defaultJson(row);
    if (value.is_null())
        return "";
    if (row.type == TessUtils::paramtype_transform)
        return row.defaultValue->getTransform(0, 0) == TessUtils::Transform() ? "identity"
                                                                              : value.dump();
    return value.dump();
}

// What a user reads about a row: its description, or else its label.
std::string describe(const ParameterDef& row) {
    if (row.description && *row.description)
        return row.description;
    const std::string hint = row.uiHint ? row.uiHint : "";
    const std::string key = "displayName=(";
    const std::size_t at = hint.find(key);
    if (at == std::string::npos)
        return "";
    int depth = 1;
    std::string label;
    for (std::size_t i = at + key.size(); i < hint.size(); ++i) {
        depth += hint[i] == '(' ? 1 : hint[i] == ')' ? -1 : 0;
        if (depth == 0)
            break;
        label += hint[i];
    }
    return label;
}

std::string wrapped(const std::string& text, std::size_t indent, std::size_t columns) {
    const std::size_t width = std::max<std::size_t>(columns > indent ? columns - indent : 0, 30);
    std::string out;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = std::min(text.size(), start + width);
        if (end < text.size()) {
            const std::size_t space = text.rfind(' ', end);
            if (space != std::string::npos && space > start)
                end = space;
        }
        if (start)
            out += "\n" + std::string(indent, ' ');
        out += text.substr(start, end - start);
        start = end;
        while (start < text.size() && text[start] == ' ')
            ++start;
    }
    return out;
}

std::string markdownCell(const std::string& text) {
    std::string out;
    for (const char c : text)
        out += c == '|' ? std::string("\\|") : std::string(1, c == '\n' ? ' ' : c);
    return out;
}

}  // namespace

const char* typeWord(TessUtils::TessraParameterType type) {
    switch (type) {
        case TessUtils::paramtype_bool:
            return "bool";
        case TessUtils::paramtype_int:
            return "int";
        case TessUtils::paramtype_float:
            return "float";
        case TessUtils::paramtype_string:
            return "string";
        case TessUtils::paramtype_color:
            return "color";
        case TessUtils::paramtype_acolor:
            return "acolor";
        case TessUtils::paramtype_texture:
            return "texture";
        case TessUtils::paramtype_textureFloat:
            return "textureFloat";
        case TessUtils::paramtype_transform:
            return "transform";
        case TessUtils::paramtype_plugin:
            return "plugin";
        case TessUtils::paramtype_vector:
            return "vector";
        case TessUtils::paramtype_list:
            return "list";
    }
    return "list";
}

std::string parametersJson(const host::PluginType& type) {
    return typeJson(type).dump(2) + "\n";
}

std::string parametersJson(const host::PluginRegistry& registry) {
    Json out = Json::array();
    for (const host::PluginType* type : registry.types())
        out.push_back(typeJson(*type));
    return out.dump(2) + "\n";
}

std::string parametersText(const host::PluginType& type, int columns) {
    std::size_t nameWidth = 4, typeWidth = 4, defaultWidth = 7;
    for (const ParameterDef* row : type.rows) {
        nameWidth = std::max(nameWidth, row->name.size());
        typeWidth = std::max(typeWidth, typeText(*row).size());
        defaultWidth = std::max(defaultWidth, std::min<std::size_t>(defaultText(*row).size(), 24));
    }
    const std::size_t indent = nameWidth + typeWidth + defaultWidth + 6;
    std::string out =
        fmt::format("{} ({} parameters)\n{}\n\n", type.name(), type.rows.size(),
                    wrapped(type.desc->getDescription(), 0, static_cast<std::size_t>(columns)));
    for (const ParameterDef* row : type.rows) {
        std::string line =
            fmt::format("{:{}}  {:{}}  {:{}}  {}", row->name, nameWidth, typeText(*row), typeWidth,
                        defaultText(*row), defaultWidth,
                        wrapped(describe(*row), indent, static_cast<std::size_t>(columns)));
        line.erase(line.find_last_not_of(' ') + 1);
        out += line + "\n";
    }
    return out;
}

std::string parametersMarkdown(const host::PluginType& type) {
    std::string out = fmt::format(
        "## {}\n\n{}\n\n| Parameter | Type | Default | Meaning |\n"
        "| --- | --- | --- | --- |\n",
        type.name(), type.desc->getDescription());
    for (const ParameterDef* row : type.rows)
        out += fmt::format("| `{}` | {} | {} | {} |\n", row->name, typeText(*row),
                           markdownCell(defaultText(*row)), markdownCell(describe(*row)));
    return out + "\n";
}

}  // namespace nimbra::cli
