// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Reads .kol files: one simulated frame. Little-endian; a text is an int32 length and the bytes.
//
//   offset    size  field       meaning and check
//   0         4     "KOLV"      else the file is broken
//   4         ..    sections    int32 id and what readSection reads; up to an id of 0 or above 13
//   M         4     marker      the id that ended the sections
//   M+4       ..    chunks      int32 id, size (int32 below version 4, else int64, not negative),
//                               payload; up to the id 9999999, which has no size
//   end-20    8     int64 M     from version 4 on (below: int32 at end-16); not negative
//   end-12    4     version     from 5 on grid channels are sequences, before boxes
//   end-8     8     "KOLV2NMB"  else the file is one of a format that isn't read
//
// The chunks are read first. Grid channels stay as they are stored.
#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <new>
#include <vector>

#include "cache/external_readers.h"
#include "cache/frame_data.h"
#include "cache/kol_particles.h"
#include "cache/kol_stream.h"
#include "foundation/log.h"

namespace nimbra {
namespace {

static_assert(std::endian::native == std::endian::little);

constexpr char kFooterMagic[8] = {'K', 'O', 'L', 'V', '2', 'N', 'M', 'B'};
constexpr char kHeadMagic[4] = {'K', 'O', 'L', 'V'};

constexpr char kNoFooterLine[] =
    "Failed reading the kolv2 file footer!\nThe file is damaged, incomplete or in unsupported file "
    "format.\nIf the file was saved by Nimbra 2.2 or older, please simulate the scene again, but "
    "note that the results may differ.\n";

enum Chunk : std::int32_t {
    kSummary = 1000,
    kDescription = 1001,
    kGroups = 1002,
    kRanges = 1003,
    kFileValues = 1004,
    kEndOfChunks = 9999999,
};

class KolImport {
public:
    KolImport(NimbraFrameData& frame, KolStream& in, bool headerOnly)
        : frame_(frame), in_(in), headerOnly_(headerOnly) {}

    /// A FrameLoadStatus; raises KolDamage and std::bad_alloc.
    int run() {
        const int status = readFooter();
        if (status != kLoadOk)
            return status;
        readChunks();
        readHead();
        if (headerOnly_)
            frame_.setNoStoredGrid();
        return kLoadOk;
    }

private:
    int readFooter();
    /// To a place that many bytes before the end.
    void seekBack(std::uint64_t bytes, const char* line) {
        if (bytes > in_.size())
            in_.fail(line, "ends too early");
        in_.seek(in_.size() - bytes);
    }

    void readChunks();
    std::int64_t readChunkSize();
    void readRanges();
    void readFileValues();

    void readHead();
    bool readSection(std::int32_t id);
    void readMask();
    void readGrid();
    void readSimInfo();
    void readMotion();
    void readParticles(bool compressed);
    void readFloats(float* out, std::size_t count, const char* line) {
        in_.read(std::as_writable_bytes(std::span(out, count)), line);
    }

    NimbraFrameData& frame_;
    KolStream& in_;
    const bool headerOnly_;
    bool groupsKnown_ = false;
    std::int64_t dataOffset_ = 0;
};

int KolImport::readFooter() {
    constexpr std::uint64_t kMagicAt = 8, kVersionAt = 12, kOffset64At = 20, kOffset32At = 16;
    seekBack(kMagicAt, "Failed while seeking to kolv2 magic!\n");
    char magic[sizeof kFooterMagic];
    in_.read(std::as_writable_bytes(std::span(magic)), "Failed reading kolv2 magic!\n");
    if (std::memcmp(magic, kFooterMagic, sizeof magic) != 0) {
        NMBUtils::logLine("%s", kNoFooterLine);
        return kLoadNoFooter;
    }
    seekBack(kVersionAt, "Failed to seek to kolv2 version!\n");
    frame_.fileVersion = in_.get<std::int32_t>("Failed reading kolv2 version!\n");
    constexpr const char* kSeekLine = "Failed seeking to marker chunk!\n";
    constexpr const char* kReadLine = "Failed reading kolv2 data offset!\n";
    constexpr std::int32_t kFirstWide = 4;
    const bool wide = frame_.fileVersion >= kFirstWide;
    seekBack(wide ? kOffset64At : kOffset32At, kSeekLine);
    dataOffset_ = wide ? in_.get<std::int64_t>(kReadLine) : in_.get<std::int32_t>(kReadLine);
    if (dataOffset_ < 0 && wide)
        in_.fail(kSeekLine, "has a negative data offset");
    return dataOffset_ < 0 ? kLoadNotFound : kLoadOk;
}

void KolImport::readChunks() {
    constexpr std::uint64_t kMarkerBytes = 4;
    in_.seek(static_cast<std::uint64_t>(dataOffset_) + kMarkerBytes);
    for (;;) {
        const auto id = in_.get<std::int32_t>("Failed reading chunk id!\n");
        if (id == kEndOfChunks)
            return;
        const std::int64_t size = readChunkSize();
        if (size < 0)
            in_.fail(nullptr, "has a chunk of negative size");
        if (id == kSummary) {
            readKolSummary(frame_, in_);
            readFloats(frame_.bboxMin, 3, nullptr);
            readFloats(frame_.bboxMax, 3, nullptr);
            in_.get<std::int32_t>();
            groupsKnown_ = true;
            constexpr std::int32_t kFirstWithMore = 3;
            if (frame_.fileVersion < kFirstWithMore)
                return;
        } else if (id == kDescription) {
            frame_.description = in_.getText();
        } else if (id == kGroups && !headerOnly_) {
            readKolGroups(frame_, in_);
        } else if (id == kRanges) {
            readRanges();
        } else if (id == kFileValues) {
            readFileValues();
        } else {
            in_.skip(static_cast<std::uint64_t>(size));
        }
    }
}

std::int64_t KolImport::readChunkSize() {
    constexpr const char* kLine = "Failed reading chunk size!\n";
    constexpr std::int32_t kFirstWide = 4;
    return frame_.fileVersion < kFirstWide ? in_.get<std::int32_t>(kLine)
                                           : in_.get<std::int64_t>(kLine);
}

void KolImport::readRanges() {
    const std::int32_t count = in_.getCount();
    for (std::int32_t i = 0; i < count; ++i) {
        const auto channel = in_.get<std::int32_t>();
        const auto min = in_.get<float>(), max = in_.get<float>();
        if (channel < 0 || channel >= kChannelSlots)
            continue;
        frame_.channels[channel].minValue = min;
        frame_.channels[channel].maxValue = max;
    }
}

void KolImport::readFileValues() {
    const std::int32_t count = in_.getCount();
    for (std::int32_t i = 0; i < count; ++i) {
        const auto channel = in_.get<std::int32_t>();
        const auto value = in_.get<std::int64_t>();
        if (channel >= 0 && channel < kChannelSlots)
            frame_.channelFileValue[channel] = value;
    }
}

void KolImport::readHead() {
    in_.seek(0);
    char magic[sizeof kHeadMagic];
    in_.read(std::as_writable_bytes(std::span(magic)));
    if (std::memcmp(magic, kHeadMagic, sizeof magic) != 0)
        in_.fail("no hdr\n", "has no header");
    while (readSection(in_.get<std::int32_t>("0\n"))) {
    }
}

/// False for an id that ends the list.
bool KolImport::readSection(std::int32_t id) {
    switch (id) {
        case 1:
            readMask();
            return true;
        case 2:
            readFloats(frame_.transform, 12, "2\n");
            return true;
        case 3:
            readGrid();
            return true;
        case 4:
            frame_.frameNumber = in_.get<std::int32_t>("5\n");
            return true;
        case 5:
            frame_.timeStep = in_.get<float>("6\n");
            return true;
        case 6:
            readFloats(frame_.motionTm, 12, "7\n");
            return true;
        case 7:
            readParticles(false);
            return true;
        case 8:
            frame_.simInfo.setSimTime(in_.get<float>("8\n"));
            return true;
        case 9:
            frame_.simInfo.setSimStep(in_.get<std::int32_t>("17\n"));
            frame_.simScale = in_.get<float>("18\n");
            return true;
        case 10:
            frame_.simInfo.setSimTime(in_.get<double>("20\n"));
            frame_.simInfo.setSimInfo2(in_.get<double>("21\n"));
            return true;
        case 11:
            readMotion();
            return true;
        case 12:
            readSimInfo();
            return true;
        case 13:
            readParticles(true);
            return true;
        default:
            return false;
    }
}

void KolImport::readMask() {
    constexpr std::uint32_t kBit31 = 1u << 31;
    const auto mask = in_.get<std::uint32_t>("1\n");
    frame_.channelMask = mask & ~kBit31;
    frame_.flags &= ~std::uint32_t(kFrameMaskBit31);
    if (mask & kBit31)
        frame_.flags |= kFrameMaskBit31;
}

void KolImport::readGrid() {
    in_.read(std::as_writable_bytes(std::span(frame_.gridSize)), "3\n");
    const auto words = in_.get<std::int32_t>("4\n");
    if (words < 0)
        in_.fail("NimbraFrameData::ImportKol bad comprDataSzInts!",
                 "states a negative size of its grid");
    const std::uint64_t bytes = static_cast<std::uint64_t>(words) * sizeof(std::int32_t);
    if (headerOnly_) {
        in_.skip(bytes);
        return;
    }
    in_.require(bytes, "x41\n");
    if (!frame_.allocateCompressed(words))
        throw std::bad_alloc();
    in_.read({reinterpret_cast<std::byte*>(frame_.compressed), bytes}, "x41\n");
}

void KolImport::readSimInfo() {
    const auto bytes = static_cast<std::uint64_t>(in_.getCount("16\n"));
    const std::uint64_t kept = std::min<std::uint64_t>(bytes, SimInfo::kBytes);
    in_.read(std::as_writable_bytes(std::span(frame_.simInfo.bytes).first(kept)), "x161\n");
    in_.require(bytes - kept, "x162\n");
    in_.skip(bytes - kept);
}

void KolImport::readMotion() {
    readFloats(frame_.motionTm, 12, "22\n");
    readFloats(frame_.motionTm2, 12, "23\n");
    readFloats(frame_.motionTm3, 12, "24\n");
    frame_.simInfo.setSimInfo4(in_.get<std::uint64_t>("25\n"));
}

void KolImport::readParticles(bool compressed) {
    KolParticleBlock(frame_, in_, {compressed, headerOnly_, groupsKnown_}).read();
}

}  // namespace

int NimbraFrameData::ImportKol(const std::string& filePath, bool noRetry, bool headerOnly) {
    resetHeader(headerOnly);
    allocateCompressed(0);
    frameNumber = 0;
    setImportProblem("");
    if (filePath.empty())
        return kLoadNotFound;
    int status = kLoadBroken;
    try {
        KolStream in;
        if (!in.open(filePath, noRetry)) {
            setImportProblem(fmt::format("{}: {}", filePath, in.problem()));
            return kLoadNotFound;
        }
        status = KolImport(*this, in, headerOnly).run();
        if (status == kLoadOk)
            return kLoadOk;
        if (status == kLoadNotFound)
            setImportProblem(filePath + ": has a negative data offset");
    } catch (const KolDamage& damage) {
        NMBUtils::logLine("NimbraFrameData::ImportKol broken file. File is: %s\n",
                          filePath.c_str());
        setImportProblem(fmt::format("{}: {}", filePath, damage.what));
    } catch (const std::bad_alloc&) {
        NMBUtils::logLine("NimbraFrameData::ImportKol bad memory allocation. File is: %s\n",
                          filePath.c_str());
        setImportProblem(filePath + ": there isn't enough memory");
    }
    // Nothing of a file that fails stays.
    freeData();
    resetHeader(headerOnly);
    return status;
}

}  // namespace nimbra
