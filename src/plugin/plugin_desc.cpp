// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "plugin/plugin_desc.h"

#include "plugin/plugin_table.h"
#include "tessra/ids.h"

namespace nimbra {

NimbraPluginDesc::NimbraPluginDesc(const PluginKind& kind) : kind_(kind) {
    kind.buildParameters(table_);
    parameters_ = &table_;
    enlistPluginDesc(this);
}

void NimbraPluginDesc::deletePlugin(Plugin* plugin) {
    if (!plugin)
        return;
    // The handle needn't be at the start of the object.
    void* storage = dynamic_cast<void*>(plugin);
    plugin->~Plugin();
    vfree_aligned(storage);
}

bool NimbraPluginDesc::supportsInterface(InterfaceID id) const {
    return id == TessUtils::ids::kTessraPlugin || (id != 0 && id == kind_.kindInterface);
}

}  // namespace nimbra
