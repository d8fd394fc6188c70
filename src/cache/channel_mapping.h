// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Which grid of a foreign cache becomes which channel: the mapping text, the tables of known names,
// and the choice made from them.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace CacheIO {

/// One grid of a file and the channel that it fills.
struct GridMapping {
    std::string name;
    std::int32_t channel = -1;  // a ChannelId; -1: unset
    float scale = 1;            // multiplied into every value

    bool operator==(const GridMapping&) const = default;
};

/// A name that a mapping can use. The components of a vector grid stand as three names, the grid's
/// with "(x)", "(y)" and "(z)" behind it, each marked as a vector.
struct AvailableChannels {
    std::string name;
    std::uint8_t isVector = 0;

    bool operator==(const AvailableChannels&) const = default;
};

/// A known name in a table of defaults.
struct DefaultMapping {
    const char* name;
    std::int32_t channel;
    float scale;
};

/// Known names in OpenVDB files and in Field3D files, in the order in which they are tried.
std::span<const DefaultMapping> defaultVdbMappings();
std::span<const DefaultMapping> defaultF3dMappings();

/// Reads "channel,name;channel,name;". An entry without its comma or its semicolon ends the list.
/// Scales are 1: the text knows none.
std::vector<GridMapping> parseChannelMap(const std::string& text);
/// The text of a list, each entry with its semicolon.
std::string formatChannelMap(const std::vector<GridMapping>& mappings);

/// The list that an import follows. A text that was made from a table keeps no scales; where they
/// matter, defaultChannelMap has marked it, and they are taken from the table again.
std::vector<GridMapping> mappingsOfText(const std::string& text,
                                        std::span<const DefaultMapping> table);
/// The text of a choice by the table. Where a scale isn't 1 a mark stands behind the last entry,
/// which parseChannelMap passes over: the same names typed by a user have scales of 1, and the text
/// has to tell the two apart, since frames are shared by it.
std::string defaultChannelMap(const std::vector<GridMapping>& mappings);

/// Maps what a file offers by a table: for each name, the first equal entry. When nothing becomes
/// smoke, the first name that isn't a vector does, so that something is to be seen.
std::vector<GridMapping> chooseMappings(const std::vector<AvailableChannels>& available,
                                        std::span<const DefaultMapping> table);
/// The mapping text of the names under which our own channels travel.
std::string ownChannelMap();

/// The text that stands for a sequence for which the user gave none: the channels of all files of
/// the pattern, mapped by the table of their format. Files that can't be read are passed over.
/// Where no name tells its number ("sim-0010" for "sim-####"), the file of `frame` speaks for all.
/// With nothing found the answer is ownChannelMap().
std::string findChannelMap(const std::string& pathPattern, std::int64_t frame = 0);

}  // namespace CacheIO
