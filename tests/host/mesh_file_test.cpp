// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Meshes from files, and their displacement.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <bit>
#include <cstring>
#include <random>

#include "host/displacement.h"
#include "host/mesh_file.h"
#include "host/mesh_shapes.h"
#include "support/temp_folder.h"

namespace nimbra::host {
namespace {

using namespace TessUtils;

template <class Read>
TriangleMesh meshOf(const Read& read, const std::string& text) {
    TriangleMesh mesh;
    std::string error;
    EXPECT_TRUE(read(text, "m", mesh, error)) << error;
    return mesh;
}

/// Texts, and what each reader says of them.
using Faults = std::vector<std::pair<std::string, const char*>>;

template <class Read>
void expectFaults(const Read& read, const Faults& faults) {
    for (const auto& [text, message] : faults) {
        TriangleMesh mesh;
        mesh.indices = {7};
        std::string error;
        EXPECT_FALSE(read(text, "m", mesh, error));
        EXPECT_EQ(error, message);
        EXPECT_EQ(mesh.indices, std::vector<std::uint32_t>{7}) << "the mesh was touched";
    }
}

TEST(ObjReader, PolygonsIndicesAndContinuedLines) {
    const TriangleMesh mesh =
        meshOf(readObj,
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
    expectFaults(
        readObj,
        {{"v 0 0 0\nv 0 x 0\n", "m:2: 'x' is not a finite number"},
         {"v 0 0 nan\n", "m:1: 'nan' is not a finite number"},
         {"v 0 0\n", "m:1: '' is not a finite number"},
         {"v 0 0 0\nf 1 1 2\n", "m:2: the face refers to position 2, there are 1 so far"},
         {"v 0 0 0\nf 1 1 0\n", "m:2: the face refers to position 0, there are 1 so far"},
         {"v 0 0 0\nf 1 1 -2\n", "m:2: the face refers to position -2, there are 1 so far"},
         {"v 0 0 0\nf 1/1 1 1\n",
          "m:2: the face refers to texture coordinate 1, there are 0 so far"},
         {"v 0 0 0\nf 1 1\n", "m:2: a face needs three corners, it has 2"},
         {"v 0 0 0\nf 1 1 a\n", "m:2: 'a' is not an index"},
         {"f 99999999999999999999 1 1\n", "m:1: '99999999999999999999' is not an index"},
         {"", "m: no faces"}});
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
    const TriangleMesh mesh = meshOf(readPly, kAsciiPly);
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
        const TriangleMesh mesh = meshOf(readPly, binaryPly(big));
        EXPECT_EQ(mesh.indices, (std::vector<std::uint32_t>{2, 0, 1}));
        EXPECT_EQ(mesh.positions[2], (Vector{-7, 8, 0.5f}));
        EXPECT_EQ(mesh.normals[0], (Vector{0, 1, 0}));
    }
}

TEST(PlyReader, DamagedFiles_SayWhatIsWrong) {
    const std::string ascii = "ply\nformat ascii 1.0\n";
    const std::string binary = "ply\nformat binary_little_endian 1.0\n";
    const std::string xyz = "property float x\nproperty float y\nproperty float z\n";
    const std::string triangle = ascii + "element vertex 3\n" + xyz +
                                 "element face 1\nproperty list uchar int vertex_indices\n"
                                 "end_header\n0 0 0\n0 1 0\n";
    expectFaults(
        readPly,
        {{"obj\n", "m: not a PLY file"},
         {"ply\nend_header\n", "m: the header has no format"},
         {ascii, "m: the header has no end"},
         {"ply\nformat binary_middle_endian 1.0\nend_header\n",
          "m: the header line 'format binary_middle_endian 1.0' is damaged"},
         {ascii + "element vertex -1\nend_header\n",
          "m: the header line 'element vertex -1' is damaged"},
         {ascii + "property float x\nend_header\n",
          "m: the header line 'property float x' is damaged"},
         {triangle + "1 0 0\n3 0 1 3\n", "m: a face refers to vertex 3, there are 3"},
         {triangle + "1 0 inf\n3 0 1 2\n", "m: vertex 2 is not finite"},
         {triangle + "1 0 0\n3 0 1 -2\n", "m: row 0 of element 'face' is damaged or cut off"},
         // Counts are held against the file.
         {binary + "element vertex 4000000000\n" + xyz + "end_header\n" + std::string(24, '\0'),
          "m: element 'vertex' claims 4000000000 rows, the file is too short"},
         {binary + "element other 1\nproperty list uint double d\nend_header\n\xff\xff\xff\xff" +
              std::string(64, '\0'),
          "m: row 0 of element 'other' is damaged or cut off"},
         // A row without properties takes no bytes: nothing to count through.
         {ascii + "element none 18446744073709551615\nend_header\n", "m: no faces"}});
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
    const std::string pipe = folder / "pipe.obj";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    const std::pair<std::string, const char*> bad[] = {
        {folder / "missing.ply", ": No such file or directory"},
        {folder.write("mesh.stl", "solid"), ": the name must end in .obj or .ply"},
        {pipe, ": not a regular file"}};
    for (const auto& [path, reason] : bad) {
        EXPECT_FALSE(readMeshFile(path, mesh, error));
        EXPECT_EQ(error, path + reason);
    }
}

struct ByPlace final : TextureInterface {
    AColor getTexColor(const TextureContext& context) override {
        const float x = static_cast<float>(context.position.x);
        const float z = static_cast<float>(context.position.z);
        return {{0.5f + 0.1f * x, 0.25f, z - 30}, 1};
    }
};

TEST(Displacement, Movement_IsThatOfTheWorldWhateverThePlace) {
    // Mirrored, turned, stretched and moved.
    const Transform place{{{0, 2, 0}, {3, 0, 0}, {0, 0.5f, 4}}, {10, 20, 30}};
    ByPlace texture;
    const TriangleMesh flat = boxMesh({1, 1, 1});
    const TriangleMesh moved = displaceMesh(
        flat, place, {&texture, static_cast<int>(DisplacementType::Vector), 2}, nullptr);
    for (std::size_t i = 0; i < flat.positions.size(); ++i) {
        const Vector from = toVector(place.applyPoint(toPoint(flat.positions[i])));
        const Vector to = toVector(place.applyPoint(toPoint(moved.positions[i])));
        EXPECT_NEAR(to.x - from.x, 0.4f * from.x, 1e-4f);
        EXPECT_NEAR(to.y - from.y, -1, 1e-4f);
        EXPECT_NEAR(to.z - from.z, 2 * (from.z - 30), 1e-4f);
    }
}

}  // namespace
}  // namespace nimbra::host
