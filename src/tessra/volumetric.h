// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Volumetric effects and generated geometry.
#pragma once

#include "tessra/shading.h"
#include "tessra/tessra_plugin.h"

namespace TessUtils {

class TessraRenderer;

/// Entry of a ray into a volumetric effect. Re-entrant: called on all render threads.
class TESSRA_API TessraVolume {
public:
    virtual ~TessraVolume();
    /// Answers `context.volumeResult` for the stretch of `context.ray` from mint to maxt.
    virtual void shade(ShadingContext& context) = 0;
    /// The same for transparency alone; `context.ray.flags` has kRayShadow set.
    virtual void shadeTransparency(ShadingContext& context) = 0;
};

/// "EXT_VOLUMETRIC"
class TESSRA_API VolumetricInterface : public PluginInterface {
public:
    InterfaceID getInterfaceID() const override { return ids::kVolumetric; }
    const char* getInterfaceName() const override { return "EXT_VOLUMETRIC"; }
    virtual TessraVolume* getVolume() = 0;
};

/// "EXT_GEOM_GEN": builds what a plug-in brings to the scene, once for each frame, after all
/// frameBegin and before tracing, on the scene thread.
class TESSRA_API GeomGenInterface : public PluginInterface {
public:
    InterfaceID getInterfaceID() const override { return ids::kGeomGen; }
    const char* getInterfaceName() const override { return "EXT_GEOM_GEN"; }
    virtual void compileGeometry(TessraRenderer* renderer) = 0;
    virtual void clearGeometry(TessraRenderer* renderer) = 0;
};

/// "EXT_GEOM_GEN2": the same operations under a newer ID, which hosts ask for first.
class TESSRA_API GeomGenInterface2 : public GeomGenInterface {
public:
    InterfaceID getInterfaceID() const override { return ids::kGeomGen2; }
    const char* getInterfaceName() const override { return "EXT_GEOM_GEN2"; }
};

/// Base of volumetric plug-ins.
class TESSRA_API TessraVolumetric : public TessraPlugin,
                                    public VolumetricInterface,
                                    public TessraVolume {
public:
    explicit TessraVolumetric(TessraPluginDesc* desc) : TessraPlugin(desc) {}
    Plugin* getPlugin() override { return this; }
    TessraVolume* getVolume() override { return this; }
    PluginInterface* getInterface(InterfaceID id) override;
};

}  // namespace TessUtils
