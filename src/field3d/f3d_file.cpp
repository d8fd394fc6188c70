// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "field3d/f3d_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "field3d/f3d_layer.h"
#include "field3d/hdf5_file.h"
#include "field3d/ogawa_file.h"

namespace nimbra {

namespace {

constexpr const char* kMetadataGroup = "field3d_global_metadata";
constexpr const char* kMembershipGroup = "field3d_group_membership";

/// "smoke.10" taken apart; names without a number come first.
struct NumberedName {
    std::string base;
    std::int64_t number = -1;

    explicit NumberedName(const std::string& name) : base(name) {
        constexpr std::size_t kMostDigits = 18;
        const std::size_t dot = name.rfind('.');
        const std::string digits = dot == name.npos ? "" : name.substr(dot + 1);
        if (digits.empty() || digits.size() > kMostDigits ||
            digits.find_first_not_of("0123456789") != digits.npos)
            return;
        base = name.substr(0, dot);
        number = std::stoll(digits);
    }
    auto operator<=>(const NumberedName&) const = default;  // NOLINT(modernize-use-nullptr)
};

bool startsWithOgawa(InputFile& file) {
    std::byte bytes[5];
    return file.size() >= sizeof bytes && file.readAt(0, bytes) &&
           std::memcmp(bytes, "Ogawa", sizeof bytes) == 0;
}

}  // namespace

bool F3dFile::openContainer() {
    const auto openAs = [this](auto container) {
        const bool sound = container->open(file_);
        problem_ = container->problem();
        container_ = std::move(container);
        return sound;
    };
    if (startsWithOgawa(file_))
        return openAs(std::make_unique<OgawaFile>());
    if (Hdf5File::hasSignature(file_))
        return openAs(std::make_unique<Hdf5File>());
    problem_ = "isn't a Field3D file";
    return false;
}

bool F3dFile::open(const std::string& path) {
    if (!file_.open(path)) {
        problem_ = file_.problem();
        return false;
    }
    if (!openContainer())
        return false;
    readStructure();
    return true;
}

void F3dFile::adopt(std::unique_ptr<F3dContainer> container) {
    container_ = std::move(container);
    readStructure();
}

void F3dFile::readStructure() {
    const F3dGroup& root = container_->root();
    if (const F3dAttribute* v = root.attribute("version_number"))
        for (const double n : v->numbers)
            version_.push_back(std::fabs(n) < 1e9 ? static_cast<int>(n) : 0);
    if (const F3dGroup* metadata = root.group(kMetadataGroup))
        metadata_ = attributeTexts(*metadata);
    for (const F3dGroup& group : root.groups)
        if (group.name != kMetadataGroup && group.name != kMembershipGroup)
            readPartition(group);
    if (isHdf5())
        std::stable_sort(partitions_.begin(), partitions_.end(),
                         [](const F3dPartition& a, const F3dPartition& b) {
                             return NumberedName(a.diskName) < NumberedName(b.diskName);
                         });
}

void F3dFile::readPartition(const F3dGroup& group) {
    F3dPartition& partition = partitions_.emplace_back();
    partition.diskName = group.name;
    const F3dGroup* const mapping = group.group("mapping");
    partition.mapping = readMapping(mapping);
    for (const F3dGroup& child : group.groups)
        if (&child != mapping && (!isHdf5() || isHdf5Layer(child)))
            partition.layers.push_back(readLayer(child, isHdf5()));
}

}  // namespace nimbra
