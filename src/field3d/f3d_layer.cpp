// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "field3d/f3d_layer.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "cache/bounded_reader.h"
#include "cache/grid_channel.h"

namespace nimbra {

namespace {

constexpr std::int64_t kKnownVersion = 1;
constexpr std::int64_t kLargestOrder = 8;

F3dClass storageNamed(const std::string& className) {
    if (className == "DenseField")
        return F3dClass::Dense;
    if (className == "SparseField")
        return F3dClass::Sparse;
    return className == "MACField" ? F3dClass::Mac : F3dClass::Unknown;
}

F3dElement elementOfBits(std::int64_t bits, bool isHdf5) {
    if (bits == 16)
        return F3dElement::Float16;
    if (bits == 64)
        return F3dElement::Float64;
    // Writers of HDF5 files left odd numbers for 32 here.
    return bits == 32 || isHdf5 ? F3dElement::Float32 : F3dElement::Invalid;
}

/// Reads what a layer, or a level of one, says about itself. Each step answers false with the
/// layer's problem set.
class LayerBody {
public:
    LayerBody(const F3dGroup& group, bool isHdf5, F3dLayer& layer)
        : group_(group), isHdf5_(isHdf5), layer_(layer) {}

    bool run() {
        layer_.body = &group_;
        return checkVersion() && readBoxes() && readComponents() &&
               (layer_.storage != F3dClass::Sparse || readBlocks()) && checkData() && readElement();
    }

private:
    bool fail(const std::string& problem) {
        layer_.problem = problem;
        return false;
    }
    bool checkVersion() {
        std::int64_t version = 0;
        if (!group_.integer("version", version))
            return fail("has no version");
        return version == kKnownVersion || fail(fmt::format("has the unknown version {}", version));
    }
    bool readBoxes() {
        if (!readBox("extents", layer_.extents) || !readBox("data_window", layer_.window))
            return false;
        int size[3];
        for (int a = 0; a < 3; ++a) {
            // More than 2^31 on an axis can't be.
            if (layer_.extents.size(a) < 1 || layer_.window.size(a) < 1 ||
                layer_.window.size(a) > INT32_MAX)
                return fail("has a box without voxels, or with too many");
            size[a] = static_cast<int>(layer_.window.size(a));
        }
        return voxelCount(size) > 0 || fail("has a box with too many voxels");
    }
    bool readBox(const std::string& name, F3dBox& box) {
        double v[6];
        const bool there = isHdf5_ ? group_.numbers(name, v)
                                   : group_.numbers(name + "_min", std::span(v).first(3)) &&
                                         group_.numbers(name + "_max", std::span(v).last(3));
        if (!there)
            return fail("has no " + name);
        for (int i = 0; i < 6; ++i) {
            if (!(v[i] >= INT32_MIN && v[i] <= INT32_MAX) || v[i] != std::floor(v[i]))
                return fail(fmt::format("has a {} with the value {}", name, v[i]));
            (i < 3 ? box.low : box.high)[i % 3] = static_cast<std::int64_t>(v[i]);
        }
        return true;
    }
    bool readComponents() {
        std::int64_t components = 0;
        if (!group_.integer("components", components) || (components != 1 && components != 3))
            return fail("has neither 1 nor 3 components");
        layer_.components = static_cast<int>(components);
        if (layer_.storage == F3dClass::Mac && components != 3)
            return fail("is a MAC field without 3 components");
        return true;
    }
    const char* mainData() const { return layer_.storage == F3dClass::Mac ? "u_data" : "data"; }
    /// From the bits, and from the data set where there is one: both must say the same.
    bool readElement() {
        std::int64_t bits = 0;
        const bool haveBits = group_.integer("bits_per_component", bits);
        const F3dDataset* data = group_.dataset(mainData());
        if (!data && layer_.storage == F3dClass::Sparse)
            data = group_.dataset("block_empty_value_data");
        layer_.element = haveBits ? elementOfBits(bits, isHdf5_)
                         : data   ? scalarElement(data->element)
                                  : F3dElement::Invalid;
        if (data && isHdf5_ && layer_.storage == F3dClass::Dense)
            layer_.element = scalarElement(data->element);
        if (layer_.element != F3dElement::Float16 && layer_.element != F3dElement::Float32 &&
            layer_.element != F3dElement::Float64)
            return fail("has neither half, float nor double values");
        // Packed blocks are bytes to their container.
        const bool told = data && !data->packed && data->problem.empty();
        if (told && (scalarElement(data->element) != layer_.element ||
                     (haveBits && elementOfBits(bits, isHdf5_) != layer_.element)))
            return fail(
                fmt::format("has {} bits and data of type {}", bits, elementName(data->element)));
        return true;
    }
    bool readBlocks() {
        std::int64_t order = 0, count = 0, occupied = 0;
        double res[3];
        if (!group_.integer("block_order", order) || order < 1 || order > kLargestOrder)
            return fail("has no sound block order");
        if (!group_.integer("num_blocks", count) || !group_.numbers("block_res", res) ||
            !group_.integer("num_occupied_blocks", occupied))
            return fail("has no numbers of blocks");
        layer_.blockOrder = static_cast<int>(order);
        const std::int64_t edge = std::int64_t(1) << order;
        for (int a = 0; a < 3; ++a) {
            layer_.blocks[a] = (layer_.window.size(a) + edge - 1) / edge;
            if (res[a] != static_cast<double>(layer_.blocks[a]))
                return fail("has other numbers of blocks than its box asks for");
        }
        // The box has at most 2^40 voxels, so this can't overflow.
        if (count < 0 || static_cast<std::uint64_t>(count) != layer_.blockCount() || occupied < 0 ||
            occupied > count)
            return fail("has another number of blocks than its box asks for");
        layer_.occupiedBlocks = static_cast<std::uint64_t>(occupied);
        return true;
    }
    bool need(const char* name) {
        const F3dDataset* const data = group_.dataset(name);
        if (!data)
            return fail(fmt::format("has no data set '{}'", name));
        return data->problem.empty() ||
               fail(fmt::format("has a data set '{}' that {}", name, data->problem));
    }
    bool checkData() {
        switch (layer_.storage) {
            case F3dClass::Sparse:
                return need("block_is_allocated_data") && need("block_empty_value_data") &&
                       (layer_.occupiedBlocks == 0 || need("data"));
            case F3dClass::Mac:
                return need("u_data") && need("v_data") && need("w_data");
            default:
                return need("data");
        }
    }

    const F3dGroup& group_;
    bool isHdf5_;
    F3dLayer& layer_;
};

/// The finest level stands for the whole.
const F3dGroup* finestLevel(const F3dGroup& group, F3dLayer& layer) {
    std::string base;
    group.text("base_type", base);
    layer.storage = storageNamed(base);
    const F3dGroup* const levels = group.group("mip_levels");
    const F3dGroup* const finest = levels ? levels->group("level.0") : nullptr;
    if (!finest)
        layer.problem = "has no level 0";
    else if (layer.storage != F3dClass::Dense && layer.storage != F3dClass::Sparse)
        layer.problem = fmt::format("has levels of the unknown class '{}'", printable(base));
    return finest;
}

}  // namespace

std::uint64_t F3dLayer::blockCount() const {
    return static_cast<std::uint64_t>(blocks[0]) * static_cast<std::uint64_t>(blocks[1]) *
           static_cast<std::uint64_t>(blocks[2]);
}

std::uint64_t F3dLayer::voxels() const {
    std::uint64_t count = 1;
    for (int a = 0; a < 3; ++a)
        count *= static_cast<std::uint64_t>(window.size(a));
    return count;
}

bool isHdf5Layer(const F3dGroup& group) {
    std::string type;
    return group.text("class_type", type) && type == "field3d_layer";
}

std::vector<std::pair<std::string, std::string>> attributeTexts(const F3dGroup& group) {
    std::vector<std::pair<std::string, std::string>> texts;
    for (const F3dAttribute& a : group.attributes)
        texts.emplace_back(a.name, a.display());
    return texts;
}

F3dLayer readLayer(const F3dGroup& group, bool isHdf5) {
    F3dLayer layer;
    layer.name = group.name;
    if (const F3dGroup* metadata = group.group("metadata"))
        layer.metadata = attributeTexts(*metadata);
    const F3dGroup* body = &group;
    if (!group.text("class_name", layer.className))
        layer.problem = "has no class";
    else if (layer.className == "MIPField")
        body = finestLevel(group, layer);
    else if ((layer.storage = storageNamed(layer.className)) == F3dClass::Unknown)
        layer.problem = fmt::format("is of the unknown class '{}'", printable(layer.className));
    else if (layer.storage == F3dClass::Mac && !isHdf5 && !group.attribute("version"))
        layer.problem = "is a MAC field, which Ogawa files hold no values of";
    if (layer.problem.empty())
        LayerBody(*body, isHdf5, layer).run();
    return layer;
}

}  // namespace nimbra
