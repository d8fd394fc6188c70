// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Makes Ogawa files, sound ones and others: every count, place and length can be told.
#pragma once

#include <zlib.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "field3d/f3d_tree.h"

namespace nimbra::test {

template <class T>
std::string bytesOf(const std::vector<T>& values) {
    return {reinterpret_cast<const char*>(values.data()), values.size() * sizeof(T)};
}

/// Writes from the inside out, as the format wants it: what is written answers its entry.
class OgawaWriter {
public:
    using Entries = std::vector<std::uint64_t>;
    std::string bytes = std::string("Ogawa\xFF\x00\x01", 8) + std::string(8, '\0');

    std::uint64_t data(const std::string& content) {
        const std::uint64_t place = bytes.size();
        word(content.size());
        bytes += content;
        return place | std::uint64_t(1) << 63;
    }
    std::uint64_t group(const Entries& entries) {
        const std::uint64_t place = bytes.size();
        word(entries.size());
        for (const std::uint64_t e : entries)
            word(e);
        return place;
    }
    std::uint64_t thing(const std::string& name, std::int32_t kind, const Entries& rest) {
        Entries entries = {data(name), data(number(kind))};
        entries.insert(entries.end(), rest.begin(), rest.end());
        return group(entries);
    }
    std::uint64_t attribute(const std::string& name, F3dElement type, const std::string& value) {
        return thing(name, 1, {data(number(static_cast<std::int32_t>(type))), data(value)});
    }
    std::uint64_t text(const std::string& name, const std::string& value) {
        return attribute(name, F3dElement::String, value);
    }
    std::uint64_t integer(const std::string& name, std::int32_t value) {
        return attribute(name, F3dElement::Int32, number(value));
    }
    std::uint64_t triple(const std::string& name, int x, int y, int z) {
        return attribute(name, F3dElement::VecI32, bytesOf(std::vector<std::int32_t>{x, y, z}));
    }
    std::uint64_t dataset(const std::string& name, F3dElement type,
                          const std::vector<std::string>& rows, bool packed = false) {
        Entries rest = {data(number(static_cast<std::int32_t>(type)))};
        for (const std::string& row : rows)
            rest.push_back(data(packed ? deflated(row) : row));
        return thing(name, packed ? 3 : 2, rest);
    }
    std::uint64_t nullMapping() {
        return thing("mapping", 0, {text("mapping_type", "NullFieldMapping")});
    }
    /// The file with this root.
    std::string finishAt(std::uint64_t root) {
        std::memcpy(bytes.data() + 8, &root, sizeof root);
        return bytes;
    }
    std::string finish(const Entries& partitions) {
        return finishAt(thing("f3droot", 0, partitions));
    }

    static std::string deflated(const std::string& content) {
        std::string out(compressBound(content.size()), '\0');
        uLongf length = out.size();
        compress2(reinterpret_cast<Bytef*>(out.data()), &length,
                  reinterpret_cast<const Bytef*>(content.data()), content.size(), 1);
        out.resize(length);
        return out;
    }
    static std::string number(std::int32_t value) {
        return {reinterpret_cast<const char*>(&value), sizeof value};
    }

private:
    void word(std::uint64_t value) {
        bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
    }
};

/// A layer whose attributes can be changed one by one before it is written.
struct LayerSpec {
    std::string name = "density", className = "DenseField";
    std::int32_t version = 1, components = 1, bits = 32;
    std::vector<std::int32_t> low = {0, 0, 0}, high = {3, 4, 5};
    F3dElement element = F3dElement::Float32;
    std::vector<std::string> rows;
    // Of sparse layers.
    std::int32_t order = 0, blocks = 0, occupied = 0;
    std::vector<std::int32_t> blockRes = {1, 1, 1};
    std::string flags, emptyValues;
    bool packed = false;

    /// i + 100 j + 10000 k shows each fault of an axis or of an offset.
    static float valueAt(std::int64_t i, std::int64_t j, std::int64_t k) {
        return static_cast<float>(i + 100 * j + 10000 * k);
    }
    static LayerSpec dense() {
        LayerSpec s;
        std::vector<float> v;
        for (int k = 0; k <= s.high[2]; ++k)
            for (int j = 0; j <= s.high[1]; ++j)
                for (int i = 0; i <= s.high[0]; ++i)
                    v.push_back(valueAt(i, j, k));
        s.rows = {bytesOf(v)};
        return s;
    }
    /// Blocks of 4 cells on a side; those with an odd index aren't stored and hold -1.
    static LayerSpec sparse(bool packed) {
        LayerSpec s;
        s.className = "SparseField";
        s.packed = packed;
        s.order = 2;
        s.high = {5, 6, 7};
        s.blockRes = {2, 2, 2};
        s.blocks = 8;
        s.occupied = 4;
        std::vector<float> empty;
        for (int b = 0; b < 8; ++b) {
            s.flags += static_cast<char>(b % 2 == 0);
            empty.push_back(-1);
            std::vector<float> v;
            for (int c = 0; c < 64; ++c)
                v.push_back(
                    valueAt(b % 2 * 4 + c % 4, b / 2 % 2 * 4 + c / 4 % 4, b / 4 * 4 + c / 16));
            if (b % 2 == 0)
                s.rows.push_back(bytesOf(v));
        }
        s.emptyValues = bytesOf(empty);
        return s;
    }

    std::uint64_t write(OgawaWriter& w) const {
        OgawaWriter::Entries parts = {w.text("class_type", "field3d_layer"),
                                      w.text("class_name", className),
                                      w.integer("version", version),
                                      w.triple("extents_min", low[0], low[1], low[2]),
                                      w.triple("extents_max", high[0], high[1], high[2]),
                                      w.triple("data_window_min", low[0], low[1], low[2]),
                                      w.triple("data_window_max", high[0], high[1], high[2]),
                                      w.integer("components", components),
                                      w.integer("bits_per_component", bits)};
        if (className == "SparseField") {
            parts.push_back(w.integer("block_order", order));
            parts.push_back(w.integer("num_blocks", blocks));
            parts.push_back(w.triple("block_res", blockRes[0], blockRes[1], blockRes[2]));
            parts.push_back(w.integer("num_occupied_blocks", occupied));
            parts.push_back(w.dataset("block_is_allocated_data", F3dElement::UInt8, {flags}));
            parts.push_back(w.dataset("block_empty_value_data", element, {emptyValues}));
        }
        parts.push_back(w.dataset("data", element, rows, packed));
        return w.thing(name, 0, parts);
    }
    /// A file with just this layer in "smoke.0".
    std::string file() const {
        OgawaWriter w;
        const std::uint64_t mapping = w.nullMapping(), layer = write(w);
        const std::uint64_t partition = w.thing("smoke.0", 0, {mapping, layer});
        return w.finish({partition});
    }
};

}  // namespace nimbra::test
