// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/mesh_plugin.h"

#include <stdexcept>

#include "host/material_plugin.h"
#include "host/mesh_file.h"
#include "host/mesh_shapes.h"
#include "host/plugin_values.h"

namespace nimbra::host {

using TessUtils::TracePoint;
using TessUtils::Vector;

void PlacedPlugin::definePlaceParameters(TessUtils::TessraParameterListDesc& t,
                                         const char* materialDescription) {
    t.addParamTransform("transform", true, {}, -1, "place in the world");
    t.addParamPlugin("material", kHostMaterial, -1, materialDescription);
    t.addParamBool("visible_to_camera", true, -1, "seen by camera rays");
    t.addParamBool("casts_shadows", true, -1, "holds up shadow rays");
}

PlacedPlugin::PlacedPlugin(TessUtils::TessraPluginDesc* desc) : TessraPlugin(desc) {
    paramList->setParamCache("material", &material_);
    paramList->setParamCache("visible_to_camera", &visibleToCamera_);
    paramList->setParamCache("casts_shadows", &castsShadows_);
}

const MaterialPlugin* PlacedPlugin::material() const {
    return dynamic_cast<const MaterialPlugin*>(material_);
}

void PlacedPlugin::frameBegin(TessUtils::TessraRenderer* renderer) {
    TessraPlugin::frameBegin(renderer);
    const TessUtils::TessraFrameData& frame = renderer->getFrameData();
    const double times[2] = {frame.frameStart, frame.frameEnd};
    for (int end = 0; end < 2; ++end) {
        place_[end] = readTransform(*paramList, "transform", times[end]);
        place_[end].offs = place_[end].offs - frame.sceneOffset;
    }
}

// --- Meshes --------------------------------------------------------------------------------------

HostPluginInfo MeshPlugin::info() {
    return {"TessraMesh",
            0x4E425003,
            HostCategory::Geometry,
            "Triangle mesh from an OBJ or PLY file, or a plane, a box or a sphere",
            {kHostGeometry, TessUtils::ids::kStaticGeomSource}};
}

void MeshPlugin::defineParameters(TessUtils::TessraParameterListDesc& t) {
    t.addParamInt("shape", 0, -1, "what the mesh is", "enum=(0:File;1:Plane;2:Box;3:Sphere)");
    t.addParamString("file", "", -1, "the mesh of shape File",
                     "fileAsset=(obj;ply), fileAssetNames=(OBJ;PLY), fileAssetOp=(load)");
    t.addParam("size", TessUtils::paramtype_vector, -1,
               "edges or diameters of a shape in scene units; 1 1 1 if unset");
    t.addParamInt("segments", 64, -1, "pieces of a sphere's equator",
                  "minValue=(8), maxValue=(4096)");
    t.addParamInt("cells", 1, -1, "pieces of a plane's edges", "minValue=(1), maxValue=(4096)");
    t.addParamTexture("displacement", nullptr, -1, "moves the points, fixed within a frame");
    t.addParamInt("displacement_type", 0, -1,
                  "along the normal by the texture's red, or in the world by (2 red - 1, 2 green - "
                  "1, blue)",
                  "enum=(0:Height;1:Vector)");
    t.addParamFloat("displacement_amount", 1, -1, "factor of the movement");
    definePlaceParameters(t, "surface; grey if unset");
}

MeshPlugin::MeshPlugin(TessUtils::TessraPluginDesc* desc) : PlacedPlugin(desc) {
    paramList->setParamCache("shape", &shape_);
    paramList->setParamCache("file", &file_);
    paramList->setParamCache("segments", &segments_);
    paramList->setParamCache("cells", &cells_);
    paramList->setParamCache("displacement", &displacement_.texture);
    paramList->setParamCache("displacement_type", &displacement_.type);
    paramList->setParamCache("displacement_amount", &displacement_.amount);
    displacement_.object = this;
}

PluginInterface* MeshPlugin::getInterface(InterfaceID id) {
    if (id == kHostGeometry || id == TessUtils::ids::kStaticGeomSource)
        return static_cast<StaticGeomSourceInterface*>(this);
    return TessraPlugin::getInterface(id);
}

void MeshPlugin::updateMesh(double time) {
    const Vector size = readVector(*paramList, "size", time, {1, 1, 1});
    const Recipe wanted{shape_, segments_, cells_, file_, size};
    if (wanted == made_)
        return;
    switch (static_cast<MeshShape>(shape_)) {
        case MeshShape::Plane:
            mesh_ = planeMesh(size, cells_);
            break;
        case MeshShape::Box:
            mesh_ = boxMesh(size);
            break;
        case MeshShape::Sphere:
            mesh_ = sphereMesh(size, segments_);
            break;
        default: {
            std::string error;
            const std::string path = TessUtils::adjustRelativePath(this, file_);
            if (file_.empty())
                throw std::runtime_error("no file is given");
            if (!readMeshFile(path, mesh_, error))
                throw std::runtime_error(error);
        }
    }
    made_ = wanted;
}

void MeshPlugin::frameBegin(TessUtils::TessraRenderer* renderer) {
    PlacedPlugin::frameBegin(renderer);
    updateMesh(renderer->getFrameData().t);
    displaced_ = {};
    if (displacement_.texture)
        displaced_ =
            displaceMesh(mesh_, place(0), displacement_, renderer->getSequenceData().progress);
}

// --- Copies --------------------------------------------------------------------------------------

HostPluginInfo InstancePlugin::info() {
    return {"TessraInstance",
            0x4E425004,
            HostCategory::Geometry,
            "A further copy of a mesh in another place",
            {}};
}

void InstancePlugin::defineParameters(TessUtils::TessraParameterListDesc& t) {
    t.addParamPlugin("geometry", kHostGeometry, -1, "the mesh");
    definePlaceParameters(t, "surface; that of the mesh if unset");
}

InstancePlugin::InstancePlugin(TessUtils::TessraPluginDesc* desc) : PlacedPlugin(desc) {
    paramList->setParamCache("geometry", &geometry_);
}

MeshPlugin* InstancePlugin::source() const {
    return dynamic_cast<MeshPlugin*>(geometry_);
}

}  // namespace nimbra::host
