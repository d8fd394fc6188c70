// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/dump_arrays.h"

#include <fmt/format.h>

#include <csignal>
#include <filesystem>
#include <stdexcept>

#include "cli/cache_info.h"
#include "cli/exit_codes.h"
#include "cli/frame_names.h"
#include "host/atomic_file.h"
#include "host/nearest_name.h"

namespace nimbra::cli {
namespace {

namespace fs = std::filesystem;
using PGroup = NimbraFrameData::PGroup;

// Letters that could lead a name elsewhere, or that patterns are made of, have no place in it.
std::string fileNamePart(const std::string& text) {
    std::string out;
    for (const char c : text.substr(0, 64)) {
        const bool plain = std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-';
        out += plain ? c : '_';
    }
    return out.empty() ? "unnamed" : out;
}

std::string withPart(const std::string& path, const std::string& part) {
    fs::path name(path);
    return name.replace_filename(name.stem().string() + "." + part + name.extension().string())
        .string();
}

std::vector<int> namedChannels(const std::vector<std::string>& names,
                               int (*number)(const std::string&), std::string (*nameOf)(int)) {
    std::vector<int> channels;
    for (const std::string& name : names) {
        channels.push_back(number(name));
        if (channels.back() >= 0)
            continue;
        std::vector<std::string> known;
        known.reserve(kChannelSlots);
        for (int c = 0; c < kChannelSlots; ++c)
            known.push_back(nameOf(c));
        throw std::invalid_argument(
            fmt::format("there is no channel '{}'{}", name, host::suggestion(name, known)));
    }
    return channels;
}

std::vector<int> chosenParticleChannels(PGroup& group, const DumpArrays& arrays) {
    if (!arrays.channels.empty())
        return namedChannels(arrays.channels, particleChannelNamed, particleChannelName);
    std::vector<int> channels;
    for (int c = 0; c < kPrtChannelSlots; ++c)
        if (group.hasChannel(c) && group.getChannelStride(c) > 0)
            channels.push_back(c);
    return channels;
}

bool isPly(const DumpArrays& arrays) {
    return fs::path(arrays.output).extension() == ".ply";
}

std::string groupNames(const NimbraFrameData& frame) {
    std::string names;
    for (const PGroup* g : frame.groups)
        names += (names.empty() ? "'" : ", '") + g->name + "'";
    return names.empty() ? "it has none" : "it has " + names;
}

}  // namespace

std::vector<int> chosenChannels(const NimbraFrameData& frame, const DumpArrays& arrays) {
    if (!arrays.channels.empty())
        return namedChannels(arrays.channels, channelNamed, channelName);
    std::vector<int> channels;
    for (int c = 0; c < kChannelSlots; ++c)
        if (frame.hasChannel(c))
            channels.push_back(c);
    return channels;
}

bool withinLimit(const NimbraFrameData& frame, std::size_t channels, std::int64_t mostVoxels) {
    const auto count = std::max<std::int64_t>(static_cast<std::int64_t>(channels), 1);
    return voxelCount(frame.gridSize) <= mostVoxels / count;
}

std::string beyondLimitText(const CacheFrame& frame, std::size_t channels,
                            std::int64_t mostVoxels) {
    const auto* const n = frame.data->gridSize;
    return fmt::format("{}: {} channels of {} x {} x {} cells are more than --max-voxels {} allows",
                       frame.path, channels, n[0], n[1], n[2], mostVoxels);
}

ArrayWriter::ArrayWriter(const DumpArrays& arrays, Console& console)
    : arrays_(arrays), console_(console), signals_(abort_) {}

int ArrayWriter::prepare(const std::vector<CacheFile>& files, bool isSequence) {
    const std::string extension = fs::path(arrays_.output).extension().string();
    if (extension != ".npy" && extension != ".ply")
        throw std::invalid_argument(
            fmt::format("-o '{}': the name has to end in .npy or .ply", arrays_.output));
    if (isPly(arrays_) && !arrays_.channels.empty())
        throw std::invalid_argument("--channel goes with .npy files; a .ply file has all channels");
    severalFrames_ = isSequence && files.size() > 1;
    std::vector<std::int64_t> frames;
    frames.reserve(files.size());
    for (const CacheFile& file : files)
        frames.push_back(file.frame);
    if (const auto clash = clashingOutput(arrays_.output, {frames.begin(), frames.end()}))
        throw std::invalid_argument(
            fmt::format("-o '{}': several frames would be written to {}", arrays_.output, *clash));
    std::string error;
    if (host::prepareOutputFolder(arrays_.output, error))
        return kExitDone;
    console_.log().error(error);
    return kExitOutput;
}

int ArrayWriter::write(const CacheFrame& frame, std::int64_t number) {
    if (isPly(arrays_))
        return writePoints(frame, number);
    if (arrays_.group.empty())
        return writeGrids(frame, number);
    for (PGroup* const group : frame.data->groups)
        if (group->name == arrays_.group)
            return writeChannels(frame, *group, number);
    console_.log().error(fmt::format("{}: there is no group '{}'; {}", frame.path, arrays_.group,
                                     groupNames(*frame.data)));
    return kExitInput;
}

int ArrayWriter::writeGrids(const CacheFrame& frame, std::int64_t number) {
    const std::vector<int> channels = chosenChannels(*frame.data, arrays_);
    if (channels.empty()) {
        console_.log().error(
            fmt::format("{}: no grid channels{}", frame.path,
                        frame.data->groups.size > 0
                            ? "; for particles give --group NAME, " + groupNames(*frame.data)
                            : ""));
        return kExitInput;
    }
    if (!withinLimit(*frame.data, channels.size(), arrays_.mostVoxels)) {
        console_.log().error(beyondLimitText(frame, channels.size(), arrays_.mostVoxels));
        return kExitMemory;
    }
    int worst = kExitDone;
    for (const int c : channels) {
        const auto& proxy = frame.data->getChannelProxy(c);
        if (!proxy.loaded) {
            console_.log().error(
                fmt::format("{}: channel '{}' {}", frame.path, channelName(c),
                            frame.data->hasChannel(c) ? "can't be expanded" : "isn't in the file"));
            worst = kExitFrameFailed;
            continue;
        }
        const std::string path = pathOf(channelName(c), channels.size() > 1, number);
        std::string error;
        const FileResult result = writeGridNpy(path, proxy, abort_, error);
        if (const int code = report(path, result, error); code != kExitDone)
            return code;
    }
    return worst;
}

int ArrayWriter::writeChannels(const CacheFrame& frame, PGroup& group, std::int64_t number) {
    const std::vector<int> channels = chosenParticleChannels(group, arrays_);
    int worst = kExitDone;
    for (const int c : channels) {
        if (!canDeliver(group, c)) {
            console_.log().error(fmt::format(
                "{}: group '{}': channel '{}' {}", frame.path, group.name, particleChannelName(c),
                group.hasChannel(c) ? "can't be expanded" : "isn't in the file"));
            worst = kExitFrameFailed;
            continue;
        }
        const std::string path = pathOf(particleChannelName(c), channels.size() > 1, number);
        std::string error;
        const FileResult result = writeParticleNpy(path, group, c, abort_, error);
        if (const int code = report(path, result, error); code != kExitDone)
            return code;
    }
    return worst;
}

int ArrayWriter::writePoints(const CacheFrame& frame, std::int64_t number) {
    std::vector<PGroup*> groups;
    for (PGroup* const group : frame.data->groups)
        if (arrays_.group.empty() ? group->getCount() > 0 : group->name == arrays_.group)
            groups.push_back(group);
    if (groups.empty()) {
        console_.log().error(
            fmt::format("{}: no such particles; {}", frame.path, groupNames(*frame.data)));
        return kExitInput;
    }
    for (PGroup* const group : groups) {
        if (!canDeliver(*group, kPrtPosition)) {
            console_.log().error(
                fmt::format("{}: group '{}' has no positions", frame.path, group->name));
            return kExitFrameFailed;
        }
        const std::string path = pathOf(fileNamePart(group->name), groups.size() > 1, number);
        std::string error;
        const FileResult result = writeParticlePly(path, *group, abort_, error);
        if (const int code = report(path, result, error); code != kExitDone)
            return code;
    }
    return kExitDone;
}

std::string ArrayWriter::pathOf(const std::string& part, bool severalParts, std::int64_t number) {
    std::string name = severalParts ? withPart(arrays_.output, part) : arrays_.output;
    std::string path = outputName(name, number, severalFrames_);
    // Groups may have one name.
    for (int copy = 2; !written_.insert(path).second; ++copy)
        path = outputName(withPart(name, std::to_string(copy)), number, severalFrames_);
    return path;
}

int ArrayWriter::report(const std::string& path, FileResult result, const std::string& error) {
    switch (result) {
        case FileResult::Written: {
            std::error_code ignored;
            console_.note(
                fmt::format("wrote {} ({})", path, sizeText(fs::file_size(path, ignored))));
            return kExitDone;
        }
        case FileResult::Aborted:
            return abort_.reason() == SIGTERM ? kExitTerminated : kExitInterrupted;
        case FileResult::Failed:
        default:
            console_.log().error(error);
            return kExitOutput;
    }
}

}  // namespace nimbra::cli
