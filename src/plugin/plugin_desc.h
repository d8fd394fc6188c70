// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Descriptors of the library's plug-ins: identity, parameter table and creation of instances.
#pragma once

#include <new>

#include "plugin/parameter_tables.h"
#include "tessra/allocator.h"
#include "tessra/tessra_plugin.h"

namespace nimbra {

/// What tells one kind of plug-in from the others.
struct PluginKind {
    const char* name;
    PluginID id;  // persistent: scenes refer to it
    const char* description;
    InterfaceID kindInterface;  // beside that of every plug-in; hosts sort plug-ins by it
    void (*buildParameters)(TessUtils::TessraParameterListDesc&);
};

/// A descriptor with its parameter table. Constructing one enters it into the library's list: all
/// of them are static objects of one source file, which gives the list its order.
class NimbraPluginDesc : public TessUtils::TessraPluginDesc {
public:
    /// `kind` must outlive the descriptor.
    explicit NimbraPluginDesc(const PluginKind& kind);

    PluginID getPluginID() const override { return kind_.id; }
    /// Null: a kind without a class of its own can't be created.
    Plugin* newPlugin() override { return nullptr; }
    void deletePlugin(Plugin* plugin) override;
    bool supportsInterface(InterfaceID id) const override;
    const char* getName() const override { return kind_.name; }
    const char* getDescription() const override { return kind_.description; }

private:
    const PluginKind& kind_;
    TessUtils::TessraParameterListDesc table_;
};

/// The descriptor of a plug-in class whose constructor takes its descriptor.
template <class PluginClass>
class PluginDescOf : public NimbraPluginDesc {
public:
    using NimbraPluginDesc::NimbraPluginDesc;

    Plugin* newPlugin() override {
        void* storage = vmalloc_aligned(sizeof(PluginClass), alignof(PluginClass));
        if (!storage)
            return nullptr;
        try {
            return new (storage) PluginClass(this);
        } catch (...) {
            vfree_aligned(storage);
            throw;
        }
    }
};

}  // namespace nimbra
