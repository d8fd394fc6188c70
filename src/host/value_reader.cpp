// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/value_reader.h"

#include <strings.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>

#include "host/scene_parser.h"

namespace nimbra::host {

using namespace TessUtils;

namespace {

bool isObjectType(TessraParameterType type) {
    return type == paramtype_plugin || type == paramtype_texture || type == paramtype_textureFloat;
}

bool fitsSingle(const SceneNode& node) {
    return node.isNumber() && std::abs(node.number) <= std::numeric_limits<float>::max();
}

/// False too for "$...", which may come to stand for an absolute name, and for "C:...".
bool isRelative(const std::string& path) {
    return !path.empty() && path.find_first_of("/\\$") != 0 && !(path.size() > 1 && path[1] == ':');
}

std::string plainNumber(double number) {
    SceneNode node;
    node.kind = SceneNode::Kind::Float;
    node.number = number;
    return node.describe().substr(std::string("the number ").size());
}

std::string limitText(const RowHints& hints) {
    if (hints.minValue && hints.maxValue)
        return " from " + plainNumber(*hints.minValue) + " to " + plainNumber(*hints.maxValue);
    if (hints.minValue)
        return " of at least " + plainNumber(*hints.minValue);
    if (hints.maxValue)
        return " of at most " + plainNumber(*hints.maxValue);
    return "";
}

std::string limitText(const RowContext& row) {
    return row.limitsHold ? limitText(row.hints) : "";
}

/// Columns of a rotation about one axis, counter-clockwise seen against the axis.
Transform axisRotation(int axis, double degrees) {
    // Exact at quarter turns, where the sine of a rounded angle isn't.
    const double quarter = degrees / 90.0;
    double c = std::cos(degrees * (M_PI / 180.0)), s = std::sin(degrees * (M_PI / 180.0));
    if (quarter == std::floor(quarter) && std::abs(quarter) < 1e9) {
        const int turn = static_cast<int>(std::fmod(std::fmod(quarter, 4) + 4, 4));
        c = turn == 0 ? 1 : turn == 2 ? -1 : 0;
        s = turn == 1 ? 1 : turn == 3 ? -1 : 0;
    }
    Transform r;
    const int a = (axis + 1) % 3, b = (axis + 2) % 3;
    r.f[a] = {};
    r.f[b] = {};
    r.f[a][a] = r.f[b][b] = static_cast<float>(c);
    r.f[a][b] = static_cast<float>(s);
    r.f[b][a] = static_cast<float>(-s);
    return r;
}

/// `first`, then `second`.
Transform compose(const Transform& second, const Transform& first) {
    Transform result;
    for (int a = 0; a < 3; ++a)
        result.f[a] = second.applyVector(first.f[a]);
    result.offs = second.applyPoint(first.offs);
    return result;
}

/// Whether a value of the row is read as a list: a list of colours begins with a list of numbers.
bool isListValue(const ParameterDef& def, const SceneNode& node) {
    if (def.count != -1 || def.type == paramtype_list)
        return true;
    if (!def.takesList || node.kind != SceneNode::Kind::Array)
        return false;
    return def.type != paramtype_color || node.items.empty() ||
           node.items[0].kind == SceneNode::Kind::Array;
}

}  // namespace

bool ValueReader::fail(const SceneNode& node, const RowContext& row, const std::string& allowed) {
    diagnostics_.add(node.location, row.subject,
                     "found " + node.describe() + ", allowed is " + allowed);
    return false;
}

std::unique_ptr<DefParam> ValueReader::read(const SceneNode& node, const RowContext& row) {
    const ParameterDef& def = *row.def;
    const SceneNode* keys = node.kind == SceneNode::Kind::Object ? node.find("keys") : nullptr;
    if (keys) {
        if (isObjectType(def.type)) {
            diagnostics_.add(node.location, row.subject,
                             "found keys, a connection to another plug-in can't be animated");
            return nullptr;
        }
        for (const SceneNode::Member& member : node.members)
            if (member.key != "keys") {
                diagnostics_.add(member.keyLocation, row.subject,
                                 "found the key '" + printable(member.key) +
                                     "', an animated value has \"keys\" alone");
                return nullptr;
            }
        return readAnimated(*keys, row);
    }
    if (!isListValue(def, node)) {
        if (node.kind == SceneNode::Kind::Null && isObjectType(def.type))
            return nullptr;
        ParamScalar value;
        if (!readScalar(node, row, value))
            return nullptr;
        return std::make_unique<DefParam>(def.name, std::move(value));
    }
    ParamList list;
    if (!readList(node, row, list))
        return nullptr;
    return std::make_unique<DefParam>(def.name, def.type, std::move(list));
}

std::unique_ptr<DefParam> ValueReader::readAnimated(const SceneNode& keys, const RowContext& row) {
    const std::string allowed = "a list of [time, value] pairs with different times";
    if (keys.kind != SceneNode::Kind::Array || keys.items.empty()) {
        fail(keys, row, allowed);
        return nullptr;
    }
    const ParameterDef& def = *row.def;
    const bool isList =
        isListValue(def, keys.items[0].items.empty() ? keys : keys.items[0].items.back());
    std::unique_ptr<DefParam> parameter;
    std::vector<double> times;
    for (const SceneNode& key : keys.items) {
        double time = 0;
        if (!readKeyTime(key, row, time))
            return nullptr;
        times.push_back(time);
        ParamScalar value;
        ParamList list;
        if (isList ? !readList(key.items[1], row, list) : !readScalar(key.items[1], row, value))
            return nullptr;
        if (!parameter)
            parameter = isList ? std::make_unique<DefParam>(def.name, def.type, list)
                               : std::make_unique<DefParam>(def.name, value);
        if (isList)
            parameter->setKey(time, std::move(list));
        else
            parameter->setKey(time, std::move(value));
    }
    std::sort(times.begin(), times.end());
    const auto same = std::adjacent_find(times.begin(), times.end());
    if (same != times.end()) {
        diagnostics_.add(
            keys.location, row.subject,
            "found two keys at time " + plainNumber(*same) + ", allowed is " + allowed);
        return nullptr;
    }
    return parameter;
}

bool ValueReader::readKeyTime(const SceneNode& key, const RowContext& row, double& time) {
    if (key.kind != SceneNode::Kind::Array || key.items.size() != 2 || !key.items[0].isNumber())
        return fail(key, row, "a pair [time, value]");
    time = key.items[0].number;
    return true;
}

bool ValueReader::readList(const SceneNode& node, const RowContext& row, ParamList& list) {
    const int count = std::max(row.def->count, 0);
    const std::string allowed =
        count > 0 ? "a list of " + std::to_string(count) + " values" : "a list of values";
    if (node.kind != SceneNode::Kind::Array ||
        (count > 0 && node.items.size() != static_cast<std::size_t>(count)))
        return fail(node, row, allowed);
    list.reserve(node.items.size());
    for (const SceneNode& item : node.items)
        if (!readScalar(item, row, list.emplace_back()))
            return false;
    return true;
}

bool ValueReader::readScalar(const SceneNode& node, const RowContext& row, ParamScalar& value) {
    float n[4] = {0, 0, 0, 1};
    switch (row.def->type) {
        case paramtype_bool:
            if (node.kind != SceneNode::Kind::Bool)
                return fail(node, row, "true or false");
            value = node.boolean;
            return true;
        case paramtype_int:
            return readInt(node, row, value);
        case paramtype_float:
            return readFloat(node, row, value);
        case paramtype_string:
            return readText(node, row, value);
        case paramtype_color:
            if (!readNumbers(node, row, 3, 3, "a colour [r, g, b]", n))
                return false;
            value = Color{n[0], n[1], n[2]};
            return true;
        case paramtype_acolor:
            if (!readNumbers(node, row, 3, 4, "a colour [r, g, b] or [r, g, b, a]", n))
                return false;
            value = AColor{{n[0], n[1], n[2]}, n[3]};
            return true;
        case paramtype_vector:
            if (!readNumbers(node, row, 3, 3, "a vector [x, y, z]", n))
                return false;
            value = Vector{n[0], n[1], n[2]};
            return true;
        case paramtype_transform:
            return readTransform(node, row, value);
        case paramtype_texture:
        case paramtype_textureFloat:
        case paramtype_plugin:
            return readObject(node, row, value);
        case paramtype_list:
            return readMixed(node, row, value);
    }
    return fail(node, row, "nothing, since the row's type is unknown");
}

bool ValueReader::checkLimits(const SceneNode& node, const RowContext& row, double number) {
    if (!row.limitsHold || ((!row.hints.minValue || number >= *row.hints.minValue) &&
                            (!row.hints.maxValue || number <= *row.hints.maxValue)))
        return true;
    return fail(node, row, "a number" + limitText(row.hints));
}

bool ValueReader::readInt(const SceneNode& node, const RowContext& row, ParamScalar& value) {
    const auto& choices = row.hints.choices;
    if (node.kind == SceneNode::Kind::String)
        for (const auto& [number, label] : choices)
            if (strcasecmp(label.c_str(), node.text.c_str()) == 0) {
                value = number;
                return true;
            }
    const bool isWhole = node.isNumber() && node.number == std::floor(node.number) &&
                         std::abs(node.number) <= std::numeric_limits<int>::max();
    const bool isChoice = !row.limitsHold || choices.empty() ||
                          std::any_of(choices.begin(), choices.end(), [&](const auto& choice) {
                              return choice.first == node.number;
                          });
    if (!isWhole || !isChoice)
        return fail(node, row,
                    choices.empty() ? "a whole number" + limitText(row)
                                    : "one of " + row.hints.choiceText());
    value = static_cast<int>(node.number);
    return checkLimits(node, row, node.number);
}

bool ValueReader::readFloat(const SceneNode& node, const RowContext& row, ParamScalar& value) {
    if (!fitsSingle(node))
        return fail(
            node, row,
            (node.isNumber() ? "a number of single precision" : "a number") + limitText(row));
    value = static_cast<float>(node.number);
    return checkLimits(node, row, node.number);
}

bool ValueReader::readText(const SceneNode& node, const RowContext& row, ParamScalar& value) {
    const bool isText = node.kind == SceneNode::Kind::String || node.isOverride;
    if (!isText || node.text.find('\0') != std::string::npos)
        return fail(node, row, isText ? "a text without zero bytes" : "a text");
    std::string text = node.text;
    // A scene file that was included from elsewhere names its files from its own folder.
    if (!row.fileFolder.empty() && row.hints.isFile && isRelative(text))
        text = (std::filesystem::path(row.fileFolder) / text).lexically_normal().string();
    value = std::move(text);
    return true;
}

bool ValueReader::readObject(const SceneNode& node, const RowContext& row, ParamScalar& value) {
    PluginBase* object = nullptr;
    if (node.kind != SceneNode::Kind::Null) {
        object = resolve_(node, row);
        if (!object)
            return false;
    }
    value = object;
    return true;
}

bool ValueReader::readNumbers(const SceneNode& node, const RowContext& row, std::size_t least,
                              std::size_t most, const std::string& allowed, float* numbers) {
    if (node.kind != SceneNode::Kind::Array || node.items.size() < least ||
        node.items.size() > most)
        return fail(node, row, allowed);
    for (std::size_t i = 0; i < node.items.size(); ++i) {
        if (!fitsSingle(node.items[i]))
            return fail(node.items[i], row, "a number of single precision in " + allowed);
        numbers[i] = static_cast<float>(node.items[i].number);
    }
    return true;
}

bool ValueReader::readTransform(const SceneNode& node, const RowContext& row, ParamScalar& value) {
    Transform result;
    if (node.kind == SceneNode::Kind::Object) {
        if (!readPlacement(node, row, result))
            return false;
        value = result;
        return true;
    }
    const std::string allowed =
        "{\"translate\", \"rotate\", \"scale\"} or [[x axis], [y axis], [z axis], [offset]]";
    if (node.kind != SceneNode::Kind::Array || node.items.size() != 4)
        return fail(node, row, allowed);
    for (int i = 0; i < 4; ++i) {
        float n[3];
        if (!readNumbers(node.items[i], row, 3, 3, "three numbers of " + allowed, n))
            return false;
        if (i < 3)
            result.f[i] = {n[0], n[1], n[2]};
    }
    // Offsets keep their double precision.
    const auto& offset = node.items[3].items;
    result.offs = {offset[0].number, offset[1].number, offset[2].number};
    value = result;
    return true;
}

bool ValueReader::readPlacement(const SceneNode& node, const RowContext& row, Transform& result) {
    float scale[3] = {1, 1, 1}, degrees[3] = {0, 0, 0}, unused[3];
    TracePoint offset;
    for (const SceneNode::Member& member : node.members) {
        const SceneNode& part = member.value;
        const std::string three = "three numbers in \"" + printable(member.key) + "\"";
        if (member.key == "translate") {
            if (!readNumbers(part, row, 3, 3, three, unused))
                return false;
            offset = {part.items[0].number, part.items[1].number, part.items[2].number};
        } else if (member.key == "rotate") {
            if (!readNumbers(part, row, 3, 3, three + ", degrees about x, y and z", degrees))
                return false;
        } else if (member.key == "scale") {
            if (fitsSingle(part))
                scale[0] = scale[1] = scale[2] = static_cast<float>(part.number);
            else if (!readNumbers(part, row, 3, 3, three + " or one number", scale))
                return false;
        } else {
            diagnostics_.add(member.keyLocation, row.subject,
                             "found the key '" + printable(member.key) +
                                 "', allowed are \"translate\", \"rotate\" and \"scale\"");
            return false;
        }
    }
    Transform scaled;
    for (int a = 0; a < 3; ++a)
        scaled.f[a] = scaled.f[a] * scale[a];
    result = compose(axisRotation(0, degrees[0]), scaled);
    result = compose(axisRotation(1, degrees[1]), result);
    result = compose(axisRotation(2, degrees[2]), result);
    result.offs = offset;
    return true;
}

bool ValueReader::readMixed(const SceneNode& node, const RowContext& row, ParamScalar& value) {
    float n[4];
    switch (node.kind) {
        case SceneNode::Kind::Bool:
            value = node.boolean;
            return true;
        case SceneNode::Kind::Integer:
            return readInt(node, row, value);
        case SceneNode::Kind::Float:
            return readFloat(node, row, value);
        case SceneNode::Kind::String:
            return node.text.starts_with('@') ? readObject(node, row, value)
                                              : readText(node, row, value);
        case SceneNode::Kind::Array:
            if (!readNumbers(node, row, 3, 4, "a vector [x, y, z] or a colour [r, g, b, a]", n))
                return false;
            if (node.items.size() == 4)
                value = AColor{{n[0], n[1], n[2]}, n[3]};
            else
                value = Color{n[0], n[1], n[2]};
            return true;
        default:
            return fail(node, row, "a number, a text, a colour or a plug-in");
    }
}

}  // namespace nimbra::host
