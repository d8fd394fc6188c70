// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// All kinds of plug-ins that a scene can use: those of the loaded module and the host's own.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/host_log.h"
#include "tessra/parameters.h"
#include "tessra/plugin_base.h"

namespace nimbra::host {

/// What is known of one kind of plug-in.
struct PluginType {
    PluginDesc* desc = nullptr;
    /// Rows in table order, owned by the descriptor.
    std::vector<const TessUtils::ParameterDef*> rows;
    /// True for the host's own kinds, false for those of a module.
    bool ofHost = false;

    const char* name() const { return desc->getName(); }
    const TessUtils::ParameterDef* findRow(std::string_view rowName) const;
    std::vector<std::string> rowNames() const;
};

/// Collects descriptors and creates instances by the name of their kind. Used on the scene thread.
/// Must outlive every plug-in that it created.
class PluginRegistry : private PluginHost {
public:
    explicit PluginRegistry(HostLog& log);
    ~PluginRegistry() override;

    /// Loads a module and registers its table. What the module prints to standard output meanwhile
    /// goes to the log as debug lines. On failure: false, and `error` says which file and why.
    bool loadModule(const std::string& path, std::string& error);
    /// Registers the table of a library that is already in memory.
    void addLibrary(PluginLibDesc* library);
    /// Registers one of the host's own kinds.
    void addHostPlugin(std::unique_ptr<PluginDesc> desc);

    /// In order of registration: the host's own in the order added, a module's in its own order.
    const std::vector<const PluginType*>& types() const { return order_; }
    /// Null if there is no such kind.
    const PluginType* find(std::string_view typeName) const;
    std::vector<std::string> typeNames() const;
    /// Name of the loaded library and its description; empty without one.
    const std::string& libraryName() const { return libraryName_; }
    const std::string& libraryDescription() const { return libraryDescription_; }

    /// A new plug-in, to be given back to `destroy`; null on failure, with `error` naming the kind.
    Plugin* create(const PluginType& type, std::string& error);
    void destroy(Plugin* plugin);

    /// Where the module lies beside the running program; "" if it isn't there.
    static std::string defaultModulePath();

private:
    void registerPluginDesc(PluginDesc* desc) override;
    void unregisterPluginDesc(PluginDesc* desc) override;
    void registerParameter(PluginDesc* desc, const TessUtils::ParameterDef& def) override;

    HostLog& log_;
    std::vector<std::unique_ptr<PluginDesc>> ownDescs_;
    std::map<PluginDesc*, std::unique_ptr<PluginType>> types_;
    std::vector<const PluginType*> order_;
    std::string libraryName_, libraryDescription_;
    bool registeringHost_ = false;
};

/// Adds all plug-in kinds of the host.
void addHostPlugins(PluginRegistry& registry);

}  // namespace nimbra::host
