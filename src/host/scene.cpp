// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/scene.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <exception>
#include <map>

#include "host/host_plugin.h"
#include "host/nearest_name.h"
#include "host/scene_parser.h"
#include "host/texture_adapters.h"
#include "host/value_reader.h"

namespace nimbra::host {

using namespace TessUtils;

struct Scene::Storage {
    std::vector<std::unique_ptr<DefParam>> parameters;
    std::vector<std::unique_ptr<PluginBase>> adapters;
    std::vector<std::unique_ptr<PluginInterface>> constants;
};

Scene::Scene(PluginRegistry& registry)
    : registry_(registry), storage_(std::make_unique<Storage>()) {}

Scene::~Scene() {
    // Users go before what they use.
    std::vector<Plugin*>& order = dependencyOrder_.empty() ? plugins_ : dependencyOrder_;
    for (auto plugin = order.rbegin(); plugin != order.rend(); ++plugin)
        registry_.destroy(*plugin);
}

int Scene::enumPlugins(EnumCallback* callback) {
    int calls = 0;
    for (Plugin* plugin : plugins_) {
        ++calls;
        if (!callback->process(plugin))
            break;
    }
    return calls;
}

Plugin* Scene::findPlugin(const char* name) {
    for (Plugin* plugin : plugins_)
        if (name && std::strcmp(plugin->getPluginName(), name) == 0)
            return plugin;
    return nullptr;
}

/// Makes a scene from a document in two walks: all plug-ins first, so that references can point
/// forward, then their values.
class SceneBuilder {
public:
    SceneBuilder(const SceneDocument& document, PluginRegistry& registry,
                 SceneDiagnostics& diagnostics)
        : document_(document),
          registry_(registry),
          diagnostics_(diagnostics),
          scene_(new Scene(registry)),
          reader_(diagnostics, [this](const SceneNode& node, const RowContext& row) {
              return resolve(node, row);
          }) {}

    std::unique_ptr<Scene> build() {
        scene_->folder_ = document_.folder;
        scene_->path_ = document_.path;
        for (const ScenePluginEntry& entry : document_.plugins)
            addPlugin(entry);
        addDefaultSettings();
        for (std::size_t i = 0; i < parts_.size(); ++i)
            if (parts_[i].entry && parts_[i].plugin)
                setParameters(i);
        orderByDependency();
        if (!diagnostics_.empty())
            return nullptr;
        return std::move(scene_);
    }

private:
    struct Reference {
        std::size_t target;
        SceneLocation location;
        std::string subject;
    };
    struct Part {
        const ScenePluginEntry* entry = nullptr;  // null: not in the document
        const PluginType* type = nullptr;
        Plugin* plugin = nullptr;  // null after a fault
        std::vector<Reference> references;
    };

    static constexpr const char* kSettings = "TessraSettings";

    void addPlugin(const ScenePluginEntry& entry) {
        names_.push_back(entry.name);
        byName_.emplace(entry.name, parts_.size());
        Part& part = parts_.emplace_back();
        part.entry = &entry;
        part.type = registry_.find(entry.type);
        const std::string subject = entry.name + ".plugin";
        if (!part.type) {
            diagnostics_.add(entry.typeLocation, subject,
                             "found the unknown kind '" + printable(entry.type) + "'" +
                                 suggestion(entry.type, registry_.typeNames()));
            return;
        }
        if (entry.type == kSettings && hasSettings_)
            diagnostics_.add(entry.location, subject,
                             "found a second " + entry.type + ", a scene has one");
        hasSettings_ = hasSettings_ || entry.type == kSettings;
        std::string error;
        part.plugin = registry_.create(*part.type, error);
        if (part.plugin)
            adopt(part.plugin, entry.name);
        else
            diagnostics_.add(entry.typeLocation, subject, error);
    }

    void adopt(Plugin* plugin, const std::string& name) {
        plugin->setPluginName(name.c_str());
        scene_->plugins_.push_back(plugin);
        plugin->setPluginIdentity(scene_->plugins_.size());
    }

    void addDefaultSettings() {
        const PluginType* type = hasSettings_ ? nullptr : registry_.find(kSettings);
        if (!type)
            return;
        std::string error;
        Part& part = parts_.emplace_back();
        part.type = type;
        part.plugin = registry_.create(*type, error);
        if (part.plugin)
            adopt(part.plugin, "settings");
        else
            diagnostics_.add({}, kSettings, error);
    }

    void setParameters(std::size_t index) {
        Part& part = parts_[index];
        current_ = &part;
        const ScenePluginEntry& entry = *part.entry;
        for (const SceneNode::Member& member : entry.parameters) {
            RowContext row;
            row.subject = entry.name + "." + printable(member.key);
            row.def = part.type->findRow(member.key);
            if (!row.def || row.def->isOutput) {
                diagnostics_.add(member.keyLocation, row.subject,
                                 row.def
                                     ? "found a value for an output, which can't be set"
                                     : "found a parameter that " + entry.type + " doesn't have" +
                                           suggestion(member.key, part.type->rowNames()));
                continue;
            }
            row.limitsHold = part.type->ofHost;
            row.hints = parseRowHints(row.def->uiHint);
            if (entry.folder != document_.folder && !member.value.isOverride)
                row.fileFolder = entry.folder;
            if (auto parameter = reader_.read(member.value, row))
                setParameter(*part.plugin, std::move(parameter), member, row.subject);
        }
    }

    void setParameter(Plugin& plugin, std::unique_ptr<DefParam> parameter,
                      const SceneNode::Member& member, const std::string& subject) {
        auto* driven =
            dynamic_cast<TessraPluginInterface*>(plugin.getInterface(ids::kTessraPlugin));
        if (!driven || !driven->setParameter(parameter.get()))
            diagnostics_.add(member.keyLocation, subject, "the plug-in refuses this parameter");
        scene_->storage_->parameters.push_back(std::move(parameter));
    }

    static bool isTextureRow(const RowContext& row) {
        return row.def->type == paramtype_texture || row.def->type == paramtype_textureFloat;
    }

    PluginBase* fail(const SceneNode& node, const RowContext& row, const std::string& text) {
        diagnostics_.add(node.location, row.subject, text);
        return nullptr;
    }

    PluginBase* resolve(const SceneNode& node, const RowContext& row) {
        if (isTextureRow(row) && (node.isNumber() || node.kind == SceneNode::Kind::Array))
            return constantTexture(node, row);
        if (node.kind != SceneNode::Kind::String || node.text.size() < 2 || node.text[0] != '@')
            return fail(node, row,
                        "found " + node.describe() + ", allowed is a plug-in as \"@name\"" +
                            (isTextureRow(row) ? ", a number or a colour [r, g, b]" : ""));
        const std::size_t dot = node.text.find('.');
        const std::string name = node.text.substr(1, dot == node.text.npos ? dot : dot - 1);
        const auto found = byName_.find(name);
        if (found == byName_.end())
            return fail(node, row,
                        "found '" + printable(node.text) + "', there is no such plug-in" +
                            suggestion(name, names_));
        current_->references.push_back({found->second, node.location, row.subject});
        Part& target = parts_[found->second];
        if (!target.plugin)
            return nullptr;  // has been reported
        if (dot != node.text.npos)
            return output(node, row, target, node.text.substr(dot + 1));
        return isTextureRow(row) ? texture(node, row, target) : plugin(node, row, target);
    }

    PluginBase* constantTexture(const SceneNode& node, const RowContext& row) {
        AColor color{{0, 0, 0}, 1};
        const auto read = [](const SceneNode& item, float& to) {
            to = static_cast<float>(item.number);
            return item.isNumber() && std::abs(item.number) <= 1e30;
        };
        bool valid = true;
        if (node.isNumber()) {
            valid = read(node, color.color.r);
            color.color.g = color.color.b = color.color.r;
        } else {
            valid = node.items.size() == 3 || node.items.size() == 4;
            for (std::size_t i = 0; valid && i < node.items.size(); ++i)
                valid = read(node.items[i], i < 3 ? color.color[static_cast<int>(i)] : color.alpha);
        }
        if (!valid)
            return fail(node, row,
                        "found " + node.describe() +
                            ", allowed is \"@texture\", a number or a colour [r, g, b]");
        auto constant = std::make_unique<ConstantTexture>(color);
        auto adapter = std::make_unique<TextureAdapter>(constant.get(), nullptr, nullptr);
        scene_->storage_->constants.push_back(std::move(constant));
        return scene_->storage_->adapters.emplace_back(std::move(adapter)).get();
    }

    PluginBase* output(const SceneNode& node, const RowContext& row, Part& target,
                       const std::string& name) {
        std::vector<std::string> outputs;
        for (const ParameterDef* def : target.type->rows)
            if (def->isOutput)
                outputs.push_back(def->name);
        auto* owner = dynamic_cast<TessraPlugin*>(target.plugin);
        const bool known = std::find(outputs.begin(), outputs.end(), name) != outputs.end();
        TextureInterface* color = nullptr;
        TextureFloatInterface* number = nullptr;
        if (known && owner) {
            color = owner->parameterList()->outputTexture(name.c_str());
            number = owner->parameterList()->outputTextureFloat(name.c_str());
        }
        if (!color && !number)
            return fail(node, row,
                        "found '" + printable(node.text) + "', " + target.type->name() +
                            " has no such output" + suggestion(name, outputs));
        return adapt(color, number, target.plugin);
    }

    PluginBase* adapt(TextureInterface* color, TextureFloatInterface* number, Plugin* owner) {
        return scene_->storage_->adapters
            .emplace_back(std::make_unique<TextureAdapter>(color, number, owner))
            .get();
    }

    PluginBase* texture(const SceneNode& node, const RowContext& row, Part& target) {
        auto* color = dynamic_cast<TextureInterface*>(target.plugin->getInterface(ids::kTexture));
        auto* number =
            dynamic_cast<TextureFloatInterface*>(target.plugin->getInterface(ids::kTextureFloat));
        if (!color && !number)
            return fail(node, row,
                        "found '" + printable(node.text) + "', a " + target.type->name() +
                            ", allowed is a texture");
        const bool direct =
            row.def->type == paramtype_texture ? color != nullptr : number != nullptr;
        return direct ? static_cast<PluginBase*>(target.plugin)
                      : adapt(color, number, target.plugin);
    }

    PluginBase* plugin(const SceneNode& node, const RowContext& row, Part& target) {
        const InterfaceID id = row.def->interfaceID;
        if (id == 0 || target.type->desc->supportsInterface(id) || target.plugin->getInterface(id))
            return target.plugin;
        std::string allowed;
        for (const PluginType* type : registry_.types())
            if (type->desc->supportsInterface(id))
                allowed += (allowed.empty() ? "" : ", ") + std::string(type->name());
        return fail(node, row,
                    "found '" + printable(node.text) + "', a " + target.type->name() +
                        ", allowed is " +
                        (allowed.empty() ? "a plug-in with interface " + std::to_string(id)
                                         : "one of " + allowed));
    }

    /// Depth-first walk along the references: a plug-in is placed once all that it uses are.
    void orderByDependency() {
        enum class Mark { New, Open, Placed };
        struct Step {
            std::size_t part;
            std::size_t nextReference;
        };
        std::vector<Mark> marks(parts_.size(), Mark::New);
        for (std::size_t start = 0; start < parts_.size(); ++start) {
            std::vector<Step> path;
            if (marks[start] == Mark::New)
                path.push_back({start, 0});
            marks[start] = marks[start] == Mark::New ? Mark::Open : marks[start];
            while (!path.empty()) {
                Step& step = path.back();
                const auto& references = parts_[step.part].references;
                if (step.nextReference == references.size()) {
                    marks[step.part] = Mark::Placed;
                    if (parts_[step.part].plugin)
                        scene_->dependencyOrder_.push_back(parts_[step.part].plugin);
                    path.pop_back();
                    continue;
                }
                const Reference& reference = references[step.nextReference++];
                if (marks[reference.target] == Mark::Open) {
                    std::string chain;
                    for (const Step& open : path)
                        if (!chain.empty() || open.part == reference.target)
                            chain += parts_[open.part].entry->name + " -> ";
                    diagnostics_.add(reference.location, reference.subject,
                                     "found a cycle of references: " + chain +
                                         parts_[reference.target].entry->name +
                                         ", none is allowed");
                } else if (marks[reference.target] == Mark::New) {
                    marks[reference.target] = Mark::Open;
                    path.push_back({reference.target, 0});
                }
            }
        }
    }

    const SceneDocument& document_;
    PluginRegistry& registry_;
    SceneDiagnostics& diagnostics_;
    std::unique_ptr<Scene> scene_;
    ValueReader reader_;
    std::vector<Part> parts_;
    std::vector<std::string> names_;
    std::map<std::string, std::size_t> byName_;
    Part* current_ = nullptr;
    bool hasSettings_ = false;
};

std::unique_ptr<Scene> Scene::create(const SceneDocument& document, PluginRegistry& registry,
                                     SceneDiagnostics& diagnostics) {
    if (!diagnostics.empty())
        return nullptr;
    try {
        return SceneBuilder(document, registry, diagnostics).build();
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        diagnostics.add({std::make_shared<std::string>(document.path), 0, 0}, "",
                        std::string("a plug-in failed while the scene was made: ") + error.what());
    } catch (...) {
        diagnostics.add({std::make_shared<std::string>(document.path), 0, 0}, "",
                        "a plug-in failed while the scene was made");
    }
    return nullptr;
}

}  // namespace nimbra::host
