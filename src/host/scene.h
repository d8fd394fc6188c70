// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The plug-ins of a scene with their parameter values, made from a document.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/plugin_registry.h"
#include "host/scene_file.h"
#include "tessra/renderer.h"
#include "tessra/tessra_plugin.h"

namespace nimbra::host {

/// Owns the plug-ins, their values and what connects them. Used on the scene thread; the registry
/// must outlive it. Lookup and enumeration go in scene order.
class Scene final : public TessUtils::SceneInterface {
public:
    /// Creates every plug-in of the document and gives it its values. Null when `diagnostics` got a
    /// fault. A scene without a "TessraSettings" gets one with default values, named "settings".
    static std::unique_ptr<Scene> create(const SceneDocument& document, PluginRegistry& registry,
                                         SceneDiagnostics& diagnostics);
    ~Scene() override;
    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;

    int enumPlugins(EnumCallback* callback) override;
    Plugin* findPlugin(const char* name) override;

    const std::vector<Plugin*>& plugins() const { return plugins_; }
    /// The same, every plug-in behind all those that it refers to: the order of lifecycle calls.
    const std::vector<Plugin*>& dependencyOrder() const { return dependencyOrder_; }
    /// Plug-ins of a host class or interface type, in scene order.
    template <class T>
    std::vector<T*> pluginsOf() const {
        std::vector<T*> found;
        for (Plugin* plugin : plugins_)
            if (T* match = dynamic_cast<T*>(plugin))
                found.push_back(match);
        return found;
    }
    /// Folder of the scene file.
    const std::string& folder() const { return folder_; }
    const std::string& path() const { return path_; }

private:
    friend class SceneBuilder;
    explicit Scene(PluginRegistry& registry);

    struct Storage;  // parameter values and adapters that the plug-ins point to
    PluginRegistry& registry_;
    std::unique_ptr<Storage> storage_;
    std::vector<Plugin*> plugins_;
    std::vector<Plugin*> dependencyOrder_;
    std::string folder_, path_;
};

}  // namespace nimbra::host
