// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Looks into a file with the HDF5 library. Only the helper process links this: the library is not
// safe with damaged files.
#pragma once

#include <hdf5.h>

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "field3d/f3d_tree.h"

namespace nimbra {

/// An identifier of the library that is closed with the object.
class Hdf5Handle {
public:
    using Close = herr_t (*)(hid_t);
    Hdf5Handle() = default;
    Hdf5Handle(hid_t id, Close close) : id_(id), close_(close) {}
    ~Hdf5Handle() {
        if (id_ >= 0)
            close_(id_);
    }
    Hdf5Handle(Hdf5Handle&& other) noexcept : id_(other.id_), close_(other.close_) {
        other.id_ = -1;
    }
    Hdf5Handle& operator=(Hdf5Handle&&) = delete;
    hid_t get() const { return id_; }
    explicit operator bool() const { return id_ >= 0; }

private:
    hid_t id_ = -1;
    Close close_ = nullptr;
};

/// A data set that passed the checks: what is needed to read it.
struct Hdf5Rows {
    Hdf5Handle dataset;
    Hdf5Handle memoryType;
    std::uint64_t rows = 0, rowBytes = 0, scalarBytes = 1;
    int rank = 1;
    /// Along the first dimension: scalars or rows that are best read together.
    std::uint64_t chunk = 1;
};

/// Makes a tree of all that hard links reach: groups, attributes that are texts or numbers, and
/// data sets of rank 1 and 2 without foreign filters or foreign files. What has no place in these
/// files is left out.
class Hdf5Walk {
public:
    Hdf5Walk(hid_t file, std::uint64_t fileBytes) : file_(file), fileBytes_(fileBytes) {}
    /// False when the root can't be opened or there is more than any sound file holds.
    bool run(F3dGroup& root);
    /// By the number of its F3dDataset.
    std::vector<Hdf5Rows>& datasets() { return datasets_; }

private:
    bool walkGroup(hid_t group, F3dGroup& out, int depth);
    bool walkLink(hid_t group, const std::string& name, F3dGroup& out, int depth);
    void readAttributes(hid_t object, F3dGroup& out);
    bool readAttribute(hid_t attribute, F3dAttribute& out);
    void describeDataset(Hdf5Handle dataset, F3dDataset& out);
    std::string checkDataset(hid_t dataset, F3dDataset& out, Hdf5Rows& rows);
    std::string checkStorage(hid_t dataset, Hdf5Rows& rows);
    bool countThing() { return ++things_ <= mostThings_; }

    hid_t file_;
    std::uint64_t fileBytes_;
    std::set<std::pair<unsigned long, haddr_t>> visited_;
    std::uint64_t things_ = 0, mostThings_ = 0;
    std::uint64_t attributeBytes_ = 0;
    std::vector<Hdf5Rows> datasets_;
};

}  // namespace nimbra
