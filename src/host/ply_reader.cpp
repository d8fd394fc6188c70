// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Stanford PLY. A text header:
//   ply
//   format ascii | binary_little_endian | binary_big_endian 1.0
//   element NAME COUNT                    rows follow in the order of the elements
//   property TYPE NAME                    one number a row
//   property list COUNT-TYPE TYPE NAME    a count, then so many numbers
//   end_header
// COUNT is held against the bytes that are left before any row is read.
#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "host/mesh_file.h"

namespace nimbra::host {

using TessUtils::TriangleMesh;
using TessUtils::Vector;

namespace {

enum class Number { Int8, UInt8, Int16, UInt16, Int32, UInt32, Float32, Float64 };
enum class Encoding { Ascii, Little, Big };

std::size_t sizeOf(Number type) {
    constexpr std::size_t kSizes[] = {1, 1, 2, 2, 4, 4, 4, 8};
    return kSizes[static_cast<int>(type)];
}

bool numberType(std::string_view word, Number& out) {
    static constexpr std::pair<std::string_view, Number> kNames[] = {
        {"char", Number::Int8},      {"int8", Number::Int8},       {"uchar", Number::UInt8},
        {"uint8", Number::UInt8},    {"short", Number::Int16},     {"int16", Number::Int16},
        {"ushort", Number::UInt16},  {"uint16", Number::UInt16},   {"int", Number::Int32},
        {"int32", Number::Int32},    {"uint", Number::UInt32},     {"uint32", Number::UInt32},
        {"float", Number::Float32},  {"float32", Number::Float32}, {"double", Number::Float64},
        {"float64", Number::Float64}};
    for (const auto& [name, type] : kNames)
        if (name == word) {
            out = type;
            return true;
        }
    return false;
}

struct Property {
    std::string name;
    bool isList = false;
    Number countType = Number::UInt8;
    Number type = Number::Float32;
};

struct Element {
    std::string name;
    std::uint64_t count = 0;
    std::vector<Property> properties;

    /// Bytes that a row takes at least.
    std::size_t leastBytes(Encoding encoding) const {
        std::size_t bytes = 0;
        for (const Property& p : properties)
            bytes += encoding == Encoding::Ascii ? 2 : sizeOf(p.isList ? p.countType : p.type);
        return bytes;
    }
};

/// Reads numbers one after the other; never past the end.
class NumberStream {
public:
    NumberStream(std::string_view bytes, Encoding encoding) : bytes_(bytes), encoding_(encoding) {}

    bool next(Number type, double& out) {
        return encoding_ == Encoding::Ascii ? nextWord(out) : nextBinary(type, out);
    }
    /// Passes over `count` numbers.
    bool skip(Number type, std::uint64_t count) {
        if (encoding_ == Encoding::Ascii) {
            double ignored;
            for (std::uint64_t i = 0; i < count; ++i)
                if (!nextWord(ignored))
                    return false;
            return true;
        }
        if (count > remaining() / sizeOf(type))
            return false;
        place_ += static_cast<std::size_t>(count) * sizeOf(type);
        return true;
    }
    std::size_t remaining() const { return bytes_.size() - place_; }

private:
    bool nextWord(double& out) {
        constexpr std::string_view kSpace = " \t\r\n";
        const std::size_t from = bytes_.find_first_not_of(kSpace, place_);
        if (from == std::string_view::npos)
            return false;
        const std::size_t end = std::min(bytes_.find_first_of(kSpace, from), bytes_.size());
        const char* first = bytes_.data() + from;
        const auto [stop, status] = std::from_chars(first, bytes_.data() + end, out);
        place_ = end;
        return status == std::errc() && stop == bytes_.data() + end;
    }

    template <class T>
    T load() {
        char raw[sizeof(T)];
        std::memcpy(raw, bytes_.data() + place_, sizeof(T));
        const bool swap =
            (encoding_ == Encoding::Big) == (std::endian::native == std::endian::little);
        if (swap)
            std::reverse(raw, raw + sizeof(T));
        T value;
        std::memcpy(&value, raw, sizeof(T));
        place_ += sizeof(T);
        return value;
    }

    bool nextBinary(Number type, double& out) {
        if (remaining() < sizeOf(type))
            return false;
        switch (type) {
            case Number::Int8:
                out = load<std::int8_t>();
                break;
            case Number::UInt8:
                out = load<std::uint8_t>();
                break;
            case Number::Int16:
                out = load<std::int16_t>();
                break;
            case Number::UInt16:
                out = load<std::uint16_t>();
                break;
            case Number::Int32:
                out = load<std::int32_t>();
                break;
            case Number::UInt32:
                out = load<std::uint32_t>();
                break;
            case Number::Float32:
                out = load<float>();
                break;
            case Number::Float64:
                out = load<double>();
                break;
        }
        return true;
    }

    std::string_view bytes_;
    Encoding encoding_;
    std::size_t place_ = 0;
};

class PlyReader {
public:
    PlyReader(std::string_view bytes, const std::string& name) : bytes_(bytes), name_(name) {}

    bool read(TriangleMesh& mesh, std::string& error) {
        if (!readHeader() || !readRows() || !checkMesh()) {
            error = error_;
            return false;
        }
        mesh = std::move(out_);
        return true;
    }

private:
    bool fail(const std::string& what) {
        error_ = name_ + ": " + what;
        return false;
    }

    std::string_view headerLine() {
        const std::size_t end = std::min(bytes_.find('\n', place_), bytes_.size());
        std::string_view line = bytes_.substr(place_, end - place_);
        place_ = std::min(end + 1, bytes_.size());
        while (!line.empty() && (line.back() == '\r' || line.back() == ' '))
            line.remove_suffix(1);
        return line;
    }

    static std::vector<std::string_view> words(std::string_view line) {
        std::vector<std::string_view> result;
        for (;;) {
            line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
            if (line.empty())
                return result;
            const std::size_t end = std::min(line.find_first_of(" \t"), line.size());
            result.push_back(line.substr(0, end));
            line.remove_prefix(end);
        }
    }

    bool readHeader() {
        if (headerLine() != "ply")
            return fail("not a PLY file");
        bool hasFormat = false;
        while (place_ < bytes_.size()) {
            const std::string_view line = headerLine();
            const std::vector<std::string_view> w = words(line);
            bool good = true;
            if (line == "end_header")
                return hasFormat || fail("the header has no format");
            if (w.empty() || w[0] == "comment" || w[0] == "obj_info")
                continue;
            if (w[0] == "format")
                good = hasFormat = readFormat(w);
            else if (w[0] == "element")
                good = readElement(w);
            else
                good = readProperty(w);
            if (!good)
                return fail("the header line '" + std::string(line.substr(0, 80)) + "' is damaged");
        }
        return fail("the header has no end");
    }

    bool readFormat(const std::vector<std::string_view>& w) {
        if (w.size() != 3 || w[2] != "1.0")
            return false;
        encoding_ = w[1] == "ascii"                  ? Encoding::Ascii
                    : w[1] == "binary_little_endian" ? Encoding::Little
                                                     : Encoding::Big;
        return encoding_ != Encoding::Big || w[1] == "binary_big_endian";
    }

    bool readElement(const std::vector<std::string_view>& w) {
        if (w.size() != 3)
            return false;
        Element element;
        element.name = w[1];
        const char* end = w[2].data() + w[2].size();
        const auto [stop, status] = std::from_chars(w[2].data(), end, element.count);
        elements_.push_back(std::move(element));
        return status == std::errc() && stop == end;
    }

    bool readProperty(const std::vector<std::string_view>& w) {
        if (w[0] != "property" || elements_.empty())
            return false;
        Property p;
        p.isList = w.size() == 5 && w[1] == "list";
        if (!p.isList && w.size() != 3)
            return false;
        if (p.isList && !numberType(w[2], p.countType))
            return false;
        p.name = w.back();
        elements_.back().properties.push_back(p);
        return numberType(w[w.size() - 2], elements_.back().properties.back().type);
    }

    bool readRows() {
        NumberStream stream(bytes_.substr(place_), encoding_);
        for (const Element& element : elements_) {
            const std::size_t least = element.leastBytes(encoding_);
            // The last row of a text may lack its final separator.
            if (least > 0 && element.count > (stream.remaining() + 1) / least)
                return fail("element '" + element.name + "' claims " +
                            std::to_string(element.count) + " rows, the file is too short");
            if (least == 0)
                continue;
            const bool good = element.name == "vertex" ? readVertices(element, stream)
                              : element.name == "face" ? readFaces(element, stream)
                                                       : skipRows(element, stream);
            if (!good)
                return false;
        }
        return true;
    }

    bool brokenRow(const Element& element, std::uint64_t row) {
        return fail("row " + std::to_string(row) + " of element '" + element.name +
                    "' is damaged or cut off");
    }

    bool skipProperty(const Property& p, NumberStream& stream) {
        double count = 1;
        if (p.isList &&
            (!stream.next(p.countType, count) || !(count >= 0 && count <= 4294967295.0)))
            return false;
        return stream.skip(p.type, static_cast<std::uint64_t>(count));
    }

    bool skipRows(const Element& element, NumberStream& stream) {
        for (std::uint64_t row = 0; row < element.count; ++row)
            for (const Property& p : element.properties)
                if (!skipProperty(p, stream))
                    return brokenRow(element, row);
        return true;
    }

    /// Where a vertex property goes: 0-2 position, 3-5 normal, 6-7 texture; -1: nowhere.
    static int vertexSlot(const Property& p) {
        static constexpr std::pair<std::string_view, int> kSlots[] = {
            {"x", 0}, {"y", 1}, {"z", 2}, {"nx", 3}, {"ny", 4},        {"nz", 5},
            {"u", 6}, {"v", 7}, {"s", 6}, {"t", 7},  {"texture_u", 6}, {"texture_v", 7}};
        if (!p.isList)
            for (const auto& [name, slot] : kSlots)
                if (name == p.name)
                    return slot;
        return -1;
    }

    bool readVertices(const Element& element, NumberStream& stream) {
        if (element.count > 0xffffffffU)
            return fail("more vertices than 32-bit indices can count");
        std::vector<int> slots;
        bool has[8] = {};
        for (const Property& p : element.properties) {
            slots.push_back(vertexSlot(p));
            if (slots.back() >= 0)
                has[slots.back()] = true;
        }
        if (!has[0] || !has[1] || !has[2])
            return fail("the vertices have no x, y and z");
        const bool normals = has[3] && has[4] && has[5], uvw = has[6] && has[7];
        for (std::uint64_t row = 0; row < element.count; ++row) {
            float values[8] = {};
            for (std::size_t i = 0; i < slots.size(); ++i) {
                const Property& p = element.properties[i];
                double value = 0;
                if (slots[i] < 0 ? !skipProperty(p, stream) : !stream.next(p.type, value))
                    return brokenRow(element, row);
                if (slots[i] < 0)
                    continue;
                if (!(std::fabs(value) <= std::numeric_limits<float>::max()))
                    return fail("vertex " + std::to_string(row) + " is not finite");
                values[slots[i]] = static_cast<float>(value);
            }
            out_.positions.push_back({values[0], values[1], values[2]});
            if (normals)
                out_.normals.push_back({values[3], values[4], values[5]});
            if (uvw)
                out_.uvw.push_back({values[6], values[7], 0});
        }
        return true;
    }

    bool readFaces(const Element& element, NumberStream& stream) {
        for (std::uint64_t row = 0; row < element.count; ++row)
            for (const Property& p : element.properties) {
                const bool corners =
                    p.isList && (p.name == "vertex_indices" || p.name == "vertex_index");
                if (corners ? !readFace(p, stream) : !skipProperty(p, stream))
                    return brokenRow(element, row);
            }
        return true;
    }

    bool readFace(const Property& p, NumberStream& stream) {
        double count = 0;
        if (!stream.next(p.countType, count) || !(count >= 0 && count <= 4294967295.0))
            return false;
        std::uint32_t fan[2] = {0, 0};
        const auto corners = static_cast<std::uint64_t>(count);
        for (std::uint64_t i = 0; i < corners; ++i) {
            double value = 0;
            if (!stream.next(p.type, value) || !(value >= 0 && value <= 4294967295.0))
                return false;
            const auto v = static_cast<std::uint32_t>(value);
            if (i >= 2)
                out_.indices.insert(out_.indices.end(), {fan[0], fan[1], v});
            fan[i == 0 ? 0 : 1] = v;
        }
        return true;
    }

    bool checkMesh() {
        if (out_.indices.empty())
            return fail("no faces");
        for (const std::uint32_t index : out_.indices)
            if (index >= out_.positions.size())
                return fail("a face refers to vertex " + std::to_string(index) + ", there are " +
                            std::to_string(out_.positions.size()));
        return true;
    }

    std::string_view bytes_;
    const std::string& name_;
    std::size_t place_ = 0;
    Encoding encoding_ = Encoding::Ascii;
    std::vector<Element> elements_;
    TriangleMesh out_;
    std::string error_;
};

}  // namespace

bool readPly(std::string_view bytes, const std::string& name, TriangleMesh& mesh,
             std::string& error) {
    return PlyReader(bytes, name).read(mesh, error);
}

}  // namespace nimbra::host
