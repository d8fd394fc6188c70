// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/mesh_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <bit>
#include <cstring>
#include <random>

#include "host/mesh_shapes.h"
#include "support/temp_folder.h"

namespace nimbra::host {
namespace {

using namespace TessUtils;

TriangleMesh readObjText(const std::string& text) {
    TriangleMesh mesh;
    std::string error;
    EXPECT_TRUE(readObj(text, "test.obj", mesh, error)) << error;
    return mesh;
}

std::string objError(const std::string& text) {
    TriangleMesh mesh;
    mesh.indices = {7};
    std::string error;
    EXPECT_FALSE(readObj(text, "test.obj", mesh, error));
    EXPECT_EQ(mesh.indices, std::vector<std::uint32_t>{7}) << "the mesh was touched";
    return error;
}

std::string plyError(const std::string& text) {
    TriangleMesh mesh;
    std::string error;
    EXPECT_FALSE(readPly(text, "test.ply", mesh, error));
    EXPECT_TRUE(mesh.indices.empty());
    return error;
}

TEST(ObjReader, PolygonsIndicesAndContinuedLines) {
    const TriangleMesh mesh = readObjText(
        "# a quad and a triangle on one edge\r\n"
        "o thing\r\nv 0 0 0\r\nv +1 0 0\r\nv 1 1e0 \\\r\n0\r\nv 0 1 0 1.0\r\n"
        "vt 0 0\nvt 1 0\nvt .5 1\nvn 0 0 1\n"
        "f 1/1/1 2/2/1 3/3/1 4/1/1\n"
        "f -4/1/-1 -2/3/-1 -1/1/-1");
    EXPECT_EQ(mesh.indices, (std::vector<std::uint32_t>{0, 1, 2, 0, 2, 3, 0, 2, 3}));
    ASSERT_EQ(mesh.positions.size(), 4u);
    EXPECT_EQ(mesh.positions[2], (Vector{1, 1, 0}));
    EXPECT_EQ(mesh.uvw[2], (Vector{0.5f, 1, 0}));
    EXPECT_EQ(mesh.normals[3], (Vector{0, 0, 1}));
}

TEST(ObjReader, FaultsNameTheLine) {
    EXPECT_EQ(objError("v 0 0 0\nv 0 x 0\n"), "test.obj:2: 'x' is not a finite number");
    EXPECT_EQ(objError("v 0 0 nan\n"), "test.obj:1: 'nan' is not a finite number");
    EXPECT_EQ(objError("v 0 0\n"), "test.obj:1: '' is not a finite number");
    EXPECT_EQ(objError("v 0 0 0\nf 1 1 2\n"),
              "test.obj:2: the face refers to position 2, there are 1 so far");
    EXPECT_EQ(objError("v 0 0 0\nf 1 1 0\n"),
              "test.obj:2: the face refers to position 0, there are 1 so far");
    EXPECT_EQ(objError("v 0 0 0\nf 1 1 -2\n"),
              "test.obj:2: the face refers to position -2, there are 1 so far");
    EXPECT_EQ(objError("v 0 0 0\nf 1/1 1 1\n"),
              "test.obj:2: the face refers to texture coordinate 1, there are 0 so far");
    EXPECT_EQ(objError("v 0 0 0\nf 1 1\n"), "test.obj:2: a face needs three corners, it has 2");
    EXPECT_EQ(objError("v 0 0 0\nf 1 1 a\n"), "test.obj:2: 'a' is not an index");
    EXPECT_EQ(objError("f 99999999999999999999 1 1\n"),
              "test.obj:1: '99999999999999999999' is not an index");
    EXPECT_EQ(objError(""), "test.obj: no faces");
}

const char* const kAsciiPly =
    "ply\nformat ascii 1.0\ncomment made by hand\nelement vertex 4\n"
    "property float x\nproperty float y\nproperty double z\nproperty uchar red\n"
    "property float s\nproperty float t\nproperty list uchar float extra\n"
    "element camera 1\nproperty list uchar int ids\n"
    "element face 1\nproperty uchar flags\nproperty list uchar uint vertex_indices\nend_header\n"
    "0 0 5 255 0 0 0\n1 0 5 255 1 0 2 8 9\n1 1 5 255 1 1 0\n0 1 5 255 0 1 0\n"
    "3 1 2 3\n"
    "0 4 0 1 2 3";

TEST(PlyReader, TextWithForeignElementsAndProperties) {
    TriangleMesh mesh;
    std::string error;
    ASSERT_TRUE(readPly(kAsciiPly, "test.ply", mesh, error)) << error;
    EXPECT_EQ(mesh.indices, (std::vector<std::uint32_t>{0, 1, 2, 0, 2, 3}));
    EXPECT_EQ(mesh.positions[2], (Vector{1, 1, 5}));
    EXPECT_EQ(mesh.uvw[1], (Vector{1, 0, 0}));
    EXPECT_TRUE(mesh.normals.empty());
}

template <class T>
void put(std::string& out, T value, bool big) {
    char raw[sizeof(T)];
    std::memcpy(raw, &value, sizeof(T));
    if (big == (std::endian::native == std::endian::little))
        std::reverse(raw, raw + sizeof(T));
    out.append(raw, sizeof(T));
}

std::string binaryPly(bool big) {
    std::string out = "ply\nformat binary_" + std::string(big ? "big" : "little") +
                      "_endian 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
                      "property float z\nproperty float nx\nproperty float ny\nproperty float nz\n"
                      "element face 1\nproperty list uchar int vertex_index\nend_header\n";
    for (const Vector& v : {Vector{1, 2, 3}, Vector{4, 5, 6}, Vector{-7, 8, 0.5f}}) {
        for (int axis = 0; axis < 3; ++axis)
            put(out, v[axis], big);
        for (const float n : {0.0f, 1.0f, 0.0f})
            put(out, n, big);
    }
    out += '\3';
    for (const std::int32_t index : {2, 0, 1})
        put(out, index, big);
    return out;
}

TEST(PlyReader, BinaryOfBothByteOrders) {
    for (const bool big : {false, true}) {
        TriangleMesh mesh;
        std::string error;
        ASSERT_TRUE(readPly(binaryPly(big), "test.ply", mesh, error)) << error;
        EXPECT_EQ(mesh.indices, (std::vector<std::uint32_t>{2, 0, 1}));
        EXPECT_EQ(mesh.positions[2], (Vector{-7, 8, 0.5f}));
        EXPECT_EQ(mesh.normals[0], (Vector{0, 1, 0}));
    }
}

TEST(PlyReader, CountsAreHeldAgainstTheFile) {
    const std::string head =
        "ply\nformat binary_little_endian 1.0\nelement vertex 4000000000\nproperty float x\n"
        "property float y\nproperty float z\nend_header\n";
    EXPECT_EQ(plyError(head + std::string(24, '\0')),
              "test.ply: element 'vertex' claims 4000000000 rows, the file is too short");
    const std::string list =
        "ply\nformat binary_little_endian 1.0\nelement other 1\nproperty list uint double d\n"
        "end_header\n\xff\xff\xff\xff";
    EXPECT_EQ(plyError(list + std::string(64, '\0')),
              "test.ply: row 0 of element 'other' is damaged or cut off");
    // A row without properties takes no bytes: nothing to count through.
    EXPECT_EQ(plyError("ply\nformat ascii 1.0\nelement none 18446744073709551615\nend_header\n"),
              "test.ply: no faces");
}

TEST(PlyReader, DamagedHeadersAndValues) {
    EXPECT_EQ(plyError("obj\n"), "test.ply: not a PLY file");
    EXPECT_EQ(plyError("ply\nend_header\n"), "test.ply: the header has no format");
    EXPECT_EQ(plyError("ply\nformat ascii 1.0\n"), "test.ply: the header has no end");
    EXPECT_EQ(plyError("ply\nformat binary_middle_endian 1.0\nend_header\n"),
              "test.ply: the header line 'format binary_middle_endian 1.0' is damaged");
    EXPECT_EQ(plyError("ply\nformat ascii 1.0\nelement vertex -1\nend_header\n"),
              "test.ply: the header line 'element vertex -1' is damaged");
    EXPECT_EQ(plyError("ply\nformat ascii 1.0\nproperty float x\nend_header\n"),
              "test.ply: the header line 'property float x' is damaged");
    const std::string triangle =
        "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
        "property float z\nelement face 1\nproperty list uchar int vertex_indices\nend_header\n";
    EXPECT_EQ(plyError(triangle + "0 0 0\n0 1 0\n1 0 0\n3 0 1 3\n"),
              "test.ply: a face refers to vertex 3, there are 3");
    EXPECT_EQ(plyError(triangle + "0 0 0\n0 1 0\n1 0 inf\n3 0 1 2\n"),
              "test.ply: vertex 2 is not finite");
    EXPECT_EQ(plyError(triangle + "0 0 0\n0 1 0\n1 0 0\n3 0 1 -2\n"),
              "test.ply: row 0 of element 'face' is damaged or cut off");
}

TEST(MeshFile, MutationsNeitherCrashNorHang) {
    std::mt19937 random(7);
    const std::string obj = "v 0 0 0\nv 1 0 0\nv 1 1 0\nvt 0 0\nvn 0 0 1\nf 1/1/1 2/1/1 3//1\n";
    for (int i = 0; i < 20000; ++i) {
        const std::string seeds[] = {obj, kAsciiPly, binaryPly(false), binaryPly(true)};
        std::string bytes = seeds[i % 4];
        for (unsigned change = 0; change <= random() % 4; ++change)
            bytes[random() % bytes.size()] = static_cast<char>(random());
        TriangleMesh mesh;
        std::string error;
        const bool good =
            i % 4 ? readPly(bytes, "m.ply", mesh, error) : readObj(bytes, "m.obj", mesh, error);
        ASSERT_EQ(good, error.empty());
        for (const std::uint32_t index : mesh.indices)
            ASSERT_LT(index, mesh.positions.size());
    }
}

TEST(MeshFile, PathsAndKindsOfFiles) {
    const test::TempFolder folder;
    TriangleMesh mesh;
    std::string error;
    EXPECT_TRUE(
        readMeshFile(folder.write("A.OBJ", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n"), mesh, error));
    const std::string missing = folder / "missing.ply";
    EXPECT_FALSE(readMeshFile(missing, mesh, error));
    EXPECT_EQ(error, missing + ": No such file or directory");
    const std::string foreign = folder.write("mesh.stl", "solid");
    EXPECT_FALSE(readMeshFile(foreign, mesh, error));
    EXPECT_EQ(error, foreign + ": the name must end in .obj or .ply");
    const std::string pipe = folder / "pipe.obj";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_FALSE(readMeshFile(pipe, mesh, error));
    EXPECT_EQ(error, pipe + ": not a regular file");
}

}  // namespace
}  // namespace nimbra::host
