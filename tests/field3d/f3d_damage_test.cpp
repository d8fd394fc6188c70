// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Damaged and hostile files of both containers: whatever the bytes, an answer that says what is
// wrong, in little time and with no more memory than the file can justify.
#include <gtest/gtest.h>
#include <hdf5.h>
#include <sys/resource.h>

#include <chrono>
#include <cmath>
#include <filesystem>
#include <random>

#include "cache/frame_data.h"
#include "field3d/f3d_cases.h"
#include "field3d/f3d_import.h"
#include "field3d/f3d_info.h"
#include "field3d/ogawa_writer.h"
#include "field3d/tree_message.h"
#include "support/mutated.h"
#include "support/temp_folder.h"

namespace nimbra {
namespace {

using test::LayerSpec;
using test::OgawaWriter;

class F3dDamage : public testing::Test {
protected:
    /// "" for a file that gives "density"; else why it doesn't. Listings must agree.
    std::string problemOf(const std::string& path) {
        const auto start = std::chrono::steady_clock::now();
        NimbraFrameData frame;
        std::string message;
        const bool imported = importF3dFile(path, frame, false, {{"density", 2, 1}}, message);
        if (imported) {
            float low = 0, high = 0;
            EXPECT_TRUE(frame.getChannelRange(2, low, high));
            EXPECT_TRUE(std::isfinite(low) && std::isfinite(high));
        }
        const F3dFileInfo info = readF3dInfo(path);
        for (const F3dLayerInfo& l : info.layers)
            EXPECT_EQ(l.mappable, l.problem.empty());
        EXPECT_EQ(info.readable, info.problem.empty());
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10)) << path;
        return imported ? "" : message;
    }
    std::string problemOfBytes(const std::string& bytes) {
        return problemOf(folder.write("damaged.f3d", bytes));
    }
    void expectProblem(const std::string& bytes, const std::string& part) {
        const std::string problem = problemOfBytes(bytes);
        EXPECT_NE(problem.find(part), std::string::npos) << "got: " << problem;
    }

    test::TempFolder folder;
};

TEST_F(F3dDamage, Ogawa_CutAnywhere) {
    const std::string bytes = LayerSpec::sparse(true).file();
    ASSERT_EQ(problemOfBytes(bytes), "");
    for (std::size_t n = 0; n < bytes.size(); n += n < 64 ? 1 : 7)
        EXPECT_NE(problemOfBytes(bytes.substr(0, n)), "") << n;
    std::string unfinished = bytes;
    unfinished[5] = 0;
    expectProblem(unfinished, "was not finished by its writer");
    unfinished = bytes;
    unfinished[7] = 2;
    expectProblem(unfinished, "has version 0.2 of the Ogawa format");
}

TEST_F(F3dDamage, Ogawa_StructureThatIsNone) {
    const auto withRoot = [](auto&& make) {
        OgawaWriter w;
        return w.finish({make(w)});
    };
    constexpr std::uint64_t kData = std::uint64_t(1) << 63;
    // The root's place, and a child's.
    for (const std::uint64_t place : {std::uint64_t(1) << 40, kData - 1, std::uint64_t(1) << 62}) {
        OgawaWriter w;
        expectProblem(w.finishAt(place), "is damaged at byte");
        expectProblem(withRoot([&](OgawaWriter&) { return place; }), "outside of the file");
    }
    expectProblem(withRoot([](OgawaWriter&) { return kData | 8; }), "data where a group should be");
    // The root as its own child.
    OgawaWriter cycle;
    const auto name = cycle.data("f3droot"), kind = cycle.data(OgawaWriter::number(0));
    const std::uint64_t here = cycle.bytes.size();
    expectProblem(cycle.finishAt(cycle.group({name, kind, here})), "a group that is met twice");
    // Groups in groups in groups.
    expectProblem(withRoot([](OgawaWriter& w) {
                      std::uint64_t inner = w.thing("x", 0, {});
                      for (int i = 0; i < 40; ++i)
                          inner = w.thing("x", 0, {inner});
                      return inner;
                  }),
                  "nested too deeply");
    expectProblem(withRoot([](OgawaWriter& w) { return w.thing("x", 9, {}); }), "unknown kind");
    expectProblem(withRoot([](OgawaWriter& w) { return w.thing("x", 1, {}); }), "without a value");
    expectProblem(withRoot([](OgawaWriter& w) { return w.group({}); }), "without a name");
    expectProblem(
        withRoot([](OgawaWriter& w) { return w.attribute("x", F3dElement::Float64, "abc"); }),
        "of the wrong type or length");
    expectProblem(withRoot([](OgawaWriter& w) { return w.thing("x", 2, {w.data("long number")}); }),
                  "a number of the wrong length");
    // A count and a length that only overflow can satisfy.
    for (const std::uint64_t count :
         {~std::uint64_t(0), std::uint64_t(1) << 61, std::uint64_t(0x1FFFFFFFFFFFFFFF)}) {
        OgawaWriter w;
        w.bytes.append(reinterpret_cast<const char*>(&count), 8);
        expectProblem(w.finishAt(16), "more children than the file has room for");
        const auto thing = w.group({kData | 16, kData | 16});
        expectProblem(w.finishAt(thing), "reaches beyond the file's end");
    }
    // Names that all are the same megabyte: each byte counts once.
    OgawaWriter fat;
    const auto big = fat.data(std::string(1 << 20, 'n')), group = fat.data(OgawaWriter::number(0));
    OgawaWriter::Entries groups;
    for (int i = 0; i < 1000; ++i)
        groups.push_back(fat.group({big, group}));
    expectProblem(fat.finish(groups), "parts of it overlap");
}

TEST_F(F3dDamage, Layers_ThatContradictThemselves) {
    const auto problemWith = [&](LayerSpec spec, auto&& change) {
        change(spec);
        return problemOfBytes(spec.file());
    };
    const LayerSpec dense = LayerSpec::dense(), sparse = LayerSpec::sparse(true);
    ASSERT_EQ(problemWith(dense, [](LayerSpec&) {}), "");
    struct {
        const LayerSpec& spec;
        void (*change)(LayerSpec&);
        const char* problem;
    } const cases[] = {
        {dense, [](LayerSpec& s) { s.version = 2; }, "has the unknown version 2"},
        {dense, [](LayerSpec& s) { s.className = "OddField"; }, "is of the unknown class"},
        {dense, [](LayerSpec& s) { s.components = 2; }, "has neither 1 nor 3 components"},
        {dense, [](LayerSpec& s) { s.bits = 16; }, "has 16 bits and data of type float"},
        {dense, [](LayerSpec& s) { s.element = F3dElement::Int32; }, "data of type int32"},
        {dense, [](LayerSpec& s) { s.high[0] = -1; }, "has a box without voxels"},
        {dense,
         [](LayerSpec& s) {
             s.high = {INT32_MAX, INT32_MAX, INT32_MAX};
         },
         "has a box"},
        {dense,
         [](LayerSpec& s) {
             s.low = {INT32_MIN, 0, 0};
         },
         "has a box"},
        {dense,
         [](LayerSpec& s) {
             s.high = {4000, 4000, 4000};
         },
         "bytes of memory"},
        {dense, [](LayerSpec& s) { s.high[2] = 6; }, "bytes of data at byte"},
        {dense, [](LayerSpec& s) { s.rows.clear(); }, "has 0 rows of 'data', 1 are due"},
        {dense, [](LayerSpec& s) { s.rows.push_back(""); }, "has 2 rows of 'data'"},
        {sparse, [](LayerSpec& s) { s.order = 0; }, "no sound block order"},
        {sparse, [](LayerSpec& s) { s.order = 9; }, "no sound block order"},
        {sparse, [](LayerSpec& s) { s.order = 3; }, "other numbers of blocks"},
        {sparse, [](LayerSpec& s) { s.blocks = 9; }, "another number of blocks"},
        {sparse, [](LayerSpec& s) { s.occupied = 9; }, "another number of blocks"},
        {sparse, [](LayerSpec& s) { s.occupied = 3; }, "marks 4 blocks as stored, 3 are due"},
        {sparse, [](LayerSpec& s) { s.flags.pop_back(); }, "bytes of data at byte"},
        {sparse, [](LayerSpec& s) { s.rows.pop_back(); }, "has 3 rows of 'data', 4 are due"},
        {sparse, [](LayerSpec& s) { s.rows[1].pop_back(); }, "can't be unpacked"},
        {sparse, [](LayerSpec& s) { s.rows[1] += "more"; }, "can't be unpacked"},
        {sparse, [](LayerSpec& s) { s.rows[1] = std::string(3 << 20, 'x'); }, "packed block"},
        {sparse, [](LayerSpec& s) { s.packed = false, s.rows[1] = "raw"; }, "bytes of data"},
        // Half a gigabyte of cells for one empty block.
        {sparse,
         [](LayerSpec& s) {
             s.order = 8, s.blocks = 8, s.high = {511, 511, 511}, s.occupied = 0;
             s.flags = std::string(8, '\0');
         },
         "bytes of memory"},
    };
    for (const auto& c : cases) {
        const std::string problem = problemWith(c.spec, c.change);
        EXPECT_NE(problem.find(c.problem), std::string::npos)
            << "expected: " << c.problem << "\ngot: " << problem;
    }
}

TEST_F(F3dDamage, MappingsThatAreNone) {
    const auto problemWith = [&](auto&& mapping) {
        OgawaWriter w;
        const auto m = mapping(w), layer = LayerSpec::dense().write(w);
        return problemOfBytes(w.finish({w.thing("p", 0, {m, layer})}));
    };
    const auto matrix = [](std::vector<double> values, int samples) {
        return [=](OgawaWriter& w) {
            const auto type = w.text("mapping_type", "MatrixFieldMapping");
            const auto count = w.integer("num_time_samples", samples);
            const auto time = w.attribute("time_0", F3dElement::Float32, std::string(4, '\0'));
            const auto m = w.attribute("matrix_0", F3dElement::Matrix64, test::bytesOf(values));
            return w.thing("mapping", 0, {type, count, time, m});
        };
    };
    const std::vector<double> identity = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    EXPECT_EQ(problemWith(matrix(identity, 1)), "");
    EXPECT_NE(problemWith(matrix(identity, 2)).find("2 samples without sample 1"),
              std::string::npos);
    EXPECT_NE(problemWith(matrix(identity, -1)).find("without a number"), std::string::npos);
    EXPECT_NE(problemWith(matrix(identity, INT32_MAX)).find("samples, too many"),
              std::string::npos);
    for (const double bad : {double(NAN), double(INFINITY), 0.5}) {
        std::vector<double> m = identity;
        m[3] = bad;
        EXPECT_NE(problemWith(matrix(m, 1)).find("none of affine space"), std::string::npos);
    }
    // A flat box has no inverse, but it has voxels.
    std::vector<double> flat = identity;
    flat[0] = 0;
    EXPECT_EQ(problemWith(matrix(flat, 1)), "");
    EXPECT_NE(problemWith([](OgawaWriter& w) {
                  return w.thing("mapping", 0, {});
              }).find("has no mapping"),
              std::string::npos);
}

TEST_F(F3dDamage, Mutations_AllGetAnAnswer) {
    std::mt19937_64 random(5);
    const auto replay = [&](const std::string& name, int count) {
        const std::string bytes = test::readFile(test::f3dFolder() / name);
        ASSERT_FALSE(bytes.empty()) << name;
        for (int i = 0; i < count; ++i)
            problemOfBytes(test::mutated(bytes, random));
    };
    for (const char* name : {"sparse_float_order2_og.f3d", "dense_half_og.f3d", "tiny_og.f3d"})
        replay(name, 700);
    for (const char* name : {"sparse_half_h5.f3d", "tiny_h5.f3d", "mac_half_h5.f3d"})
        replay(name, 12);
}

TEST_F(F3dDamage, Corpus_AllGetAnAnswer) {
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(NIMBRA_TEST_DATA "/f3d_broken")) {
        problemOf(entry.path());
        ++files;
    }
    EXPECT_GE(files, 120);
}

/// A sound HDF5 file with one layer, to which a test adds what has no place there.
class HdfLayer {
public:
    explicit HdfLayer(const std::string& path, hsize_t userBlock = 0) {
        const hid_t plan = H5Pcreate(H5P_FILE_CREATE);
        H5Pset_userblock(plan, userBlock);
        file = H5Fcreate(path.c_str(), H5F_ACC_TRUNC, plan, H5P_DEFAULT);
        H5Pclose(plan);
        partition = group(file, "smoke.0");
        const hid_t mapping = group(partition, "mapping");
        text(mapping, "mapping_type", "NullFieldMapping");
        H5Gclose(mapping);
        layer = group(partition, "density");
        text(layer, "class_type", "field3d_layer");
        text(layer, "class_name", "DenseField");
        ints(layer, "version", {1});
        ints(layer, "extents", {0, 0, 0, 3, 4, 5});
        ints(layer, "data_window", {0, 0, 0, 3, 4, 5});
        ints(layer, "components", {1});
        ints(layer, "bits_per_component", {32});
    }
    void close() {
        H5Gclose(layer);
        H5Gclose(partition);
        H5Fclose(file);
    }
    static hid_t group(hid_t parent, const char* name) {
        return H5Gcreate2(parent, name, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT);
    }
    static void text(hid_t object, const char* name, const std::string& value) {
        const hid_t type = H5Tcopy(H5T_C_S1), space = H5Screate(H5S_SCALAR);
        H5Tset_size(type, value.size());
        const hid_t a = H5Acreate2(object, name, type, space, H5P_DEFAULT, H5P_DEFAULT);
        H5Awrite(a, type, value.data());
        H5Aclose(a), H5Sclose(space), H5Tclose(type);
    }
    static void ints(hid_t object, const char* name, const std::vector<int>& values) {
        const hsize_t n = values.size();
        const hid_t space = H5Screate_simple(1, &n, nullptr);
        const hid_t a = H5Acreate2(object, name, H5T_STD_I32BE, space, H5P_DEFAULT, H5P_DEFAULT);
        H5Awrite(a, H5T_NATIVE_INT, values.data());
        H5Aclose(a), H5Sclose(space);
    }
    /// The data set "data" of 120 floats, stored as `type` by `plan`.
    void data(hid_t type, hid_t plan = H5P_DEFAULT, hsize_t length = 120, bool write = true) {
        const hid_t space = H5Screate_simple(1, &length, nullptr);
        const hid_t set = H5Dcreate2(layer, "data", type, space, H5P_DEFAULT, plan, H5P_DEFAULT);
        std::vector<float> values;
        for (int i = 0; i < 121; ++i)
            values.push_back(LayerSpec::valueAt(i % 4, i / 4 % 5, i / 20));
        if (write)
            H5Dwrite(set, H5T_NATIVE_FLOAT, H5S_ALL, H5S_ALL, H5P_DEFAULT, values.data());
        H5Dclose(set), H5Sclose(space);
    }
    static hid_t chunked(hsize_t chunk) {
        const hid_t plan = H5Pcreate(H5P_DATASET_CREATE);
        H5Pset_chunk(plan, 1, &chunk);
        return plan;
    }

    hid_t file = -1, partition = -1, layer = -1;
};

TEST_F(F3dDamage, Hdf5_ForeignButSound) {
    // A user block, big-endian numbers, links that lead in circles and out of the file.
    const std::string path = folder / "foreign.f3d";
    HdfLayer h(path, 1024);
    h.data(H5T_IEEE_F32BE, HdfLayer::chunked(50));
    H5Lcreate_hard(h.file, "/", h.partition, "circle", H5P_DEFAULT, H5P_DEFAULT);
    H5Lcreate_hard(h.file, "smoke.0", h.layer, "up", H5P_DEFAULT, H5P_DEFAULT);
    H5Lcreate_soft("/smoke.0/soft", h.partition, "soft", H5P_DEFAULT, H5P_DEFAULT);
    H5Lcreate_external("/etc/passwd", "/", h.partition, "outside", H5P_DEFAULT, H5P_DEFAULT);
    h.close();
    NimbraFrameData frame;
    std::string message;
    ASSERT_TRUE(importF3dFile(path, frame, false, {{"density", 2, 2}}, message)) << message;
    const float* const v = frame.channels[2].denseVoxels();
    for (int i = 0; i < 120; ++i)
        ASSERT_EQ(v[i], 2 * LayerSpec::valueAt(i % 4, i / 4 % 5, i / 20));
}

TEST_F(F3dDamage, Hdf5_DataThatHasNoPlace) {
    const auto problemWith = [&](auto&& make) {
        const std::string path = folder / "odd.f3d";
        HdfLayer h(path);
        make(h);
        h.close();
        return problemOf(path);
    };
    const auto expect = [&](const char* part, auto&& make) {
        const std::string problem = problemWith(make);
        EXPECT_NE(problem.find(part), std::string::npos) << part << ", got: " << problem;
    };
    EXPECT_EQ(problemWith([](HdfLayer& h) { h.data(H5T_IEEE_F32LE); }), "");
    expect("has no data set 'data'", [](HdfLayer&) {});
    expect("packed by a foreign filter", [](HdfLayer& h) {
        const hid_t plan = HdfLayer::chunked(60);
        H5Pset_nbit(plan);
        h.data(H5T_IEEE_F32LE, plan);
    });
    expect("lies in another file", [](HdfLayer& h) {
        const hid_t plan = H5Pcreate(H5P_DATASET_CREATE);
        H5Pset_external(plan, "/etc/passwd", 0, 480);
        h.data(H5T_IEEE_F32LE, plan, 120, false);
    });
    expect("more data than its bytes can hold", [](HdfLayer& h) {
        h.data(H5T_IEEE_F32LE, HdfLayer::chunked(1 << 20), hsize_t(1) << 40, false);
    });
    expect("chunks that are too large",
           [](HdfLayer& h) { h.data(H5T_IEEE_F32LE, HdfLayer::chunked(1 << 25), 1 << 26, false); });
    expect("a type that fields do not have",
           [](HdfLayer& h) { h.data(H5T_STD_I64LE, H5P_DEFAULT, 120, false); });
    expect("has 32 bits and data of type double", [](HdfLayer& h) { h.data(H5T_IEEE_F64LE); });
    expect("are due", [](HdfLayer& h) { h.data(H5T_IEEE_F32LE, H5P_DEFAULT, 121); });
}

TEST_F(F3dDamage, Hdf5_HelperThatIsGone) {
    // Whatever the helper says, it is taken apart with care.
    F3dGroup root, group;
    root.groups.resize(2);
    root.attributes.push_back({"a", F3dAttribute::Kind::Reals, "", {1, 2}});
    root.groups[1].datasets.push_back({"d", F3dElement::Float32, 3, 4, false, "", {}, 7});
    const std::string said = packTree(root);
    ASSERT_TRUE(unpackTree(std::as_bytes(std::span(said)), group));
    EXPECT_EQ(packTree(group), said);
    std::mt19937_64 random(3);
    for (std::size_t n = 0; n < said.size(); ++n) {
        EXPECT_FALSE(unpackTree(std::as_bytes(std::span(said).first(n)), group));
        std::string other = said;
        other[n] = static_cast<char>(random());
        unpackTree(std::as_bytes(std::span(other)), group);
    }
#ifndef NIMBRA_SANITIZED  // whose check of virtual tables needs descriptors itself
    // No file descriptor is left for a helper: an answer all the same.
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none = {6, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    const std::string problem = problemOf((test::f3dFolder() / "tiny_h5.f3d").string());
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_NE(problem.find("can't be"), std::string::npos) << problem;
    EXPECT_EQ(problemOf((test::f3dFolder() / "dense_half_h5.f3d").string()), "");
#endif
}

}  // namespace
}  // namespace nimbra
