// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "tessra/plugin_base.h"

#include <cstdlib>
#include <cstring>

PluginBase::~PluginBase() {
    // Each entry leaves the list before its interface goes: the interface may still ask this
    // object.
    while (Attached* entry = attached_) {
        attached_ = entry->next;
        if (entry->owned)
            delete entry->interface;
        delete entry;
    }
}

PluginInterface* PluginBase::getInterface(InterfaceID id) {
    for (const Attached* entry = attached_; entry; entry = entry->next) {
        if (entry->interface->getInterfaceID() == id)
            return entry->interface;
    }
    return nullptr;
}

bool PluginBase::addInterface(PluginInterface* interface, bool owned) {
    if (!interface)
        return false;
    attached_ = new Attached{interface, owned, attached_};
    return true;
}

bool PluginBase::removeInterface(PluginInterface* interface) {
    for (Attached** link = &attached_; *link; link = &(*link)->next) {
        if ((*link)->interface == interface) {
            Attached* const entry = *link;
            *link = entry->next;
            delete entry;
            return true;
        }
    }
    return false;
}

PluginInterface* PluginInterface::newInterface(InterfaceID id) {
    Plugin* const plugin = getPlugin();
    return plugin ? plugin->getInterface(id) : nullptr;
}

Plugin::~Plugin() {
    std::free(name_);
}

void Plugin::setPluginName(const char* name) {
    char* const copy = name ? strdup(name) : nullptr;
    std::free(name_);
    name_ = copy;
}
