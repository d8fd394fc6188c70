// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/plugin_registry.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <exception>

#include "host/program_files.h"

namespace nimbra::host {

const TessUtils::ParameterDef* PluginType::findRow(std::string_view rowName) const {
    for (const TessUtils::ParameterDef* row : rows)
        if (row->name == rowName)
            return row;
    return nullptr;
}

std::vector<std::string> PluginType::rowNames() const {
    std::vector<std::string> names;
    for (const TessUtils::ParameterDef* row : rows)
        names.push_back(row->name);
    return names;
}

namespace {

/// Sends what is printed to standard output into a file while it lives: a module's own lines must
/// not mix with results there.
class StandardOutputCapture {
public:
    StandardOutputCapture() {
        std::fflush(stdout);
        file_ = std::tmpfile();
        saved_ = dup(STDOUT_FILENO);
        if (file_ && saved_ >= 0 && dup2(fileno(file_), STDOUT_FILENO) < 0)
            restore();
    }
    ~StandardOutputCapture() {
        restore();
        if (file_)
            std::fclose(file_);
    }
    StandardOutputCapture(const StandardOutputCapture&) = delete;
    StandardOutputCapture& operator=(const StandardOutputCapture&) = delete;

    /// Ends the capture and returns what was printed.
    std::string take() {
        restore();
        std::string text;
        if (!file_)
            return text;
        std::rewind(file_);
        char buffer[512];
        while (const std::size_t count = std::fread(buffer, 1, sizeof buffer, file_))
            text.append(buffer, count);
        return text;
    }

private:
    void restore() {
        if (saved_ < 0)
            return;
        std::fflush(stdout);
        dup2(saved_, STDOUT_FILENO);
        close(saved_);
        saved_ = -1;
    }
    std::FILE* file_ = nullptr;
    int saved_ = -1;
};

class CollectDescs final : public EnumPluginCallback {
public:
    int process(PluginDesc* desc) override {
        descs.push_back(desc);
        return 1;
    }
    std::vector<PluginDesc*> descs;
};

}  // namespace

PluginRegistry::PluginRegistry(HostLog& log) : log_(log) {}
PluginRegistry::~PluginRegistry() = default;

bool PluginRegistry::loadModule(const std::string& path, std::string& error) {
    StandardOutputCapture capture;
    PluginLibDesc* library = nullptr;
    // Stays loaded for good: threads of the libraries below it may outlive any render.
    if (void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
        if (void* entry = dlsym(module, "getLibDesc")) {
            try {
                library = reinterpret_cast<GetLibDescFunc>(entry)();
            } catch (const std::exception& failure) {
                error = "'" + path + "': getLibDesc failed: " + failure.what();
            } catch (...) {
                error = "'" + path + "': getLibDesc failed";
            }
        } else {
            error = "'" + path + "' has no function getLibDesc, so it is no plug-in module";
        }
    } else {
        const char* reason = dlerror();
        error = std::string("can't load the plug-in module: ") + (reason ? reason : path.c_str());
    }
    log_.debug(capture.take());
    if (!library) {
        if (error.empty())
            error = "'" + path + "': getLibDesc gave no table";
        return false;
    }
    addLibrary(library);
    return true;
}

void PluginRegistry::addLibrary(PluginLibDesc* library) {
    libraryName_ = library->getName();
    libraryDescription_ = library->getDescription();
    CollectDescs found;
    library->enumPlugins(&found);
    for (PluginDesc* desc : found.descs)
        desc->registerParameters(this);
}

void PluginRegistry::addHostPlugin(std::unique_ptr<PluginDesc> desc) {
    registeringHost_ = true;
    desc->registerParameters(this);
    registeringHost_ = false;
    ownDescs_.push_back(std::move(desc));
}

const PluginType* PluginRegistry::find(std::string_view typeName) const {
    for (const PluginType* type : order_)
        if (typeName == type->name())
            return type;
    return nullptr;
}

std::vector<std::string> PluginRegistry::typeNames() const {
    std::vector<std::string> names;
    for (const PluginType* type : order_)
        names.emplace_back(type->name());
    return names;
}

Plugin* PluginRegistry::create(const PluginType& type, std::string& error) {
    const std::string name = type.name();
    try {
        if (Plugin* plugin = type.desc->newPlugin())
            return plugin;
        error = "plug-in '" + name + "' is not available in this build of " +
                (type.ofHost || libraryName_.empty() ? "the host" : libraryName_);
    } catch (const std::exception& failure) {
        error = "plug-in '" + name + "' can't be created: " + failure.what();
    } catch (...) {
        error = "plug-in '" + name + "' can't be created";
    }
    return nullptr;
}

void PluginRegistry::destroy(Plugin* plugin) {
    if (!plugin)
        return;
    PluginDesc* desc = plugin->getPluginDesc();
    const std::string name = plugin->getPluginName();
    try {
        desc->deletePlugin(plugin);
    } catch (...) {
        log_.warning("plug-in '" + name + "' failed while it was deleted");
    }
}

std::string PluginRegistry::defaultModulePath() {
    return findModule("tessra_nmbshader.so");
}

void PluginRegistry::registerPluginDesc(PluginDesc* desc) {
    auto [entry, isNew] = types_.try_emplace(desc);
    if (!isNew) {
        entry->second->rows.clear();
        return;
    }
    entry->second = std::make_unique<PluginType>();
    entry->second->desc = desc;
    entry->second->ofHost = registeringHost_;
    if (find(desc->getName()))
        log_.warning("the plug-in kind '" + std::string(desc->getName()) +
                     "' is there twice, the first one is used");
    order_.push_back(entry->second.get());
}

void PluginRegistry::unregisterPluginDesc(PluginDesc* desc) {
    const auto entry = types_.find(desc);
    if (entry == types_.end())
        return;
    std::erase(order_, entry->second.get());
    types_.erase(entry);
}

void PluginRegistry::registerParameter(PluginDesc* desc, const TessUtils::ParameterDef& def) {
    if (const auto entry = types_.find(desc); entry != types_.end())
        entry->second->rows.push_back(&def);
}

}  // namespace nimbra::host
