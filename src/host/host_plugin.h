// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The ground for the host's own plug-ins: one descriptor template and the IDs of the host's own
// interfaces. A plug-in kind is a class T derived from TessUtils::TessraPlugin with
//     static HostPluginInfo info();
//     static void defineParameters(TessUtils::TessraParameterListDesc& table);
//     explicit T(TessUtils::TessraPluginDesc* desc);
// and is announced by registry.addHostPlugin(std::make_unique<HostPluginDesc<T>>()).
// Row hints carry "minValue", "maxValue" and "enum" keys: for host rows a scene value outside of
// them is an error; a label of an "enum" may stand for its number.
#pragma once

#include <algorithm>
#include <new>
#include <vector>

#include "tessra/tessra_plugin.h"

namespace nimbra::host {

/// What the host does with a plug-in of its own.
enum class HostCategory { Settings, Camera, Light, Geometry, Material, Texture, Curve };

/// IDs for rows that ask for a host plug-in of one category.
inline constexpr InterfaceID kHostSettings = 0x4E424801;
inline constexpr InterfaceID kHostCamera = 0x4E424802;
inline constexpr InterfaceID kHostMaterial = 0x4E424803;
inline constexpr InterfaceID kHostGeometry = 0x4E424804;

struct HostPluginInfo {
    const char* name = "";
    PluginID id = 0;
    HostCategory category = HostCategory::Geometry;
    const char* description = "";
    /// What supportsInterface answers to, besides kTessraPlugin.
    std::vector<InterfaceID> interfaces;
};

/// Common part of the descriptors of host plug-ins.
class HostPluginDescBase : public TessUtils::TessraPluginDesc {
public:
    const HostPluginInfo& info() const { return info_; }

    PluginID getPluginID() const override { return info_.id; }
    const char* getName() const override { return info_.name; }
    const char* getDescription() const override { return info_.description; }
    bool supportsInterface(InterfaceID id) const override {
        return id == TessUtils::ids::kTessraPlugin ||
               std::find(info_.interfaces.begin(), info_.interfaces.end(), id) !=
                   info_.interfaces.end();
    }
    void deletePlugin(Plugin* plugin) override { delete plugin; }

protected:
    explicit HostPluginDescBase(HostPluginInfo info) : info_(std::move(info)) {
        parameters_ = &table_;
    }

    TessUtils::TessraParameterListDesc table_;

private:
    HostPluginInfo info_;
};

/// Describes and creates host plug-ins of class T.
template <class T>
class HostPluginDesc final : public HostPluginDescBase {
public:
    HostPluginDesc() : HostPluginDescBase(T::info()) { T::defineParameters(table_); }
    Plugin* newPlugin() override { return new (std::nothrow) T(this); }
};

}  // namespace nimbra::host
