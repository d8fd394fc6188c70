// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The host plug-in "TessraMesh": a triangle mesh from a file, or a simple shape.
#pragma once

#include "host/host_plugin.h"
#include "tessra/geometry.h"
#include "tessra/renderer.h"

namespace nimbra::host {

class MaterialPlugin;

enum class MeshShape { File = 0, Plane = 1, Box = 2, Sphere = 3 };

class MeshPlugin final : public TessUtils::TessraPlugin, public TessUtils::GeometryObjectInterface {
public:
    static HostPluginInfo info();
    static void defineParameters(TessUtils::TessraParameterListDesc& table);
    explicit MeshPlugin(TessUtils::TessraPluginDesc* desc);

    Plugin* getPlugin() override { return this; }
    PluginInterface* getInterface(InterfaceID id) override;
    /// Reads or makes the mesh anew where its settings changed. Throws std::runtime_error with what
    /// is wrong with the file.
    void frameBegin(TessUtils::TessraRenderer* renderer) override;

    const TessUtils::TriangleMesh* getMesh() override { return &mesh_; }
    /// Place in the world at the start (0) and the end (1) of the frame, scene offset taken off.
    const TessUtils::Transform& place(int end) const { return place_[end]; }
    /// Null: the host's grey.
    const MaterialPlugin* material() const;
    bool visibleToCamera() const { return visibleToCamera_ != 0; }
    bool castsShadows() const { return castsShadows_ != 0; }

private:
    /// What a mesh is made from.
    struct Recipe {
        int shape, segments;
        std::string file;
        TessUtils::Vector size;
        bool operator==(const Recipe&) const = default;
    };
    void updateMesh(double time);

    int shape_ = 0, segments_ = 64, visibleToCamera_ = 1, castsShadows_ = 1;
    TessUtils::CharString file_;
    PluginBase* material_ = nullptr;
    TessUtils::TriangleMesh mesh_;
    Recipe made_{-1, 0, "", {}};  // of mesh_
    TessUtils::Transform place_[2];
};

}  // namespace nimbra::host
