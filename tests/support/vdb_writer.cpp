// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "support/vdb_writer.h"

#include <openvdb/io/Stream.h>
#include <openvdb/openvdb.h>
#include <openvdb/points/PointAttribute.h>
#include <openvdb/points/PointConversion.h>
#include <tbb/global_control.h>

#include <fstream>
#include <map>

namespace nimbra::test {

namespace {

template <class Value>
Value valueOf(const std::array<double, 3>& v) {
    if constexpr (std::is_arithmetic_v<Value>)
        return static_cast<Value>(v[0]);
    else
        return Value(static_cast<typename Value::ValueType>(v[0]),
                     static_cast<typename Value::ValueType>(v[1]),
                     static_cast<typename Value::ValueType>(v[2]));
}

template <class Grid>
openvdb::GridBase::Ptr makeGrid(const GridSpec& spec) {
    using Value = typename Grid::ValueType;
    const double b = spec.background;
    auto grid = Grid::create(valueOf<Value>({b, b, b}));
    auto accessor = grid->getAccessor();
    for (const VoxelSpec& v : spec.voxels)
        accessor.setValue(openvdb::Coord(v.at[0], v.at[1], v.at[2]), valueOf<Value>(v.value));
    for (const TileSpec& t : spec.tiles)
        grid->tree().addTile(static_cast<openvdb::Index>(t.level),
                             openvdb::Coord(t.low[0], t.low[1], t.low[2]),
                             valueOf<Value>({t.value, t.value, t.value}), true);
    return grid;
}

template <class Value, class Codec, class Make>
void addAttribute(openvdb::points::PointDataGrid& grid, const char* name, Make&& make) {
    namespace pts = openvdb::points;
    pts::TypedAttributeArray<Value, Codec>::registerType();
    pts::appendAttribute<Value, Codec>(grid.tree(), name);
    for (auto leaf = grid.tree().beginLeaf(); leaf; ++leaf) {
        const pts::AttributeHandle<openvdb::Vec3f> offsets(leaf->constAttributeArray("P"));
        pts::AttributeWriteHandle<Value> values(leaf->attributeArray(name));
        for (auto point = leaf->beginIndexOn(); point; ++point)
            values.set(*point, make(point.getCoord().asVec3d() + offsets.get(*point)));
    }
}

template <class Codec, class VelocityCodec>
openvdb::GridBase::Ptr makePoints(const GridSpec& spec) {
    namespace pts = openvdb::points;
    std::vector<openvdb::Vec3R> positions;
    for (const VoxelSpec& v : spec.voxels)
        positions.emplace_back(v.at[0], v.at[1], v.at[2]);
    for (const auto& p : spec.points.at)
        positions.emplace_back(p[0], p[1], p[2]);
    const auto transform = openvdb::math::Transform::createLinearTransform(1.0);
    const auto grid = pts::createPointDataGrid<Codec, pts::PointDataGrid>(positions, *transform);
    if (spec.points.at.empty())
        return grid;
    addAttribute<openvdb::Vec3f, VelocityCodec>(
        *grid, "Velocity", [](const openvdb::Vec3d& p) { return openvdb::Vec3f(p * 2.0); });
    addAttribute<float, pts::NullCodec>(
        *grid, "Size", [](const openvdb::Vec3d& p) { return static_cast<float>(p.x() + 1); });
    addAttribute<int, pts::TruncateCodec>(*grid, "Tag", [](const openvdb::Vec3d&) { return 7; });
    addAttribute<double, pts::NullCodec>(*grid, "Age", [](const openvdb::Vec3d&) { return 2.5; });
    for (auto leaf = grid->tree().beginLeaf(); leaf; ++leaf)
        leaf->attributeArray("Age").compact();
    return grid;
}

openvdb::GridBase::Ptr makePoints(const GridSpec& spec) {
    using namespace openvdb::points;
    if (spec.points.codec == "trnc")
        return makePoints<TruncateCodec, TruncateCodec>(spec);
    if (spec.points.codec == "fxpt16")
        return makePoints<FixedPointCodec<false>, TruncateCodec>(spec);
    return makePoints<NullCodec, NullCodec>(spec);
}

openvdb::GridBase::Ptr makeByType(const GridSpec& spec) {
    using Make = openvdb::GridBase::Ptr (*)(const GridSpec&);
    static const std::map<std::string, Make> kTypes = {{"float", makeGrid<openvdb::FloatGrid>},
                                                       {"double", makeGrid<openvdb::DoubleGrid>},
                                                       {"int32", makeGrid<openvdb::Int32Grid>},
                                                       {"int64", makeGrid<openvdb::Int64Grid>},
                                                       {"vec3s", makeGrid<openvdb::Vec3SGrid>},
                                                       {"vec3d", makeGrid<openvdb::Vec3DGrid>},
                                                       {"vec3i", makeGrid<openvdb::Vec3IGrid>},
                                                       {"bool", makeGrid<openvdb::BoolGrid>},
                                                       {"points", makePoints}};
    return kTypes.at(spec.type)(spec);
}

openvdb::math::Transform::Ptr makeTransform(const GridSpec& spec) {
    using openvdb::math::Transform;
    if (spec.map == MapSpec::Frustum)
        return Transform::createFrustumTransform(openvdb::BBoxd({0, 0, 0}, {100, 100, 100}), 0.5,
                                                 200);
    auto transform = Transform::createLinearTransform();
    transform->postScale(openvdb::Vec3d(spec.scale[0], spec.scale[1], spec.scale[2]));
    if (spec.map == MapSpec::Rotated)
        transform->postRotate(0.5, openvdb::math::Z_AXIS);
    transform->postTranslate(openvdb::Vec3d(spec.origin[0], spec.origin[1], spec.origin[2]));
    return transform;
}

}  // namespace

void writeVdb(const std::filesystem::path& path, const VdbSpec& spec) {
    // The thread sanitizer doesn't see how TBB's tasks wait for each other, nor any of this file.
    const tbb::global_control oneThread(tbb::global_control::max_allowed_parallelism, 1);
    openvdb::initialize();
    openvdb::GridPtrVec grids;
    for (const GridSpec& g : spec.grids) {
        auto grid = makeByType(g);
        if (g.sharesTreeOf >= 0)
            grid->setTree(grids.at(static_cast<std::size_t>(g.sharesTreeOf))->baseTreePtr());
        grid->setName(g.name);
        grid->setTransform(makeTransform(g));
        grid->setSaveFloatAsHalf(g.half);
        if (g.levelSet)
            grid->setGridClass(openvdb::GRID_LEVEL_SET);
        for (const auto& [name, text] : g.texts)
            grid->insertMeta(name, openvdb::StringMetadata(text));
        grids.push_back(grid);
    }
    openvdb::MetaMap metadata;
    for (const auto& [name, number] : spec.numbers)
        metadata.insertMeta(name, openvdb::Int32Metadata(number));
    for (const auto& [name, t] : spec.triples)
        metadata.insertMeta(name, openvdb::Vec3IMetadata(openvdb::Vec3i(t[0], t[1], t[2])));
    if (spec.asStream) {
        std::ofstream out(path, std::ios::binary);
        openvdb::io::Stream stream(out);
        stream.setCompression(spec.compression);
        stream.write(grids, metadata);
        return;
    }
    openvdb::io::File file(path.string());
    file.setCompression(spec.compression);
    file.write(grids, metadata);
    file.close();
}

std::vector<VoxelSpec> ballOfVoxels(std::array<int, 3> centre, int radius) {
    std::vector<VoxelSpec> voxels;
    for (int x = -radius; x <= radius; ++x)
        for (int y = -radius; y <= radius; ++y)
            for (int z = -radius; z <= radius; ++z)
                if (x * x + y * y + z * z <= radius * radius) {
                    const double v = 1 + x + 0.125 * y - 0.5 * z;
                    voxels.push_back(
                        {{centre[0] + x, centre[1] + y, centre[2] + z}, {v, -v, 2 * v}});
                }
    return voxels;
}

}  // namespace nimbra::test
