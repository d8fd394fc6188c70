// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The one export of the module.
#include <dlfcn.h>

#include "plugin/plugin_table.h"

extern "C" __attribute__((visibility("default"))) PluginLibDesc* getLibDesc() {
    Dl_info module = {};
    dladdr(reinterpret_cast<void*>(&getLibDesc), &module);
    return nimbra::offerLibrary(module.dli_fname);
}
