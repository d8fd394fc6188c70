// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Triangle meshes from files: OBJ and PLY.
#pragma once

#include <string>
#include <string_view>

#include "tessra/geometry.h"

namespace nimbra::host {

/// Reads a file by its extension, .obj or .ply. On a fault the mesh stays as it was and `error`
/// names the file, the place and what is wrong.
bool readMeshFile(const std::string& path, TessUtils::TriangleMesh& mesh, std::string& error);

/// Wavefront OBJ: positions, texture coordinates, normals and faces (polygons become fans, indices
/// may be negative); all other statements are passed over. `name` goes into messages.
bool readObj(std::string_view bytes, const std::string& name, TessUtils::TriangleMesh& mesh,
             std::string& error);

/// Stanford PLY, text or binary of either byte order: x y z, nx ny nz, u v (or s t, texture_u
/// texture_v) of "vertex", and the list vertex_indices (or vertex_index) of "face"; other elements
/// and properties are passed over.
bool readPly(std::string_view bytes, const std::string& name, TessUtils::TriangleMesh& mesh,
             std::string& error);

}  // namespace nimbra::host
