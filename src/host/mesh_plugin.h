// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The host plug-ins "TessraMesh", a triangle mesh from a file or a simple shape, and
// "TessraInstance", a further copy of one.
#pragma once

#include "host/displacement.h"
#include "host/host_plugin.h"
#include "tessra/geometry.h"
#include "tessra/renderer.h"

namespace nimbra::host {

class MaterialPlugin;

enum class MeshShape { File = 0, Plane = 1, Box = 2, Sphere = 3 };

/// What a mesh and its copies have in common: a place, a surface, who sees it.
class PlacedPlugin : public TessUtils::TessraPlugin {
public:
    explicit PlacedPlugin(TessUtils::TessraPluginDesc* desc);
    void frameBegin(TessUtils::TessraRenderer* renderer) override;

    /// Place in the world at the start (0) and the end (1) of the frame, scene offset taken off.
    const TessUtils::Transform& place(int end) const { return place_[end]; }
    /// Null: none given.
    const MaterialPlugin* material() const;
    bool visibleToCamera() const { return visibleToCamera_ != 0; }
    bool castsShadows() const { return castsShadows_ != 0; }

protected:
    static void definePlaceParameters(TessUtils::TessraParameterListDesc& table,
                                      const char* materialDescription);

private:
    int visibleToCamera_ = 1, castsShadows_ = 1;
    PluginBase* material_ = nullptr;
    TessUtils::Transform place_[2];
};

class MeshPlugin final : public PlacedPlugin, public TessUtils::StaticGeomSourceInterface {
public:
    static HostPluginInfo info();
    static void defineParameters(TessUtils::TessraParameterListDesc& table);
    explicit MeshPlugin(TessUtils::TessraPluginDesc* desc);

    Plugin* getPlugin() override { return this; }
    PluginInterface* getInterface(InterfaceID id) override;
    /// Reads or makes the mesh anew where its settings changed, and displaces it. Throws
    /// std::runtime_error with what is wrong with the file.
    void frameBegin(TessUtils::TessraRenderer* renderer) override;

    /// Null: the tracer takes the mesh itself.
    TessUtils::StaticGeomInstance* newInstance(TessUtils::TessraRenderer*) override {
        return nullptr;
    }
    void deleteInstance(TessUtils::StaticGeomInstance*) override {}
    const TessUtils::TriangleMesh* getStaticMesh(TessUtils::TessraRenderer*) override {
        return getMesh();
    }
    /// As it is shown: displaced.
    const TessUtils::TriangleMesh* getMesh() const {
        return displacement_.texture ? &displaced_ : &mesh_;
    }

private:
    /// What a mesh is made from.
    struct Recipe {
        int shape, segments, cells;
        std::string file;
        TessUtils::Vector size;
        bool operator==(const Recipe&) const = default;
    };
    void updateMesh(double time);

    int shape_ = 0, segments_ = 64, cells_ = 1;
    TessUtils::CharString file_;
    Displacement displacement_;
    TessUtils::TriangleMesh mesh_, displaced_;
    Recipe made_{-1, 0, 0, "", {}};  // of mesh_
};

class InstancePlugin final : public PlacedPlugin {
public:
    static HostPluginInfo info();
    static void defineParameters(TessUtils::TessraParameterListDesc& table);
    explicit InstancePlugin(TessUtils::TessraPluginDesc* desc);

    /// The mesh that it shows; null: nothing.
    MeshPlugin* source() const;

private:
    PluginBase* geometry_ = nullptr;
};

}  // namespace nimbra::host
