// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A scene file as a tree of values that remember where they stand: JSON with comments, "include" of
// further files, and overrides from the command line.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace nimbra::host {

/// A place in a file. Line and column count from 1, columns in bytes; line 0: not in a file, `file`
/// then is the text of an override.
struct SceneLocation {
    std::shared_ptr<const std::string> file;
    int line = 0;
    int column = 0;

    /// "file:line:column", or the text of the override.
    std::string str() const;
};

/// One fault of a scene: where, in which "plug-in.parameter", and what was found and is allowed.
struct SceneMessage {
    SceneLocation location;
    std::string subject;
    std::string text;

    /// "file:line:column: plug-in.parameter: text"
    std::string str() const;
};

/// Faults in the order found; the first `kMostMessages` are kept.
class SceneDiagnostics {
public:
    static constexpr std::size_t kMostMessages = 50;

    void add(const SceneLocation& location, std::string subject, std::string text);
    bool empty() const { return messages_.empty(); }
    const std::vector<SceneMessage>& messages() const { return messages_; }
    /// All messages, one a line.
    std::string str() const;

private:
    std::vector<SceneMessage> messages_;
};

/// One value of the file.
struct SceneNode {
    enum class Kind { Null, Bool, Integer, Float, String, Array, Object };

    Kind kind = Kind::Null;
    SceneLocation location;
    bool boolean = false;
    bool isOverride = false;
    double number = 0;  // of Integer and Float
    std::string text;   // of a string, or the raw text of an override
    std::vector<SceneNode> items;
    struct Member;
    std::vector<Member> members;

    bool isNumber() const { return kind == Kind::Integer || kind == Kind::Float; }
    const SceneNode* find(std::string_view key) const;
    /// "the text 'abc'", "the number 4", "a list of 3 values", ... for messages.
    std::string describe() const;
};

struct SceneNode::Member {
    std::string key;
    SceneLocation keyLocation;
    SceneNode value;
};

/// A plug-in as the file writes it.
struct ScenePluginEntry {
    std::string name;
    SceneLocation location;  // of its name
    std::string type;
    SceneLocation typeLocation;
    std::vector<SceneNode::Member> parameters;
    /// Folder of the file that it stands in: what its paths are relative to.
    std::string folder;
};

/// All entries of a scene and of the files that it includes, includes first.
class SceneDocument {
public:
    static constexpr int kMostDepth = 64;
    static constexpr std::size_t kMostBytes = std::size_t(64) << 20;
    static constexpr std::size_t kMostIncludes = 1000;

    /// Reads a file and what it includes. Faults go to `diagnostics`; the document then is of no
    /// use.
    static SceneDocument load(const std::string& path, SceneDiagnostics& diagnostics);
    /// The same from text; `path` names it in messages and tells its folder.
    static SceneDocument parse(std::string_view text, const std::string& path,
                               SceneDiagnostics& diagnostics);

    /// Sets "plugin.param=value". The value is JSON, or else taken as text. In place of a plug-in's
    /// name its kind may be given, when there is just one of that kind. False on a fault.
    bool setOverride(std::string_view assignment, SceneDiagnostics& diagnostics);

    /// The entry of that name, or null.
    ScenePluginEntry* find(std::string_view name);
    const ScenePluginEntry* find(std::string_view name) const;

    std::string path;    // of the main file
    std::string folder;  // that it lies in, absolute
    std::vector<ScenePluginEntry> plugins;
    std::vector<std::string> files;  // all files read, the main one first
};

}  // namespace nimbra::host
