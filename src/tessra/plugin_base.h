// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The object model that host and plug-ins share: things that can be asked for interfaces by ID,
// plug-ins with an identity, their descriptors, and the descriptor of a whole library.
// The order of the virtual operations is part of the contract.
#pragma once

#include <cstdint>
#include <string>

#include "tessra/export.h"
#include "tessra/ids.h"

class Plugin;
class PluginInterface;
class PluginDesc;

/// Root of everything that the host can ask for interfaces. Interfaces can be attached from
/// outside: that is how per-render objects hang on the renderer. Attaching and removing happen on
/// the scene thread; asking is safe from any thread meanwhile nobody attaches.
class TESSRA_API PluginBase {
public:
    PluginBase() = default;
    PluginBase(const PluginBase&) = delete;
    PluginBase& operator=(const PluginBase&) = delete;
    /// Deletes the attached interfaces that were given with `owned`.
    virtual ~PluginBase();
    /// The interface with that ID, or null. The base searches the attached ones, newest first.
    virtual PluginInterface* getInterface(InterfaceID id);
    virtual void reserved() {}
    /// Attaches an interface in front of the others; with `owned` it is deleted with this object.
    virtual bool addInterface(PluginInterface* interface, bool owned);
    /// Unlinks an attached interface without deleting it; false if it isn't attached.
    virtual bool removeInterface(PluginInterface* interface);

private:
    struct Attached {
        PluginInterface* interface;
        bool owned;
        Attached* next;
    };
    Attached* attached_ = nullptr;
};

/// Root of all interfaces.
class TESSRA_API PluginInterface {
public:
    virtual ~PluginInterface();
    virtual InterfaceID getInterfaceID() const = 0;
    /// The plug-in that carries this interface; null for objects of the host.
    virtual Plugin* getPlugin() { return nullptr; }
    virtual const char* getInterfaceName() const { return ""; }
    /// Another interface of the same plug-in, or null.
    virtual PluginInterface* newInterface(InterfaceID id);
};

/// A plug-in instance: created by a descriptor, named by the scene.
class TESSRA_API Plugin : public PluginBase {
public:
    ~Plugin() override;
    /// The descriptor that created it.
    virtual PluginDesc* getPluginDesc() = 0;
    /// Copies the text; null clears the name.
    virtual void setPluginName(const char* name);

    const char* getPluginName() const { return name_ ? name_ : ""; }
    std::uint64_t pluginIdentity() const { return identity_; }
    void setPluginIdentity(std::uint64_t identity) { identity_ = identity; }

private:
    std::uint64_t identity_ = 0;
    char* name_ = nullptr;
};

class PluginHost;

/// Describes one kind of plug-in and creates its instances. Immutable after the library was loaded,
/// so that all operations but the registration can be called from any thread.
class TESSRA_API PluginDesc : public PluginBase {
public:
    virtual PluginID getPluginID() const = 0;
    /// A new instance, or null if there is no memory or the kind cannot be created.
    virtual Plugin* newPlugin() = 0;
    /// Ignores null.
    virtual void deletePlugin(Plugin* plugin) = 0;
    virtual bool supportsInterface(InterfaceID id) const = 0;
    virtual const char* getName() const = 0;
    /// Announces the descriptor, then its parameters; nothing when `host` is null.
    virtual void registerParameters(PluginHost* host) = 0;
    virtual void unregisterParameters(PluginHost* host) = 0;
    virtual PluginInterface* getStaticInterface() { return nullptr; }
    virtual const char* getDescription() const = 0;
    virtual PluginInterface* getCategoryInfo() { return nullptr; }
    virtual PluginInterface* getVersionInfo() { return nullptr; }
};

namespace TessUtils {
struct ParameterDef;
}

/// What a host offers while descriptors register.
class TESSRA_API PluginHost {
public:
    virtual ~PluginHost();
    virtual void registerPluginDesc(PluginDesc* desc) = 0;
    virtual void unregisterPluginDesc(PluginDesc* desc) = 0;
    virtual void registerParameter(PluginDesc* desc, const TessUtils::ParameterDef& def) = 0;
};

/// Receives the descriptors of a library; returning zero ends the enumeration.
class TESSRA_API EnumPluginCallback {
public:
    virtual ~EnumPluginCallback();
    virtual int process(PluginDesc* desc) = 0;
};

/// Describes a whole library; the export `getLibDesc` returns one.
class TESSRA_API PluginLibDesc : public PluginBase {
public:
    virtual const char* getName() const = 0;
    virtual const char* getDescription() const = 0;
    /// With null: the count of descriptors. Otherwise calls back for each in list order until a
    /// call returns zero, and returns the number of calls made.
    virtual int enumPlugins(EnumPluginCallback* callback) = 0;
};

extern "C" {
/// The type of the one export of a library.
typedef PluginLibDesc* (*GetLibDescFunc)();
}
