// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What both containers of Field3D have in common: groups with attributes and data sets, and a way
// to the bytes of a data set. What the names mean is told elsewhere.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace nimbra {

/// Types of elements, with the numbers that the Ogawa container stores.
enum class F3dElement : std::int32_t {
    Int8 = 0,
    UInt8 = 1,
    Int16 = 2,
    UInt16 = 3,
    Int32 = 4,
    UInt32 = 5,
    Int64 = 6,
    UInt64 = 7,
    Float16 = 8,
    Float32 = 9,
    Float64 = 10,
    Vec16 = 11,
    Vec32 = 12,
    Vec64 = 13,
    VecI32 = 14,
    Matrix64 = 15,
    String = 16,
    Invalid = 127,
};

/// Bytes of one element; 0 for texts and for numbers that are no type.
std::uint64_t elementBytes(F3dElement element);
/// The type of one component: Float32 for Vec32; scalars are their own.
F3dElement scalarElement(F3dElement element);
/// "half", "float", "double", "uint8", ...
const char* elementName(F3dElement element);

/// A text or numbers. Integers are exact up to 2^53.
struct F3dAttribute {
    enum class Kind : std::uint8_t { Text, Integers, Reals };
    std::string name;
    Kind kind = Kind::Text;
    std::string text;
    std::vector<double> numbers;

    /// "smoke", "1 2 3"
    std::string display() const;
};

/// Rows of bytes, all of one length once they are unpacked. Their bytes stay in the file.
struct F3dDataset {
    std::string name;
    F3dElement element = F3dElement::Invalid;
    std::uint64_t rows = 0;
    /// Unpacked bytes of a row where the container says so, else 0.
    std::uint64_t rowBytes = 0;
    /// Each row is a stream in zlib's format.
    bool packed = false;
    /// Why it can't be read; empty if it can.
    std::string problem;
    /// Of Ogawa: the place of each row in the file.
    std::vector<std::uint64_t> places;
    /// Of HDF5: the number under which it is asked for.
    std::uint32_t number = 0;
};

struct F3dGroup {
    std::string name;
    std::vector<F3dAttribute> attributes;
    std::vector<F3dDataset> datasets;
    std::vector<F3dGroup> groups;

    // The first of that name, or null.
    const F3dAttribute* attribute(const std::string& wanted) const;
    const F3dDataset* dataset(const std::string& wanted) const;
    const F3dGroup* group(const std::string& wanted) const;

    // Values of the attribute of that name; false when it isn't there or is of another kind.
    bool text(const std::string& wanted, std::string& out) const;
    /// A whole number that fits.
    bool integer(const std::string& wanted, std::int64_t& out) const;
    /// Exactly as many numbers as `out` takes.
    bool numbers(const std::string& wanted, std::span<double> out) const;
};

/// Takes bytes piece by piece, in order. Pieces hold whole scalars.
using F3dSink = std::function<void(std::span<const std::byte>)>;

/// A file that was opened and walked.
class F3dContainer {
public:
    virtual ~F3dContainer() = default;
    virtual bool isHdf5() const = 0;
    const F3dGroup& root() const { return root_; }
    /// Passes on the bytes of `count` rows from `firstRow` on, each of which must have `rowBytes`
    /// bytes. False (and `problem`) for anything else; the sink may have got some of it.
    virtual bool read(const F3dDataset& dataset, std::uint64_t firstRow, std::uint64_t count,
                      std::uint64_t rowBytes, const F3dSink& sink) = 0;
    const std::string& problem() const { return problem_; }

protected:
    /// Sets the problem and answers false.
    bool fail(const std::string& problem) {
        problem_ = problem;
        return false;
    }
    F3dGroup root_;
    std::string problem_;
};

}  // namespace nimbra
