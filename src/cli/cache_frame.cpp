// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/cache_frame.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <filesystem>

#include "cache/channel_mapping.h"
#include "cache/external_readers.h"
#include "cache/file_patterns.h"
#include "cache/input_file.h"
#include "cache/prt_group.h"
#include "cli/frame_names.h"
#include "cli/frame_range.h"
#include "cli/prt_frame.h"
#include "host/plugin_registry.h"

namespace nimbra::cli {
namespace {

namespace fs = std::filesystem;

std::string lowerCase(std::string text) {
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

std::string problemOf(int status, const std::string& path) {
    const std::string& told = lastImportProblem();
    switch (status) {
        case kLoadNoReader:
            return path + ": the reader of Field3D files isn't there";
        case kLoadBroken:
            return path + ": the file is broken";
        case kLoadNoFooter:
            return path + ": the file is damaged, incomplete or of an unsupported format";
        case kLoadNotFound:
        default:
            return told.empty() ? path + ": can't be read" : told;
    }
}

/// The frame number of a file name: digits that aren't part of a word.
bool numberOfFile(const std::string& path, std::int64_t& number) {
    const std::string name = path.substr(fileNameStart(path));
    const std::size_t last = name.find_last_not_of("0123456789", name.rfind('.') - 1);
    const bool inWord = last != name.npos && std::isalpha(static_cast<unsigned char>(name[last]));
    return !inWord && frameNumberOfName(name, number);
}

/// Gives a frame of a format that knows no frame numbers that of its file name.
void setFrameNumber(NimbraFrameData& frame, std::int64_t number) {
    if (frame.frameNumber == NimbraFrameData::kNoFrame && number >= INT32_MIN &&
        number <= INT32_MAX)
        frame.frameNumber = static_cast<std::int32_t>(number);
}

void loadGrids(const std::string& path, const std::string& mapping, std::int64_t number,
               bool headerOnly, NimbraFrameData& data, CacheFrame& frame) {
    prepareCacheReaders();
    setImportProblem("");
    const std::string map = mapping.empty() ? CacheIO::findChannelMap(path) : mapping;
    constexpr std::int64_t kNoLimit = -1;
    constexpr bool kNoRetry = true;
    frame.status =
        data.load(path, map, static_cast<double>(number), kNoLimit, kNoRetry, headerOnly);
    data.channelMap = map;
    if (frame.status != kLoadOk)
        frame.problem = problemOf(frame.status, path);
}

void loadParticles(const std::string& path, bool headerOnly, NimbraFrameData& data,
                   CacheFrame& frame) {
    data.resetHeader(headerOnly);
    std::string problem;
    frame.status = loadPrtFrame(path, data, problem);
    if (!problem.empty())
        frame.problem = path + ": " + problem;
    else if (frame.status != kLoadOk)
        frame.problem = problemOf(frame.status, path);
}

}  // namespace

const std::vector<std::string>& cacheExtensions() {
    static const std::vector<std::string> extensions{".kol", ".vdb", ".f3d", ".prt"};
    return extensions;
}

bool prepareCacheReaders() {
    constexpr int kReaderVersion = 2;
    static const unsigned ready = loadExternalCacheReaders(
        kField3dReader | kOpenVdbReader,
        fs::path(host::PluginRegistry::defaultModulePath()).parent_path().c_str(), "tessra",
        kReaderVersion);
    return ready & kField3dReader;
}

CacheFrame loadCacheFrame(const std::string& path, const std::string& mapping, bool headerOnly) {
    CacheFrame frame{path};
    if (InputFile file; !file.open(path)) {
        frame.problem = path + ": " + file.problem();
        return frame;
    }
    if (const std::string problem = wrongExtension(path, cacheExtensions()); !problem.empty()) {
        frame.problem = path + ": " + problem;
        return frame;
    }
    std::int64_t number = 0;
    const bool numbered = numberOfFile(path, number);
    auto data = std::make_unique<NimbraFrameData>();
    if (fileExtension(path) == "prt")
        loadParticles(path, headerOnly, *data, frame);
    else
        loadGrids(path, mapping, number, headerOnly, *data, frame);
    if (frame.status != kLoadOk)
        return frame;
    if (numbered)
        setFrameNumber(*data, number);
    frame.data = std::move(data);
    return frame;
}
void releaseVoxels(NimbraFrameData& frame, int channel) {
    const bool stored = frame.compressed && frame.compressedInts > 1;
    if (stored || channel == kSpeed)
        frame.channels[channel].free();
}

CacheFiles findCacheFiles(const std::string& input, const std::vector<std::string>& extensions) {
    CacheFiles out;
    std::error_code error;
    const bool folder = fs::is_directory(input, error);
    if (!folder && (fs::exists(input, error) || !hasFramePattern(input))) {
        out.files.push_back({input});
        return out;
    }
    const auto sequence = findSequence(input, extensions);
    if (!sequence) {
        out.problem = whyNoSequence(input, extensions);
        return out;
    }
    out.others = othersText(input, *sequence, "is taken");
    if (sequence->frames.empty()) {
        out.files.push_back({sequence->pattern});
        return out;
    }
    out.isSequence = true;
    for (std::size_t i = 0; i < sequence->frames.size(); ++i)
        out.files.push_back({sequence->files[i], sequence->frames[i]});
    // A gap of millions is two sequences in one folder rather than a list worth reading.
    constexpr std::int64_t kLongestGap = 100'000;
    std::vector<host::FrameNumber> missing;
    for (std::size_t i = 1; i < out.files.size(); ++i)
        for (std::int64_t f = out.files[i - 1].frame + 1;
             f < out.files[i].frame && f - out.files[i - 1].frame <= kLongestGap; ++f)
            missing.push_back(f);
    if (!missing.empty())
        out.missing = describeFrames(std::move(missing));
    return out;
}

void tellOfFiles(const CacheFiles& found, const std::string& input, host::HostLog& log) {
    if (!found.problem.empty())
        log.error(found.problem);
    if (!found.others.empty())
        log.warning(found.others);
    if (!found.missing.empty())
        log.warning(fmt::format("{}: there are no files of frames {}", input, found.missing));
}

std::string channelName(int channel) {
    static const char* const kNames[] = {
        nullptr,      "temperature", "smoke",          "speed",    "velocity_x", "velocity_y",
        "velocity_z", "color_r",     "color_g",        "color_b",  "fuel",       nullptr,
        nullptr,      nullptr,       "wavelet_energy", "origin_x", "origin_y",   "origin_z",
        "rgb",        "wavelet_u",   "wavelet_v",      "wavelet_w"};
    const bool named =
        channel >= 0 && channel < static_cast<int>(std::size(kNames)) && kNames[channel];
    return named ? kNames[channel] : fmt::format("channel_{}", channel);
}

std::string particleChannelName(int channel) {
    const char* const name = prtChannelName(channel);
    return name ? lowerCase(name) : fmt::format("channel_{}", channel);
}

namespace {

template <class NameOf>
int findChannel(const std::string& text, int count, const NameOf& nameOf) {
    int number = -1;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    if (error == std::errc() && rest == end)
        return number >= 0 && number < count ? number : -1;
    for (int c = 0; c < count; ++c)
        if (lowerCase(text) == nameOf(c))
            return c;
    return -1;
}

}  // namespace

int channelNamed(const std::string& text) {
    return findChannel(text, kChannelSlots, channelName);
}

int particleChannelNamed(const std::string& text) {
    return findChannel(text, kPrtChannelSlots, particleChannelName);
}

}  // namespace nimbra::cli
