// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/scene_file.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <system_error>

#include "host/nearest_name.h"
#include "host/scene_parser.h"

namespace nimbra::host {

namespace fs = std::filesystem;

std::string SceneLocation::str() const {
    std::string name = file ? *file : "";
    if (line == 0)
        return name;
    return name + ":" + std::to_string(line) + ":" + std::to_string(column);
}

std::string SceneMessage::str() const {
    std::string result = location.str();
    if (!subject.empty())
        result += ": " + subject;
    return result + ": " + text;
}

void SceneDiagnostics::add(const SceneLocation& location, std::string subject, std::string text) {
    if (messages_.size() < kMostMessages)
        messages_.push_back({location, std::move(subject), std::move(text)});
}

std::string SceneDiagnostics::str() const {
    std::string result;
    for (const SceneMessage& message : messages_)
        result += message.str() + "\n";
    return result;
}

const SceneNode* SceneNode::find(std::string_view key) const {
    for (const Member& member : members)
        if (member.key == key)
            return &member.value;
    return nullptr;
}

namespace {

std::string numberText(double number) {
    char text[40];
    const auto end = std::to_chars(text, text + sizeof text, number, std::chars_format::general, 9);
    return {text, end.ptr};
}

}  // namespace

std::string SceneNode::describe() const {
    switch (kind) {
        case Kind::Null:
            return "null";
        case Kind::Bool:
            return boolean ? "true" : "false";
        case Kind::Integer:
        case Kind::Float:
            return "the number " + numberText(number);
        case Kind::String:
            return "the text '" + printable(text) + "'";
        case Kind::Array:
            return "a list of " + std::to_string(items.size()) +
                   (items.size() == 1 ? " value" : " values");
        case Kind::Object:
            return "an object";
    }
    return "";
}

namespace {

bool isPlainName(std::string_view name) {
    constexpr std::size_t kLongest = 255;
    return !name.empty() && name.size() <= kLongest &&
           std::none_of(name.begin(), name.end(), [](char c) {
               return static_cast<unsigned char>(c) < 0x20 || c == '.' || c == '@' || c == '=';
           });
}

/// Reads a regular file of bounded size; `fault` says what was found and is allowed.
bool readFile(const std::string& path, std::string& text, std::string& fault) {
    std::error_code code;
    const fs::file_status status = fs::status(path, code);
    if (!fs::exists(status)) {
        fault = "there is no file '" + printable(path) + "'";
        return false;
    }
    if (!fs::is_regular_file(status)) {
        fault = "'" + printable(path) + "' is no regular file";
        return false;
    }
    const std::uintmax_t size = fs::file_size(path, code);
    if (code || size > SceneDocument::kMostBytes) {
        fault = "found " + std::to_string(size) + " bytes in '" + printable(path) +
                "', a scene file may hold 64 MB";
        return false;
    }
    std::ifstream stream(path, std::ios::binary);
    text.resize(static_cast<std::size_t>(size));
    if (stream.read(text.data(), static_cast<std::streamsize>(size)).bad() || !stream.is_open()) {
        fault = "'" + printable(path) + "' can't be read";
        return false;
    }
    text.resize(static_cast<std::size_t>(stream.gcount()));
    return true;
}

std::string absoluteFolder(const std::string& path) {
    std::error_code code;
    const fs::path absolute = fs::absolute(path, code);
    return (code ? fs::path(path) : absolute).lexically_normal().parent_path().string();
}

/// Adds one file after the other to a document.
class DocumentReader {
public:
    DocumentReader(SceneDocument& document, SceneDiagnostics& diagnostics)
        : document_(document), diagnostics_(diagnostics) {}

    void readMain(const std::string& path) {
        std::string text, fault;
        if (!readFile(path, text, fault)) {
            diagnostics_.add({std::make_shared<std::string>(path), 0, 0}, "", fault);
            return;
        }
        readText(text, path);
    }

    void readText(std::string_view text, const std::string& path) {
        const std::string name = identity(path);
        open_.push_back(name);
        done_.insert(name);
        document_.files.push_back(path);
        SceneNode root;
        if (parseSceneText(text, std::make_shared<std::string>(path), root, diagnostics_))
            takeRoot(root, absoluteFolder(path));
        open_.pop_back();
    }

private:
    static std::string identity(const std::string& path) {
        std::error_code code;
        const fs::path canonical = fs::weakly_canonical(path, code);
        return code ? path : canonical.string();
    }

    void takeRoot(SceneNode& root, const std::string& folder) {
        if (root.kind != SceneNode::Kind::Object) {
            diagnostics_.add(root.location, "",
                             "found " + root.describe() + ", a scene is an object of plug-ins");
            return;
        }
        checkVersion(root);
        if (const SceneNode* include = root.find("include"))
            takeIncludes(*include, folder);
        for (SceneNode::Member& member : root.members)
            if (member.key != "nimbra" && member.key != "include")
                takePlugin(member, folder);
    }

    void checkVersion(const SceneNode& root) {
        const SceneNode* version = root.find("nimbra");
        if (!version)
            diagnostics_.add(root.location, "nimbra",
                             "found no format version, a scene holds \"nimbra\": 1");
        else if (version->kind != SceneNode::Kind::Integer || version->number != 1)
            diagnostics_.add(version->location, "nimbra",
                             "found " + version->describe() + ", the format version is 1");
    }

    void takeIncludes(const SceneNode& include, const std::string& folder) {
        if (include.kind == SceneNode::Kind::String) {
            takeInclude(include, folder);
            return;
        }
        if (include.kind != SceneNode::Kind::Array) {
            diagnostics_.add(include.location, "include",
                             "found " + include.describe() + ", allowed is a list of file names");
            return;
        }
        for (const SceneNode& item : include.items)
            takeInclude(item, folder);
    }

    void takeInclude(const SceneNode& item, const std::string& folder) {
        const auto fail = [&](const std::string& text) {
            diagnostics_.add(item.location, "include", text);
        };
        if (item.kind != SceneNode::Kind::String || item.text.empty() ||
            item.text.find('\0') != std::string::npos)
            return fail("found " + item.describe() + ", allowed is the name of a file");
        const std::string path = (fs::path(folder) / item.text).lexically_normal().string();
        const std::string name = identity(path);
        if (std::find(open_.begin(), open_.end(), name) != open_.end())
            return fail(
                "found '" + printable(item.text) +
                "', which includes this file, files must not include each other in a circle");
        // Two files may both include a third: its plug-ins exist once.
        if (done_.count(name))
            return;
        if (document_.files.size() > SceneDocument::kMostIncludes ||
            open_.size() > static_cast<std::size_t>(SceneDocument::kMostDepth))
            return fail("found too many files, " + std::to_string(SceneDocument::kMostIncludes) +
                        " files and " + std::to_string(SceneDocument::kMostDepth) +
                        " levels are allowed");
        std::string text, fault;
        if (!readFile(path, text, fault))
            return fail(fault);
        readText(text, path);
    }

    void takePlugin(SceneNode::Member& member, const std::string& folder) {
        const auto fail = [&](const SceneLocation& location, const std::string& text) {
            diagnostics_.add(location, printable(member.key), text);
        };
        if (!isPlainName(member.key))
            return fail(member.keyLocation,
                        "found this as a name, allowed are 1 to 255 characters "
                        "without '.', '@' and '='");
        if (member.value.kind != SceneNode::Kind::Object)
            return fail(member.value.location,
                        "found " + member.value.describe() +
                            ", allowed is an object with the key \"plugin\"");
        const SceneNode* type = member.value.find("plugin");
        if (!type)
            return fail(member.value.location,
                        "found no key \"plugin\", which names the kind of plug-in");
        if (type->kind != SceneNode::Kind::String)
            return fail(type->location,
                        "found " + type->describe() + ", \"plugin\" is the name of a kind");
        if (const auto known = known_.find(member.key); known != known_.end())
            return fail(member.keyLocation,
                        "found the name again, it is defined at " + known->second.str());
        known_.emplace(member.key, member.keyLocation);

        ScenePluginEntry entry{member.key, member.keyLocation, type->text, type->location, {},
                               folder};
        for (SceneNode::Member& parameter : member.value.members)
            if (parameter.key != "plugin")
                entry.parameters.push_back(std::move(parameter));
        document_.plugins.push_back(std::move(entry));
    }

    SceneDocument& document_;
    SceneDiagnostics& diagnostics_;
    std::vector<std::string> open_;  // files being read, outermost first
    std::set<std::string> done_;
    std::map<std::string, SceneLocation> known_;
};

}  // namespace

SceneDocument SceneDocument::load(const std::string& path, SceneDiagnostics& diagnostics) {
    SceneDocument document;
    document.path = path;
    document.folder = absoluteFolder(path);
    DocumentReader(document, diagnostics).readMain(path);
    return document;
}

SceneDocument SceneDocument::parse(std::string_view text, const std::string& path,
                                   SceneDiagnostics& diagnostics) {
    SceneDocument document;
    document.path = path;
    document.folder = absoluteFolder(path);
    DocumentReader(document, diagnostics).readText(text, path);
    return document;
}

ScenePluginEntry* SceneDocument::find(std::string_view name) {
    for (ScenePluginEntry& entry : plugins)
        if (entry.name == name)
            return &entry;
    return nullptr;
}

const ScenePluginEntry* SceneDocument::find(std::string_view name) const {
    return const_cast<SceneDocument*>(this)->find(name);
}

namespace {

constexpr const char* kSettingsType = "TessraSettings";
constexpr const char* kSettingsName = "settings";

/// The entry that an override means by its name or by its kind; null with a fault otherwise.
ScenePluginEntry* overrideTarget(SceneDocument& document, const std::string& name,
                                 const SceneLocation& location, SceneDiagnostics& diagnostics) {
    if (ScenePluginEntry* entry = document.find(name))
        return entry;
    std::vector<ScenePluginEntry*> ofType;
    bool hasSettings = false;
    std::vector<std::string> names;
    for (ScenePluginEntry& entry : document.plugins) {
        names.push_back(entry.name);
        hasSettings = hasSettings || entry.type == kSettingsType;
        if (entry.type == name)
            ofType.push_back(&entry);
    }
    if (ofType.size() == 1)
        return ofType.front();
    if (ofType.empty() && !hasSettings && (name == kSettingsName || name == kSettingsType)) {
        document.plugins.push_back(
            {kSettingsName, location, kSettingsType, location, {}, document.folder});
        return &document.plugins.back();
    }
    if (ofType.size() > 1)
        diagnostics.add(location, "",
                        "found " + std::to_string(ofType.size()) + " plug-ins of kind '" + name +
                            "', name the one that is meant");
    else
        diagnostics.add(location, "",
                        "found no plug-in '" + printable(name) + "'" + suggestion(name, names));
    return nullptr;
}

void markOverride(SceneNode& node, const SceneLocation& location) {
    node.isOverride = true;
    node.location = location;
    for (SceneNode& item : node.items)
        markOverride(item, location);
    for (SceneNode::Member& member : node.members) {
        member.keyLocation = location;
        markOverride(member.value, location);
    }
}

/// The value as JSON, or else as text.
SceneNode overrideValue(const std::string& text, const SceneLocation& location) {
    SceneNode value;
    SceneDiagnostics ignored;
    if (!parseSceneText(text, location.file, value, ignored)) {
        value = {};
        value.kind = SceneNode::Kind::String;
    }
    if (value.kind != SceneNode::Kind::String || ignored.messages().size())
        value.text = text;
    markOverride(value, location);
    return value;
}

}  // namespace

bool SceneDocument::setOverride(std::string_view assignment, SceneDiagnostics& diagnostics) {
    const SceneLocation location{std::make_shared<std::string>(printable(assignment)), 0, 0};
    const std::size_t equals = assignment.find('=');
    const std::size_t dot = assignment.substr(0, equals).find('.');
    if (equals == std::string_view::npos || dot == std::string_view::npos || dot == 0 ||
        dot + 1 == equals) {
        diagnostics.add(location, "", "allowed is plugin.param=value");
        return false;
    }
    ScenePluginEntry* entry =
        overrideTarget(*this, std::string(assignment.substr(0, dot)), location, diagnostics);
    if (!entry)
        return false;
    const std::string key(assignment.substr(dot + 1, equals - dot - 1));
    SceneNode value = overrideValue(std::string(assignment.substr(equals + 1)), location);
    for (SceneNode::Member& member : entry->parameters)
        if (member.key == key) {
            member.value = std::move(value);
            return true;
        }
    entry->parameters.push_back({key, location, std::move(value)});
    return true;
}

}  // namespace nimbra::host
