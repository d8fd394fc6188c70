// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Heads, descriptors, metadata and transforms; the trees are in vdb_topology.cpp.

#include "cache/vdb_walk.h"

#include <fmt/format.h>

#include <cmath>
#include <cstring>

#include "cache/tree_access.h"

namespace nimbra {

bool readText(BoundedReader& in, std::string& out) {
    // Longest name or type that anybody writes; the rest are damaged lengths.
    constexpr std::uint32_t kLongestText = 65536;
    const auto size = in.get<std::uint32_t>();
    if (size > kLongestText)
        return in.fail();
    out = in.text(size);
    return in.ok();
}

namespace {

/// A type of metadata that the library knows, with the bytes that it takes whatever the stored size
/// says.
struct KnownType {
    const char* name;
    char element;  // b bool, i int32, l int64, f float, d double
    int count;
};

constexpr KnownType kKnownTypes[] = {
    {"bool", 'b', 1},   {"int32", 'i', 1}, {"int64", 'l', 1},  {"float", 'f', 1},
    {"double", 'd', 1}, {"vec2i", 'i', 2}, {"vec2s", 'f', 2},  {"vec2d", 'd', 2},
    {"vec3i", 'i', 3},  {"vec3s", 'f', 3}, {"vec3d", 'd', 3},  {"vec4i", 'i', 4},
    {"vec4s", 'f', 4},  {"vec4d", 'd', 4}, {"mat4s", 'f', 16}, {"mat4d", 'd', 16},
};

int elementSize(char element) {
    return element == 'b' ? 1 : element == 'i' || element == 'f' ? 4 : 8;
}

const KnownType* knownType(const std::string& name) {
    for (const KnownType& type : kKnownTypes)
        if (name == type.name)
            return &type;
    return nullptr;
}

/// Size and contents must be what the type demands: the library reads the type's own size.
bool soundValue(const VdbMetadata& entry) {
    const KnownType* type = knownType(entry.type);
    if (!type)
        return true;
    const int size = type->count * elementSize(type->element);
    if (entry.value.size() != static_cast<std::size_t>(size))
        return false;
    return type->element != 'b' || static_cast<unsigned char>(entry.value[0]) <= 1;
}

double elementAt(const VdbMetadata& entry, char element, int index) {
    const char* const at = entry.value.data() + index * elementSize(element);
    const auto as = [at](auto value) {
        std::memcpy(&value, at, sizeof value);
        return static_cast<double>(value);
    };
    switch (element) {
        case 'b':
            return *at;
        case 'i':
            return as(std::int32_t());
        case 'l':
            return as(std::int64_t());
        case 'f':
            return as(float());
        default:
            return as(double());
    }
}

bool wholeElement(const VdbMetadata& entry, char element, int index, std::int64_t& out) {
    if (element == 'l') {
        std::memcpy(&out, entry.value.data() + index * sizeof out, sizeof out);
        return true;
    }
    const double v = elementAt(entry, element, index);
    if (!(std::fabs(v) < 9.0e18))
        return false;
    out = static_cast<std::int64_t>(v);
    return true;
}

bool walkMetadata(BoundedReader& in, std::vector<VdbMetadata>& list,
                  std::vector<std::uint64_t>* unsafe, std::string& problem) {
    // Far more than anybody writes; an entry takes several times its bytes in memory.
    constexpr std::uint32_t kMostEntries = 65536;
    const auto count = in.get<std::uint32_t>();
    // Two lengths and a size are the least of an entry.
    if (!in.require(count, 12) || count > kMostEntries) {
        problem = "its metadata is damaged";
        return in.fail();
    }
    for (std::uint32_t i = 0; i < count; ++i) {
        VdbMetadata entry;
        if (!readText(in, entry.name)) {
            problem = "its metadata is damaged";
            return false;
        }
        const std::uint64_t typePosition = in.position() + sizeof(std::uint32_t);
        if (readText(in, entry.type))
            entry.value = in.text(in.get<std::uint32_t>());
        if (!in.ok() || entry.name.empty() || !soundValue(entry)) {
            in.fail();
            problem = fmt::format("its metadata '{}' is damaged", printable(entry.name));
            return false;
        }
        if (unsafe && !entry.type.empty() && entry.type != "string" && !knownType(entry.type))
            unsafe->push_back(typePosition);
        list.push_back(std::move(entry));
    }
    return true;
}

using Matrix = std::array<std::array<double, 3>, 4>;

void readDoubles(BoundedReader& in, double* out, int count) {
    for (int i = 0; i < count; ++i)
        out[i] = in.get<double>();
}

Matrix diagonal(const double scale[3], const double offset[3]) {
    Matrix m{};
    for (int a = 0; a < 3; ++a) {
        m[a][a] = scale[a];
        m[3][a] = offset[a];
    }
    return m;
}

/// Doubles of a linear map, behind the name of its type. Scales come with what the library derives
/// from them: five triples in all.
bool walkLinearMap(BoundedReader& in, const std::string& type, Matrix& toWorld) {
    constexpr int kDerived = 4 * 3;
    double offset[3] = {0, 0, 0}, scale[3] = {1, 1, 1}, derived[kDerived], matrix[16];
    const bool scales = type == "ScaleMap" || type == "UniformScaleMap";
    const bool scalesAndMoves = type == "ScaleTranslateMap" || type == "UniformScaleTranslateMap";
    if (type == "AffineMap" || type == "UnitaryMap") {
        readDoubles(in, matrix, 16);
        for (int row = 0; row < 4; ++row)
            for (int a = 0; a < 3; ++a)
                toWorld[row][a] = matrix[row * 4 + a];
        return in.ok();
    }
    if (type == "TranslationMap" || scalesAndMoves)
        readDoubles(in, offset, 3);
    else if (!scales)
        return in.fail();
    if (scales || scalesAndMoves) {
        readDoubles(in, scale, 3);
        readDoubles(in, derived, kDerived);
    }
    toWorld = diagonal(scale, offset);
    return in.ok();
}

/// A perspective map: the box of the frustum in index space, its taper and depth, and the linear
/// map that takes the frustum of the unit base to the world.
bool walkFrustumMap(BoundedReader& in, Matrix& toWorld) {
    double box[6], taperAndDepth[2];
    readDoubles(in, box, 6);
    readDoubles(in, taperAndDepth, 2);
    std::string type;
    return readText(in, type) && walkLinearMap(in, type, toWorld);
}

bool walkTransform(BoundedReader& in, VdbTransform& transform, std::string& problem) {
    if (readText(in, transform.type)) {
        transform.linear = transform.type != "NonlinearFrustumMap";
        if (transform.linear ? walkLinearMap(in, transform.type, transform.toWorld)
                             : walkFrustumMap(in, transform.toWorld))
            return true;
    }
    problem = fmt::format("its transform '{}' is damaged or unknown", printable(transform.type));
    return in.fail();
}

}  // namespace

bool VdbMetadata::asInt(std::int64_t& out) const {
    const KnownType* known = knownType(type);
    return known && known->count == 1 && soundValue(*this) &&
           wholeElement(*this, known->element, 0, out);
}

bool VdbMetadata::asInt3(std::array<std::int64_t, 3>& out) const {
    const KnownType* known = knownType(type);
    if (!known || known->count != 3 || !soundValue(*this))
        return false;
    return wholeElement(*this, known->element, 0, out[0]) &&
           wholeElement(*this, known->element, 1, out[1]) &&
           wholeElement(*this, known->element, 2, out[2]);
}

std::string VdbMetadata::text() const {
    if (type == "string")
        return printable(value);
    const KnownType* known = knownType(type);
    if (!known || !soundValue(*this))
        return fmt::format("{} bytes of type '{}'", value.size(), printable(type));
    if (known->element == 'b')
        return value[0] ? "true" : "false";
    std::string out;
    for (int i = 0; i < known->count; ++i) {
        std::int64_t whole = 0;
        const bool isWhole = known->element == 'i' || known->element == 'l';
        if (isWhole && wholeElement(*this, known->element, i, whole))
            out += fmt::format("{}{}", i ? ", " : "", whole);
        else
            out += fmt::format("{}{:.9g}", i ? ", " : "", elementAt(*this, known->element, i));
    }
    return known->count > 1 ? "[" + out + "]" : out;
}

const VdbMetadata* findMetadata(const std::vector<VdbMetadata>& list, const char* name) {
    for (const VdbMetadata& entry : list)
        if (entry.name == name)
            return &entry;
    return nullptr;
}

namespace {
constexpr char kCopyMark = '\x1E';
constexpr const char* kHalfSuffix = "_HalfFloat";
}  // namespace

std::string VdbDescriptor::name() const {
    return uniqueName.substr(0, uniqueName.find(kCopyMark));
}

std::string VdbDescriptor::numberedName() const {
    const std::size_t mark = uniqueName.find(kCopyMark);
    if (mark == std::string::npos)
        return uniqueName;
    return uniqueName.substr(0, mark) + "[" + uniqueName.substr(mark + 1) + "]";
}

std::array<double, 3> VdbTransform::voxelSize() const {
    std::array<double, 3> size;
    for (int a = 0; a < 3; ++a)
        size[a] = std::hypot(toWorld[a][0], toWorld[a][1], toWorld[a][2]);
    return size;
}

int treeKindOfType(const std::string& treeType) {
    constexpr std::pair<const char*, int> kKinds[] = {
        {"Tree_float_5_4_3", kFloatTree}, {"Tree_double_5_4_3", kDoubleTree},
        {"Tree_int32_5_4_3", kInt32Tree}, {"Tree_int64_5_4_3", kInt64Tree},
        {"Tree_vec3s_5_4_3", kVec3fTree}, {"Tree_vec3d_5_4_3", kVec3dTree},
    };
    for (const auto& [type, kind] : kKinds)
        if (treeType == type)
            return kind;
    return kDense;
}

std::string valueTypeOf(const std::string& treeType) {
    constexpr const char* kPrefix = "Tree_";
    const std::size_t start = std::strlen(kPrefix);
    if (treeType.compare(0, start, kPrefix) != 0)
        return treeType;
    // Behind the value's type stand the sizes of the levels, "_5_4_3" in most trees.
    std::size_t stop = treeType.size();
    for (;;) {
        const std::size_t bar = treeType.rfind('_', stop - 1);
        const bool isSize = bar != std::string::npos && bar > start && bar + 1 < stop &&
                            treeType.find_first_not_of("0123456789", bar + 1) >= stop;
        if (!isSize)
            break;
        stop = bar;
    }
    return treeType.substr(start, stop - start);
}

bool walkHead(BoundedReader& in, VdbHead& head, std::string& problem) {
    constexpr std::int64_t kMagic = 0x56444220;
    constexpr std::uint64_t kUuidBytes = 36;
    if (in.get<std::int64_t>() != kMagic) {
        problem = "isn't an OpenVDB file";
        return in.fail();
    }
    head.formatVersion = in.get<std::uint32_t>();
    if (in.ok() &&
        (head.formatVersion < kOldestVdbFormat || head.formatVersion > kNewestVdbFormat)) {
        problem = fmt::format("has OpenVDB format version {}; {} to {} can be read",
                              head.formatVersion, kOldestVdbFormat, kNewestVdbFormat);
        return in.fail();
    }
    head.libraryMajor = in.get<std::uint32_t>();
    head.libraryMinor = in.get<std::uint32_t>();
    const auto offsets = in.get<std::uint8_t>();
    if (!in.skip(kUuidBytes) || offsets > 1) {
        problem = "its head is damaged";
        return in.fail();
    }
    head.hasOffsets = offsets == 1;
    if (!walkMetadata(in, head.metadata, nullptr, problem))
        return false;
    head.gridCount = in.get<std::uint32_t>();
    if (!in.ok())
        problem = "its head is damaged";
    return in.ok();
}

bool walkDescriptor(BoundedReader& in, VdbDescriptor& descriptor, std::string& problem) {
    readText(in, descriptor.uniqueName);
    readText(in, descriptor.treeType);
    readText(in, descriptor.instanceParent);
    descriptor.gridPosition = in.get<std::uint64_t>();
    descriptor.bufferPosition = in.get<std::uint64_t>();
    descriptor.endPosition = in.get<std::uint64_t>();
    if (!in.ok()) {
        problem = "its list of grids is damaged";
        return false;
    }
    const std::size_t suffix = std::strlen(kHalfSuffix);
    std::string& type = descriptor.treeType;
    if (type.size() > suffix && type.compare(type.size() - suffix, suffix, kHalfSuffix) == 0) {
        descriptor.halfSuffix = true;
        type.resize(type.size() - suffix);
    }
    return true;
}

bool walkGridHead(BoundedReader& in, VdbGridHead& grid, std::string& problem) {
    constexpr std::uint32_t kAllCompressions = 7;
    grid.compression = in.get<std::uint32_t>();
    if (!in.ok() || grid.compression > kAllCompressions) {
        problem = "is damaged at its start";
        return in.fail();
    }
    if (!walkMetadata(in, grid.metadata, &grid.unsafeMetadata, problem))
        return false;
    // The mark in the metadata decides, not the one behind the type's name.
    const VdbMetadata* half = findMetadata(grid.metadata, "is_saved_as_half_float");
    if (half && half->type != "bool") {
        problem = "its mark of half floats is damaged";
        return in.fail();
    }
    grid.halfFloats = half && half->value[0] != 0;
    return walkTransform(in, grid.transform, problem);
}

}  // namespace nimbra
