// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "field3d/ogawa_file.h"

#include <fmt/format.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>

#include "cache/bounded_reader.h"
#include "foundation/parallel.h"

namespace nimbra {

namespace {

constexpr std::uint64_t kDataBit = std::uint64_t(1) << 63;
constexpr std::uint64_t kHeaderBytes = 16;
// Root, partition, layer, mip levels, level, and what stands in it.
constexpr int kDeepest = 8;
constexpr std::size_t kPieceBytes = std::size_t(1) << 20;

enum Kind : std::int32_t { kGroup = 0, kAttribute = 1, kDataset = 2, kPackedDataset = 3 };

bool isData(std::uint64_t entry) {
    return (entry & kDataBit) != 0;
}

std::uint64_t placeOf(std::uint64_t entry) {
    return entry & ~kDataBit;
}

template <class T>
void appendNumbers(const std::string& bytes, std::vector<double>& out) {
    for (std::size_t at = 0; at + sizeof(T) <= bytes.size(); at += sizeof(T)) {
        T value;
        std::memcpy(&value, bytes.data() + at, sizeof value);
        out.push_back(static_cast<double>(value));
    }
}

/// False for types that no attribute has.
bool decodeNumbers(F3dElement scalar, const std::string& bytes, F3dAttribute& out) {
    out.kind = scalar == F3dElement::Float32 || scalar == F3dElement::Float64
                   ? F3dAttribute::Kind::Reals
                   : F3dAttribute::Kind::Integers;
    switch (scalar) {
        case F3dElement::Int8:
            appendNumbers<std::int8_t>(bytes, out.numbers);
            return true;
        case F3dElement::UInt8:
            appendNumbers<std::uint8_t>(bytes, out.numbers);
            return true;
        case F3dElement::Int16:
            appendNumbers<std::int16_t>(bytes, out.numbers);
            return true;
        case F3dElement::UInt16:
            appendNumbers<std::uint16_t>(bytes, out.numbers);
            return true;
        case F3dElement::Int32:
            appendNumbers<std::int32_t>(bytes, out.numbers);
            return true;
        case F3dElement::UInt32:
            appendNumbers<std::uint32_t>(bytes, out.numbers);
            return true;
        case F3dElement::Int64:
            appendNumbers<std::int64_t>(bytes, out.numbers);
            return true;
        case F3dElement::UInt64:
            appendNumbers<std::uint64_t>(bytes, out.numbers);
            return true;
        case F3dElement::Float32:
            appendNumbers<float>(bytes, out.numbers);
            return true;
        case F3dElement::Float64:
            appendNumbers<double>(bytes, out.numbers);
            return true;
        default:
            return false;
    }
}

/// Unpacks a stream that must give exactly what `out` takes.
bool inflateExactly(std::span<const std::byte> packed, std::span<std::byte> out) {
    uLongf length = out.size();
    uLong taken = packed.size();
    return uncompress2(reinterpret_cast<Bytef*>(out.data()), &length,
                       reinterpret_cast<const Bytef*>(packed.data()), &taken) == Z_OK &&
           length == out.size();
}

/// Unpacks rows that do not depend on each other on the host's threads, where it lends some.
class UnpackRows : public NMBUtils::NmbParallel {
public:
    struct Row {
        std::vector<std::byte> packed, bytes;
        bool sound = false;
    };
    std::vector<Row> rows;

    void run(std::uint64_t rowBytes) {
        rowBytes_ = rowBytes;
        SplitRange(static_cast<std::int64_t>(rows.size()));
        Start();
    }
    void Run(NMBUtils::Job* job) override {
        for (std::int64_t i = job->rangeStart; i < job->rangeEnd; ++i) {
            Row& row = rows[static_cast<std::size_t>(i)];
            row.bytes.resize(rowBytes_);
            row.sound = inflateExactly(row.packed, row.bytes);
        }
    }
    const char* GetName() const override { return "UnpackRows"; }

private:
    std::uint64_t rowBytes_ = 0;
};

}  // namespace

bool OgawaFile::damaged(std::uint64_t place, const char* what) {
    return fail(fmt::format("is damaged at byte {}: {}", place, what));
}

bool OgawaFile::spend(std::uint64_t bytes, std::uint64_t place) {
    if (bytes > budget_)
        return damaged(place, "parts of it overlap");
    budget_ -= bytes;
    return true;
}

bool OgawaFile::readWord(std::uint64_t place, std::uint64_t& word) {
    if (file_->size() < 8 || place > file_->size() - 8)
        return damaged(place, "this is outside of the file");
    if (!file_->readAt(place, std::as_writable_bytes(std::span(&word, 1))))
        return fail(file_->problem());
    return true;
}

bool OgawaFile::readEntries(std::uint64_t place, Entries& entries) {
    entries.clear();
    if (place == 0)
        return true;
    std::uint64_t count = 0;
    if (!readWord(place, count))
        return false;
    if (count > (file_->size() - place - 8) / 8)
        return damaged(place, "more children than the file has room for");
    if (!spend(8 + count * 8, place))
        return false;
    entries.resize(count);
    return file_->readAt(place + 8, std::as_writable_bytes(std::span(entries))) ||
           fail(file_->problem());
}

bool OgawaFile::readData(std::uint64_t entry, std::string& bytes) {
    bytes.clear();
    const std::uint64_t place = placeOf(entry);
    if (!isData(entry))
        return damaged(place, "a group where data should be");
    if (place == 0)
        return true;
    std::uint64_t length = 0;
    if (!readWord(place, length))
        return false;
    if (length > file_->size() - place - 8)
        return damaged(place, "data that reaches beyond the file's end");
    if (!spend(8 + length, place))
        return false;
    bytes.resize(length);
    return file_->readAt(place + 8, std::as_writable_bytes(std::span(bytes))) ||
           fail(file_->problem());
}

bool OgawaFile::readNumber(std::uint64_t entry, std::int32_t& number) {
    std::string bytes;
    if (!readData(entry, bytes))
        return false;
    if (bytes.size() != sizeof number)
        return damaged(placeOf(entry), "a number of the wrong length");
    std::memcpy(&number, bytes.data(), sizeof number);
    return true;
}

bool OgawaFile::readAttribute(const Entries& entries, F3dAttribute& attribute) {
    std::int32_t number = 0;
    std::string bytes;
    // Empty data stands twice: more children than four are sound.
    if (entries.size() < 4)
        return damaged(0, "an attribute without a value");
    if (!readNumber(entries[2], number) || !readData(entries[3], bytes))
        return false;
    const auto element = static_cast<F3dElement>(number);
    if (element == F3dElement::String) {
        attribute.text = std::move(bytes);
        return true;
    }
    if (bytes.size() != elementBytes(element) ||
        !decodeNumbers(scalarElement(element), bytes, attribute))
        return damaged(placeOf(entries[3]), "an attribute of the wrong type or length");
    return true;
}

bool OgawaFile::readDataset(const Entries& entries, bool packed, F3dDataset& dataset) {
    std::int32_t number = 0;
    if (entries.size() < 3)
        return damaged(0, "a data set without a type");
    if (!readNumber(entries[2], number))
        return false;
    dataset.element = static_cast<F3dElement>(number);
    dataset.packed = packed;
    dataset.places.assign(entries.begin() + 3, entries.end());
    dataset.rows = dataset.places.size();
    for (const std::uint64_t entry : dataset.places)
        if (!isData(entry))
            return damaged(placeOf(entry), "a group where data should be");
    return true;
}

bool OgawaFile::readThing(std::uint64_t place, F3dGroup& parent, int depth) {
    if (!visited_.insert(place).second)
        return damaged(place, "a group that is met twice");
    Entries entries;
    std::string name;
    std::int32_t kind = 0;
    if (!readEntries(place, entries))
        return false;
    if (entries.size() < 2)
        return damaged(place, "a group without a name");
    if (!readData(entries[0], name) || !readNumber(entries[1], kind))
        return false;
    switch (kind) {
        case kGroup:
            if (depth >= kDeepest)
                return damaged(place, "groups are nested too deeply");
            parent.groups.emplace_back().name = std::move(name);
            return readChildren(entries, parent.groups.back(), depth + 1);
        case kAttribute:
            parent.attributes.emplace_back().name = std::move(name);
            return readAttribute(entries, parent.attributes.back());
        case kDataset:
        case kPackedDataset:
            parent.datasets.emplace_back().name = std::move(name);
            return readDataset(entries, kind == kPackedDataset, parent.datasets.back());
        default:
            return damaged(place, "a thing of an unknown kind");
    }
}

bool OgawaFile::readChildren(const Entries& entries, F3dGroup& group, int depth) {
    for (std::size_t i = 2; i < entries.size(); ++i) {
        if (isData(entries[i]))
            return damaged(placeOf(entries[i]), "data where a group should be");
        if (entries[i] != 0 && !readThing(entries[i], group, depth))
            return false;
    }
    return true;
}

bool OgawaFile::open(InputFile& file) {
    file_ = &file;
    std::byte header[kHeaderBytes] = {};
    if (!file.readAt(0, header))
        return fail(file.problem());
    if (std::memcmp(header, "Ogawa", 5) != 0)
        return fail("isn't an Ogawa file");
    if (header[5] != std::byte(0xFF))
        return fail("was not finished by its writer");
    if (header[6] != std::byte(0) || header[7] != std::byte(1))
        return fail(fmt::format("has version {}.{} of the Ogawa format, known is 0.1",
                                int(header[6]), int(header[7])));
    std::uint64_t place = 0;
    std::memcpy(&place, header + 8, sizeof place);
    budget_ = file.size();
    F3dGroup parent;
    if (!readThing(place, parent, 0))
        return false;
    if (parent.groups.size() != 1)
        return damaged(place, "the root isn't a group");
    root_ = std::move(parent.groups[0]);
    return true;
}

bool OgawaFile::readRow(std::uint64_t entry, std::uint64_t rowBytes, const F3dSink& sink) {
    std::uint64_t length = 0;
    const std::uint64_t place = placeOf(entry);
    if (place != 0 && !readWord(place, length))
        return false;
    if (length != rowBytes)
        return fail(
            fmt::format("has {} bytes of data at byte {}, {} are due", length, place, rowBytes));
    if (length > 0 && length > file_->size() - place - 8)
        return damaged(place, "data that reaches beyond the file's end");
    rowBytes_.resize(std::min<std::uint64_t>(kPieceBytes, rowBytes));
    for (std::uint64_t done = 0; done < rowBytes;) {
        const auto piece =
            std::span(rowBytes_).first(std::min<std::uint64_t>(rowBytes_.size(), rowBytes - done));
        if (!file_->readAt(place + 8 + done, piece))
            return fail(file_->problem());
        sink(piece);
        done += piece.size();
    }
    return true;
}

bool OgawaFile::loadPackedRow(std::uint64_t entry, std::uint64_t rowBytes,
                              std::vector<std::byte>& packed) {
    // Deflate packs 1032 bytes into one at best.
    constexpr std::uint64_t kBestRatio = 1032;
    std::uint64_t length = 0;
    const std::uint64_t place = placeOf(entry);
    if (place != 0 && !readWord(place, length))
        return false;
    if (length == 0 || length > file_->size() - place - 8 || length > compressBound(rowBytes) ||
        rowBytes / kBestRatio > length)
        return damaged(place, "a packed block of an impossible length");
    packed.resize(length);
    return file_->readAt(place + 8, packed) || fail(file_->problem());
}

/// In batches, each of which is unpacked by all threads and then handed on in order.
bool OgawaFile::readPackedRows(const F3dDataset& dataset, std::uint64_t first, std::uint64_t end,
                               std::uint64_t rowBytes, const F3dSink& sink) {
    constexpr std::uint64_t kBatchBytes = std::uint64_t(16) << 20, kMostRows = 1024;
    const std::uint64_t batch =
        std::clamp<std::uint64_t>(kBatchBytes / std::max<std::uint64_t>(rowBytes, 1), 1, kMostRows);
    UnpackRows unpack;
    for (std::uint64_t row = first; row < end;) {
        unpack.rows.resize(std::min(batch, end - row));
        for (std::size_t i = 0; i < unpack.rows.size(); ++i)
            if (!loadPackedRow(dataset.places[row + i], rowBytes, unpack.rows[i].packed))
                return false;
        unpack.run(rowBytes);
        for (const UnpackRows::Row& r : unpack.rows) {
            if (!r.sound)
                return damaged(placeOf(dataset.places[row]),
                               "a packed block that can't be unpacked");
            sink(r.bytes);
            ++row;
        }
    }
    return true;
}

bool OgawaFile::read(const F3dDataset& dataset, std::uint64_t firstRow, std::uint64_t count,
                     std::uint64_t rowBytes, const F3dSink& sink) {
    std::uint64_t end = 0;
    if (!checkedAdd(firstRow, count, end) || end > dataset.places.size())
        return fail(fmt::format("has {} rows of '{}', {} are due", dataset.places.size(),
                                printable(dataset.name), end));
    if (dataset.packed)
        return readPackedRows(dataset, firstRow, end, rowBytes, sink);
    for (std::uint64_t row = firstRow; row < end; ++row)
        if (!readRow(dataset.places[row], rowBytes, sink))
            return false;
    return true;
}

}  // namespace nimbra
