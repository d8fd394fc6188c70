// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The Ogawa container. All integers are little-endian; positions count from the file's start.
//
//   offset  size  meaning                                          check
//   0       5     "Ogawa"
//   5       1     0xFF: the writer finished                        else cut
//   6       2     version, high byte first                         1
//   8       8     position of the root group                       inside the file
//
//   group at P    uint64 count, count uint64 entries               count <= (size - P - 8) / 8
//   data at P     uint64 bytes, the bytes                          bytes <= size - P - 8
//   entry         top bit set: data at the rest, 0: empty data; top bit clear: group, 0: empty
//
// A named thing is a group whose first two children are data: its name, and int32 what it is (0
// group, 1 attribute, 2 data set, 3 data set of packed rows). A group's further children are the
// things in it. The others have int32, the element's type, as child 2, and then their values: one
// for an attribute, one for each row of a data set.
#pragma once

#include <unordered_set>

#include "cache/input_file.h"
#include "field3d/f3d_tree.h"

namespace nimbra {

class OgawaFile : public F3dContainer {
public:
    /// Walks the structure of a file, which must outlive the object. False (and `problem`) when it
    /// isn't sound: no element is used of a file that is damaged anywhere in its structure.
    bool open(InputFile& file);

    bool isHdf5() const override { return false; }
    bool read(const F3dDataset& dataset, std::uint64_t firstRow, std::uint64_t count,
              std::uint64_t rowBytes, const F3dSink& sink) override;

private:
    using Entries = std::vector<std::uint64_t>;
    bool spend(std::uint64_t bytes, std::uint64_t place);
    bool readWord(std::uint64_t place, std::uint64_t& word);
    bool readEntries(std::uint64_t place, Entries& entries);
    bool readData(std::uint64_t entry, std::string& bytes);
    bool readNumber(std::uint64_t entry, std::int32_t& number);
    bool readThing(std::uint64_t place, F3dGroup& parent, int depth);
    bool readChildren(const Entries& entries, F3dGroup& group, int depth);
    bool readAttribute(const Entries& entries, F3dAttribute& attribute);
    bool readDataset(const Entries& entries, bool packed, F3dDataset& dataset);
    bool readRow(std::uint64_t entry, std::uint64_t rowBytes, const F3dSink& sink);
    bool loadPackedRow(std::uint64_t entry, std::uint64_t rowBytes, std::vector<std::byte>& packed);
    bool readPackedRows(const F3dDataset& dataset, std::uint64_t first, std::uint64_t end,
                        std::uint64_t rowBytes, const F3dSink& sink);
    bool damaged(std::uint64_t place, const char* what);

    InputFile* file_ = nullptr;
    /// Bytes that the structure may still take. Each byte of a sound file is read at most once.
    std::uint64_t budget_ = 0;
    std::unordered_set<std::uint64_t> visited_;
    std::vector<std::byte> rowBytes_;
};

}  // namespace nimbra
