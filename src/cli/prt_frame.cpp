// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/prt_frame.h"

#include <vector>

#include "cache/prt_file.h"
#include "cache/prt_group.h"

namespace nimbra::cli {
namespace {

/// Gives the group a channel of the file, if that has it.
bool addChannel(const PrtIO::PrtFile& file, int index, int channel,
                NimbraFrameData::PGroup& group) {
    if (index < 0)
        return true;
    group.channelMask |= channelBit(channel);
    const PrtIO::PRTChannelDefinition& definition = file.channels[index];
    const bool isId = channel == kPrtId;
    const int components = isId ? 1 : prtChannelWords(channel);
    if ((definition.type == PrtIO::kInt64) != isId || definition.arity != components)
        return true;
    const auto stride = static_cast<std::size_t>(group.getChannelStride(channel));
    std::vector<unsigned char> values(static_cast<std::size_t>(group.count) * stride);
    for (int i = 0; i < group.count; ++i)
        if (!file.readChannel(index, i, values.data() + static_cast<std::size_t>(i) * stride,
                              stride))
            return true;
    return group.setChannel(channel, values.data());
}

}  // namespace

int loadPrtFrame(const std::string& path, NimbraFrameData& frame, std::string& problem) {
    PrtIO::PrtFile file;
    const bool loaded = file.load(path.c_str()) != 0;
    problem = file.problem();
    if (!loaded)
        return kLoadBroken;
    NimbraFrameData::PGroup* const group = frame.addGroup(kPrtGroupName);
    if (!group)
        return kLoadBroken;
    group->count = file.count;
    const std::pair<std::int32_t, int> channels[] = {
        {file.position, kPrtPosition}, {file.velocity, kPrtVelocity}, {file.size, kPrtSize},
        {file.age, kPrtAge},           {file.color, kPrtColor},       {file.id, kPrtId}};
    for (const auto& [index, channel] : channels)
        if (!addChannel(file, index, channel, *group)) {
            problem = "there isn't enough memory";
            frame.clearGroups();
            return kLoadBroken;
        }
    return kLoadOk;
}

}  // namespace nimbra::cli
