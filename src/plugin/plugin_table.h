// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The library's face towards the host: the list of its plug-in descriptors.
#pragma once

#include "tessra/plugin_base.h"

namespace nimbra {

/// Describes this library. Its list is complete once the static objects are constructed, and never
/// changes afterwards.
class LibDesc : public PluginLibDesc {
public:
    /// Frees the list; the descriptors live on.
    ~LibDesc() override;
    const char* getName() const override { return "Nimbra"; }
    const char* getDescription() const override { return "Nimbra plugin for Tessra"; }
    int enumPlugins(EnumPluginCallback* callback) override;
};

/// The one library descriptor.
LibDesc& libDesc();

/// Puts a descriptor in front of the list, so that hosts see the descriptors in the reverse of
/// their construction.
void enlistPluginDesc(PluginDesc* desc);

/// What `getLibDesc` does for a module of that file name (null or empty: unknown): tries the
/// readers of foreign caches beside it, says on standard output which are missing, and returns the
/// library descriptor all the same.
PluginLibDesc* offerLibrary(const char* moduleFileName);

}  // namespace nimbra
