// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/channel_mapping.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>

#include "cache/channel_id.h"
#include "cache/enum_files.h"
#include "cache/external_readers.h"
#include "cache/file_patterns.h"

namespace CacheIO {

using namespace nimbra;

namespace {

// Liquids whose grids count 1 inside turn into a surface at the zero of the level set.
constexpr float kLiquidScale = -33.3333f;

constexpr DefaultMapping kVdbTable[] = {
    {"Temperature_nmb", kTemperature, 1},
    {"Smoke_nmb", kSmoke, 1},
    {"VelocityX_nmb", kVelocityX, 1},
    {"VelocityY_nmb", kVelocityY, 1},
    {"VelocityZ_nmb", kVelocityZ, 1},
    {"ColorR_nmb", kColorR, 1},
    {"ColorG_nmb", kColorG, 1},
    {"ColorB_nmb", kColorB, 1},
    {"Fuel_nmb", kFuel, 1},
    {"WaveletEnergy_nmb", kWaveletEnergy, 1},
    {"WaveletU_nmb", kWaveletU, 1},
    {"WaveletV_nmb", kWaveletV, 1},
    {"WaveletW_nmb", kWaveletW, 1},
    {"AdvectionOriginX_nmb", kAdvectionOriginX, 1},
    {"AdvectionOriginY_nmb", kAdvectionOriginY, 1},
    {"AdvectionOriginZ_nmb", kAdvectionOriginZ, 1},
    {"density", kSmoke, 1},
    {"temperature", kTemperature, 1},
    {"fluid_density", kTemperature, kLiquidScale},
    {"surface", kTemperature, kLiquidScale},
    {"vel.x", kVelocityX, 1},
    {"vel.y", kVelocityY, 1},
    {"vel.z", kVelocityZ, 1},
    {"vel(x)", kVelocityX, 1},
    {"vel(y)", kVelocityY, 1},
    {"vel(z)", kVelocityZ, 1},
    {"V(x)", kVelocityX, 1},
    {"V(y)", kVelocityY, 1},
    {"V(z)", kVelocityZ, 1},
    {"color(x)", kColorR, 1},
    {"color(y)", kColorG, 1},
    {"color(z)", kColorB, 1},
    {"Cd(x)", kColorR, 1},
    {"Cd(y)", kColorG, 1},
    {"Cd(z)", kColorB, 1},
    {"Cd.x", kColorR, 1},
    {"Cd.y", kColorG, 1},
    {"Cd.z", kColorB, 1},
    {"Smoke", kSmoke, 1},
    {"FireFuel", kFuel, 1},
    {"Temperature", kTemperature, 1},
    {"VelocitiesX", kVelocityX, 1},
    {"VelocitiesY", kVelocityZ, 1},
    {"VelocitiesZ", kVelocityY, 1},
    {"ColorR", kColorR, 1},
    {"ColorG", kColorG, 1},
    {"ColorB", kColorB, 1},
    {"fuel", kFuel, 1},
    {"velocity_x", kVelocityX, 1},
    {"velocity_y", kVelocityY, 1},
    {"velocity_z", kVelocityZ, 1},
    {"particle_count_per_cell", kTemperature, 1},
    {"rest.x", kColorR, 1},
    {"rest.y", kColorG, 1},
    {"rest.z", kColorB, 1},
};
// The names under which our own channels travel stand first.
constexpr std::size_t kOwnNames = 16;

constexpr DefaultMapping kF3dTable[] = {
    {"density", kSmoke, 1},
    {"fuel", kFuel, 1},
    {"temperature", kTemperature, 1},
    {"v_mac(x)", kVelocityX, 1},
    {"velocity(x)", kVelocityX, 1},
    {"v_mac(y)", kVelocityY, 1},
    {"velocity(Y)", kVelocityY, 1},
    {"v_mac(z)", kVelocityZ, 1},
    {"velocity(Z)", kVelocityZ, 1},
    {"Smoke", kSmoke, 1},
    {"FireFuel", kFuel, 1},
    {"Temperature", kTemperature, 1},
    {"VelocitiesX", kVelocityZ, 1},
    {"VelocitiesY", kVelocityY, 1},
    {"VelocitiesZ", kVelocityX, 1},
    {"ColorR", kColorR, 1},
    {"ColorG", kColorG, 1},
    {"ColorB", kColorB, 1},
    {"particle_count_per_cell", kTemperature, 1},
    {"fluid_velocity(x)", kVelocityX, 1},
    {"fluid_velocity(y)", kVelocityY, 1},
    {"fluid_velocity(z)", kVelocityZ, 1},
    {"Velocity(x)", kVelocityX, 1},
    {"Velocity(y)", kVelocityY, 1},
    {"Velocity(z)", kVelocityZ, 1},
    {"Density", kSmoke, 1},
    {"Temperature", kTemperature, 1},
    {"TextureCoord(x)", kColorR, 1},
    {"TextureCoord(y)", kColorG, 1},
    {"TextureCoord(z)", kColorB, 1},
};

// Components of a velocity make no smoke.
bool canStandInForSmoke(const AvailableChannels& channel) {
    return !channel.isVector && channel.name != "VelocitiesX" && channel.name != "VelocitiesY" &&
           channel.name != "VelocitiesZ";
}

}  // namespace

std::span<const DefaultMapping> defaultVdbMappings() {
    return kVdbTable;
}

std::span<const DefaultMapping> defaultF3dMappings() {
    return kF3dTable;
}

std::vector<GridMapping> parseChannelMap(const std::string& text) {
    std::vector<GridMapping> list;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t comma = text.find(',', at);
        const std::size_t end = comma == text.npos ? comma : text.find(';', comma);
        if (end == text.npos)
            break;
        const std::string number = text.substr(at, comma - at);
        list.push_back(
            {.name = text.substr(comma + 1, end - comma - 1),
             .channel = static_cast<std::int32_t>(std::strtol(number.c_str(), nullptr, 10))});
        at = end + 1;
    }
    return list;
}

std::string formatChannelMap(const std::vector<GridMapping>& mappings) {
    std::string text;
    for (const GridMapping& m : mappings)
        text += std::to_string(m.channel) + "," + m.name + ";";
    return text;
}

namespace {
// Has no comma, so that it is no entry.
constexpr const char* kDefaultScales = "default scales";
}  // namespace

std::string defaultChannelMap(const std::vector<GridMapping>& mappings) {
    const bool scaled = std::any_of(mappings.begin(), mappings.end(),
                                    [](const GridMapping& m) { return m.scale != 1; });
    return formatChannelMap(mappings) + (scaled ? kDefaultScales : "");
}

std::vector<GridMapping> mappingsOfText(const std::string& text,
                                        std::span<const DefaultMapping> table) {
    std::vector<GridMapping> list = parseChannelMap(text);
    const std::size_t end = text.rfind(';');
    if (end == text.npos || text.substr(end + 1) != kDefaultScales)
        return list;
    for (GridMapping& mapping : list)
        for (const DefaultMapping& known : table)
            if (mapping.name == known.name && mapping.channel == known.channel) {
                mapping.scale = known.scale;
                break;
            }
    return list;
}

std::vector<GridMapping> chooseMappings(const std::vector<AvailableChannels>& available,
                                        std::span<const DefaultMapping> table) {
    std::vector<GridMapping> list;
    for (const AvailableChannels& channel : available) {
        const auto known = std::find_if(table.begin(), table.end(), [&](const DefaultMapping& m) {
            return channel.name == m.name;
        });
        if (known != table.end())
            list.push_back({channel.name, known->channel, known->scale});
    }
    const bool hasSmoke = std::any_of(list.begin(), list.end(),
                                      [](const GridMapping& m) { return m.channel == kSmoke; });
    const auto first = std::find_if(available.begin(), available.end(), canStandInForSmoke);
    if (!hasSmoke && first != available.end())
        list.push_back({first->name, kSmoke, 1});
    return list;
}

std::string ownChannelMap() {
    std::vector<GridMapping> list;
    for (const DefaultMapping& m : std::span(kVdbTable).first(kOwnNames))
        list.push_back({m.name, m.channel, m.scale});
    return formatChannelMap(list);
}

namespace {

/// Gathers the channels of all files of a sequence, each name once.
class Find3rdPartyCacheChannelsEnum : public NimbraEnum::EnumFiles {
public:
    explicit Find3rdPartyCacheChannelsEnum(bool f3d) : f3d_(f3d) {}
    const std::vector<AvailableChannels>& channels() const { return channels_; }

protected:
    bool found(std::int64_t, const std::string& path) override {
        std::vector<AvailableChannels> inFile;
        if (f3d_ ? availableF3dChannels(path, inFile) : availableVdbChannels(path, inFile))
            for (const AvailableChannels& c : inFile)
                if (std::none_of(channels_.begin(), channels_.end(),
                                 [&](const AvailableChannels& k) { return k.name == c.name; }))
                    channels_.push_back(c);
        return true;
    }

private:
    bool f3d_;
    std::vector<AvailableChannels> channels_;
};

}  // namespace

std::string findChannelMap(const std::string& pathPattern, std::int64_t frame) {
    const std::string extension = fileExtension(pathPattern);
    const bool f3d = extension == "f3d";
    if (!f3d && extension != "vdb")
        return ownChannelMap();
    Find3rdPartyCacheChannelsEnum files(f3d);
    if (files.enumerate(pathPattern, frame, NimbraEnum::Mode::Nearest) == 0)
        files.enumerate(pathPattern, frame, NimbraEnum::Mode::Exact);
    const auto list =
        chooseMappings(files.channels(), f3d ? defaultF3dMappings() : defaultVdbMappings());
    return list.empty() ? ownChannelMap() : defaultChannelMap(list);
}

}  // namespace CacheIO
