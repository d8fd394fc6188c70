// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The library reads from memory, not from the file: what was checked is what is read, whatever
// becomes of the file meanwhile, and nothing is loaded later.

#include "cache/vdb_tree.h"

#include <fmt/format.h>
#include <openvdb/io/Archive.h>
#include <openvdb/io/GridDescriptor.h>
#include <openvdb/io/io.h>
#include <openvdb/openvdb.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <istream>
#include <limits>
#include <span>
#include <streambuf>
#include <type_traits>

#include "cache/tree_access.h"

namespace nimbra {

namespace {

/// Bytes in memory as a stream that can be positioned forwards. What lies behind is given back: a
/// tree grows as the packed bytes go.
class SpanBuffer : public std::streambuf {
public:
    explicit SpanBuffer(std::span<std::byte> bytes)
        : begin_(reinterpret_cast<char*>(bytes.data())), end_(begin_ + bytes.size()) {
        open(begin_);
    }

protected:
    int_type underflow() override {
        if (gptr() == end_)
            return traits_type::eof();
        if (gptr() == egptr())
            moveOn(gptr());
        return traits_type::to_int_type(*gptr());
    }
    pos_type seekoff(off_type offset, std::ios_base::seekdir from,
                     std::ios_base::openmode) override {
        const off_type base = from == std::ios_base::beg   ? 0
                              : from == std::ios_base::cur ? gptr() - begin_
                                                           : end_ - begin_;
        off_type position = 0;
        if (__builtin_add_overflow(base, offset, &position) || position < eback() - begin_ ||
            position > end_ - begin_)
            return pos_type(off_type(-1));
        if (position > egptr() - begin_)
            moveOn(begin_ + position);
        else
            setg(eback(), begin_ + position, egptr());
        return pos_type(position);
    }
    pos_type seekpos(pos_type position, std::ios_base::openmode mode) override {
        return seekoff(off_type(position), std::ios_base::beg, mode);
    }

private:
    static constexpr std::ptrdiff_t kWindow = 1 << 20;

    void open(char* place) { setg(place, place, place + std::min(kWindow, end_ - place)); }
    void moveOn(char* place) {
        giveBack(std::as_writable_bytes(std::span(eback(), place)));
        open(place);
    }

    char* const begin_;
    char* const end_;
};

/// The library's reader of single grids, which only its archives may use.
class MemoryArchive : public openvdb::io::Archive {
public:
    openvdb::GridBase::Ptr read(const VdbHead& file, const VdbDescriptor& grid,
                                VdbGridBytes& bytes) {
        std::string head = headOf(file);
        SpanBuffer headBuffer(std::as_writable_bytes(std::span(head)));
        std::istream in(&headBuffer);
        readHeader(in);
        setFormatVersion(in);
        setLibraryVersion(in);
        setDataCompression(in);

        SpanBuffer buffer({bytes.bytes.get(), bytes.size});
        in.rdbuf(&buffer);
        const openvdb::GridBase::Ptr out = openvdb::GridBase::createGrid(grid.treeType);
        out->setSaveFloatAsHalf(bytes.head.halfFloats);
        readGrid(out, openvdb::io::GridDescriptor(grid.uniqueName, grid.treeType), in);
        return in ? out : nullptr;
    }

private:
    /// A head like that of the file, without metadata.
    static std::string headOf(const VdbHead& file) {
        const std::int64_t magic = 0x56444220;
        const std::uint32_t versions[] = {file.formatVersion, file.libraryMajor, file.libraryMinor};
        std::string head(reinterpret_cast<const char*>(&magic), sizeof magic);
        head.append(reinterpret_cast<const char*>(versions), sizeof versions);
        return head + '\1' + "00000000-0000-0000-0000-000000000000";
    }
};

/// Calls f with the grid class of a kind; what f answers for no class where there is none.
template <class F>
auto withGridClass(int kind, F&& f) {
    using std::type_identity;
    switch (kind) {
        case kFloatTree:
            return f(type_identity<openvdb::FloatGrid>());
        case kDoubleTree:
            return f(type_identity<openvdb::DoubleGrid>());
        case kInt32Tree:
            return f(type_identity<openvdb::Int32Grid>());
        case kInt64Tree:
            return f(type_identity<openvdb::Int64Grid>());
        case kVec3fTree:
            return f(type_identity<openvdb::Vec3SGrid>());
        case kVec3dTree:
            return f(type_identity<openvdb::Vec3DGrid>());
        default:
            return decltype(f(type_identity<openvdb::FloatGrid>()))();
    }
}

/// Sums values up as they come.
class Summary {
public:
    explicit Summary(int components) : components_(components) {}

    void add(const double* value, std::int64_t cells) {
        bool nan = false, infinite = false;
        for (int c = 0; c < components_; ++c) {
            nan |= std::isnan(value[c]);
            infinite |= std::isinf(value[c]);
        }
        out_.nanCount += nan ? cells : 0;
        out_.infiniteCount += infinite ? cells : 0;
        for (int c = 0; c < components_; ++c) {
            if (!std::isfinite(value[c]))
                continue;
            const bool first = count_[c] == 0;
            out_.min[c] = first ? value[c] : std::min(out_.min[c], value[c]);
            out_.max[c] = first ? value[c] : std::max(out_.max[c], value[c]);
            sum_[c] += value[c] * static_cast<double>(cells);
            count_[c] += static_cast<double>(cells);
        }
    }
    VdbStatistics finish() {
        for (int c = 0; c < components_; ++c)
            out_.mean[c] = count_[c] > 0 ? sum_[c] / count_[c] : 0;
        return out_;
    }

private:
    int components_;
    VdbStatistics out_;
    double sum_[3] = {}, count_[3] = {};
};

template <class Value>
int toDoubles(const Value& value, double out[3]) {
    if constexpr (std::is_arithmetic_v<Value>) {
        out[0] = static_cast<double>(value);
        return 1;
    } else {
        for (int c = 0; c < 3; ++c)
            out[c] = static_cast<double>(value[c]);
        return 3;
    }
}

template <class Grid>
VdbStatistics statisticsOf(const void* grid) {
    const auto& tree = static_cast<const Grid*>(grid)->tree();
    std::array<double, 3> background{};
    Summary summary(toDoubles(tree.background(), background.data()));
    double value[3];
    for (auto leaf = tree.cbeginLeaf(); leaf; ++leaf) {
        const auto* const values = leaf->buffer().data();
        for (auto on = leaf->getValueMask().beginOn(); on; ++on) {
            toDoubles(values[on.pos()], value);
            summary.add(value, 1);
        }
    }
    auto tile = tree.cbeginValueOn();
    tile.setMaxDepth(decltype(tile)::LEAF_DEPTH - 1);
    for (; tile; ++tile) {
        toDoubles(*tile, value);
        summary.add(value, static_cast<std::int64_t>(tile.getVoxelCount()));
    }
    VdbStatistics out = summary.finish();
    out.background = background;
    return out;
}

std::shared_ptr<void> typed(const openvdb::GridBase::Ptr& grid, int kind) {
    return withGridClass(kind, [&](auto type) -> std::shared_ptr<void> {
        return openvdb::gridPtrCast<typename decltype(type)::type>(grid);
    });
}

}  // namespace

bool prepareVdbLibrary() {
    static const bool ready = [] {
        try {
            openvdb::initialize();
            return true;
        } catch (...) {
            return false;
        }
    }();
    return ready;
}

std::shared_ptr<void> buildVdbTree(const VdbHead& file, const VdbDescriptor& grid,
                                   VdbGridBytes& bytes, std::string& problem) {
    if (!bytes.hasBuffers || !prepareVdbLibrary()) {
        problem = "can't be read";
        return nullptr;
    }
    const std::string tooLarge =
        fmt::format("needs {} bytes of memory", bytes.topology.bytesInMemory);
    if (bytes.topology.bytesInMemory > memoryOfProcess()) {
        problem = tooLarge;
        return nullptr;
    }
    constexpr std::byte kNoTypeStartsSo{'?'};
    for (const std::uint64_t position : bytes.head.unsafeMetadata)
        bytes.bytes[position] = kNoTypeStartsSo;
    try {
        if (const auto tree = MemoryArchive().read(file, grid, bytes))
            if (std::shared_ptr<void> out = typed(tree, bytes.kind))
                return out;
        problem = "its values are damaged";
    } catch (const std::bad_alloc&) {
        problem = tooLarge;
    } catch (const std::exception& e) {
        problem = fmt::format("its values are damaged ({})", printable(e.what()));
    }
    return nullptr;
}

VdbStatistics vdbStatistics(const std::shared_ptr<void>& grid, int kind) {
    return withGridClass(
        kind, [&](auto type) { return statisticsOf<typename decltype(type)::type>(grid.get()); });
}

}  // namespace nimbra
