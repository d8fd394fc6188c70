// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "field3d/hdf5_walk.h"

#include <algorithm>
#include <cstring>

#include "cache/bounded_reader.h"
#include "field3d/tree_message.h"

namespace nimbra {

namespace {

// Deflate packs 1032 bytes into one at best.
constexpr std::uint64_t kBestRatio = 1032;
constexpr std::uint64_t kLargestChunk = std::uint64_t(64) << 20;
constexpr std::uint64_t kPieceBytes = std::uint64_t(1) << 20;

struct NameList {
    std::vector<std::string> names;
    std::uint64_t most = 0;

    herr_t add(const char* name) {
        if (names.size() >= most || !name || std::strlen(name) > kLongestName)
            return -1;
        names.emplace_back(name);
        return 0;
    }
};

herr_t addLink(hid_t, const char* name, const H5L_info_t* info, void* list) {
    return info && info->type == H5L_TYPE_HARD ? static_cast<NameList*>(list)->add(name) : 0;
}

herr_t addAttribute(hid_t, const char* name, const H5A_info_t*, void* list) {
    return static_cast<NameList*>(list)->add(name);
}

/// What a scalar of the file is to us, and the type in memory that it is read into.
F3dElement elementOf(hid_t type, hid_t& memoryType) {
    const std::size_t size = H5Tget_size(type);
    const H5T_class_t kind = H5Tget_class(type);
    if (H5Tcommitted(type) > 0)
        return F3dElement::Invalid;
    if (kind == H5T_INTEGER && size == 1) {
        memoryType = H5T_NATIVE_UCHAR;
        return F3dElement::UInt8;
    }
    // Bits of half floats travel as 16-bit integers.
    if (kind == H5T_INTEGER && size == 2) {
        memoryType = H5Tget_sign(type) == H5T_SGN_NONE ? H5T_NATIVE_USHORT : H5T_NATIVE_SHORT;
        return F3dElement::Float16;
    }
    if (kind == H5T_FLOAT && size == 4) {
        memoryType = H5T_NATIVE_FLOAT;
        return F3dElement::Float32;
    }
    if (kind == H5T_FLOAT && size == 8) {
        memoryType = H5T_NATIVE_DOUBLE;
        return F3dElement::Float64;
    }
    return F3dElement::Invalid;
}

}  // namespace

bool Hdf5Walk::run(F3dGroup& root) {
    // A thing takes more than these bytes of its file.
    constexpr std::uint64_t kLeastBytes = 8;
    mostThings_ = std::min<std::uint64_t>(kMostThings, fileBytes_ / kLeastBytes);
    const Hdf5Handle group(H5Gopen2(file_, "/", H5P_DEFAULT), H5Gclose);
    return group && walkGroup(group.get(), root, 0);
}

bool Hdf5Walk::walkGroup(hid_t group, F3dGroup& out, int depth) {
    readAttributes(group, out);
    if (depth >= kDeepestGroup)
        return true;
    NameList links;
    links.most = mostThings_;
    hsize_t at = 0;
    if (H5Literate(group, H5_INDEX_NAME, H5_ITER_INC, &at, addLink, &links) < 0)
        return links.names.size() < links.most;
    for (const std::string& name : links.names)
        if (!walkLink(group, name, out, depth))
            return false;
    return true;
}

bool Hdf5Walk::walkLink(hid_t group, const std::string& name, F3dGroup& out, int depth) {
    H5O_info_t info;
    if (!countThing())
        return false;
    if (H5Oget_info_by_name2(group, name.c_str(), &info, H5O_INFO_BASIC, H5P_DEFAULT) < 0 ||
        !visited_.emplace(info.fileno, info.addr).second)
        return true;
    if (info.type == H5O_TYPE_GROUP) {
        const Hdf5Handle child(H5Gopen2(group, name.c_str(), H5P_DEFAULT), H5Gclose);
        if (!child)
            return true;
        out.groups.emplace_back().name = name;
        return walkGroup(child.get(), out.groups.back(), depth + 1);
    }
    if (info.type == H5O_TYPE_DATASET) {
        out.datasets.emplace_back().name = name;
        describeDataset({H5Dopen2(group, name.c_str(), H5P_DEFAULT), H5Dclose},
                        out.datasets.back());
    }
    return true;
}

void Hdf5Walk::readAttributes(hid_t object, F3dGroup& out) {
    NameList list;
    list.most = mostThings_;
    hsize_t at = 0;
    if (H5Aiterate2(object, H5_INDEX_NAME, H5_ITER_INC, &at, addAttribute, &list) < 0)
        list.names.clear();
    for (const std::string& name : list.names) {
        const Hdf5Handle attribute(H5Aopen(object, name.c_str(), H5P_DEFAULT), H5Aclose);
        F3dAttribute a;
        if (!countThing() || !attribute || !readAttribute(attribute.get(), a))
            continue;
        a.name = name;
        out.attributes.push_back(std::move(a));
    }
}

bool Hdf5Walk::readAttribute(hid_t attribute, F3dAttribute& out) {
    const Hdf5Handle type(H5Aget_type(attribute), H5Tclose);
    const Hdf5Handle space(H5Aget_space(attribute), H5Sclose);
    if (!type || !space || H5Tcommitted(type.get()) > 0)
        return false;
    const hssize_t count = H5Sget_simple_extent_npoints(space.get());
    const std::size_t size = H5Tget_size(type.get());
    if (count < 1 || count > hssize_t(kMostNumbers) || size < 1 || size > kLongestName)
        return false;
    // Values lie in the file as they are.
    attributeBytes_ += static_cast<std::uint64_t>(count) * size;
    if (attributeBytes_ > fileBytes_)
        return false;
    switch (H5Tget_class(type.get())) {
        case H5T_STRING: {
            if (count != 1 || H5Tis_variable_str(type.get()) > 0)
                return false;
            // Read as the file has it: there is no room for a final zero, and a conversion would
            // take the last character for it.
            std::string text(size + 1, '\0');
            if (H5Aread(attribute, type.get(), text.data()) < 0)
                return false;
            out.text = text.c_str();
            return true;
        }
        case H5T_INTEGER:
        case H5T_FLOAT:
            out.kind = H5Tget_class(type.get()) == H5T_FLOAT ? F3dAttribute::Kind::Reals
                                                             : F3dAttribute::Kind::Integers;
            out.numbers.resize(static_cast<std::size_t>(count));
            return H5Aread(attribute, H5T_NATIVE_DOUBLE, out.numbers.data()) >= 0;
        default:
            return false;
    }
}

void Hdf5Walk::describeDataset(Hdf5Handle dataset, F3dDataset& out) {
    Hdf5Rows rows;
    out.problem = dataset ? checkDataset(dataset.get(), out, rows) : "can't be opened";
    if (!out.problem.empty())
        return;
    out.number = static_cast<std::uint32_t>(datasets_.size());
    out.rows = rows.rows;
    out.rowBytes = rows.rowBytes;
    hid_t memoryType = -1;
    const Hdf5Handle type(H5Dget_type(dataset.get()), H5Tclose);
    elementOf(type.get(), memoryType);
    datasets_.push_back({std::move(dataset),
                         {H5Tcopy(memoryType), H5Tclose},
                         rows.rows,
                         rows.rowBytes,
                         rows.scalarBytes,
                         rows.rank,
                         rows.chunk});
}

std::string Hdf5Walk::checkDataset(hid_t dataset, F3dDataset& out, Hdf5Rows& rows) {
    const Hdf5Handle type(H5Dget_type(dataset), H5Tclose);
    const Hdf5Handle space(H5Dget_space(dataset), H5Sclose);
    hid_t memoryType = -1;
    if (!type || !space)
        return "has no type or no size";
    out.element = elementOf(type.get(), memoryType);
    if (out.element == F3dElement::Invalid)
        return "has a type that fields do not have";
    hsize_t size[2] = {0, 1};
    rows.rank = H5Sget_simple_extent_ndims(space.get());
    if (H5Sget_simple_extent_type(space.get()) != H5S_SIMPLE || rows.rank < 1 || rows.rank > 2 ||
        H5Sget_simple_extent_dims(space.get(), size, nullptr) != rows.rank)
        return "isn't of rank 1 or 2";
    rows.scalarBytes = elementBytes(out.element);
    rows.rows = rows.rank == 1 ? 1 : size[0];
    std::uint64_t total = 0;
    if (!checkedMultiply(rows.rank == 1 ? size[0] : size[1], rows.scalarBytes, rows.rowBytes) ||
        !checkedMultiply(rows.rows, rows.rowBytes, total))
        return "has a size that is no size";
    return checkStorage(dataset, rows);
}

/// Only what the file itself holds, packed by nothing but deflate, and no more than that can hold.
std::string Hdf5Walk::checkStorage(hid_t dataset, Hdf5Rows& rows) {
    const Hdf5Handle plan(H5Dget_create_plist(dataset), H5Pclose);
    const H5D_layout_t layout = plan ? H5Pget_layout(plan.get()) : H5D_LAYOUT_ERROR;
    if (layout != H5D_CHUNKED && layout != H5D_CONTIGUOUS && layout != H5D_COMPACT)
        return "is stored in a foreign way";
    if (H5Pget_external_count(plan.get()) != 0)
        return "lies in another file";
    const int filters = H5Pget_nfilters(plan.get());
    for (int i = 0; i < filters; ++i) {
        unsigned flags = 0, config = 0;
        std::size_t values = 0;
        const H5Z_filter_t id =
            H5Pget_filter2(plan.get(), unsigned(i), &flags, &values, nullptr, 0, nullptr, &config);
        if (id != H5Z_FILTER_DEFLATE && id != H5Z_FILTER_SHUFFLE && id != H5Z_FILTER_FLETCHER32)
            return "is packed by a foreign filter";
    }
    if (layout == H5D_CHUNKED) {
        hsize_t chunk[2] = {1, 1};
        std::uint64_t scalars = 0, bytes = 0;
        if (H5Pget_chunk(plan.get(), rows.rank, chunk) != rows.rank ||
            !checkedMultiply(chunk[0], chunk[1], scalars) ||
            !checkedMultiply(scalars, rows.scalarBytes, bytes) || bytes > kLargestChunk ||
            chunk[0] < 1)
            return "has chunks that are too large";
        rows.chunk = chunk[0];
    }
    const std::uint64_t total = rows.rows * rows.rowBytes;
    const std::uint64_t stored = H5Dget_storage_size(dataset);
    if (stored > fileBytes_)
        return "claims more bytes than the file has";
    if (total > (layout == H5D_CHUNKED ? stored * kBestRatio : stored))
        return "claims more data than its bytes can hold";
    return "";
}

}  // namespace nimbra
