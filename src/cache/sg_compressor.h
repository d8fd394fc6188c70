// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The compressed form of float arrays: quantised to integers, differenced, equal runs folded, then
// entropy coded. SGCompressor<1> treats its data as one sequence, SGCompressor<3> as a box with
// differences along all three axes. A stream may consist of zones, which are decoded in parallel.
//
// Stream, little-endian:
//   offset size  field      meaning and check
//   0      2     magic      0xFC01: one zone; 0xFC02, 0xFC03: several; else the stream fails
//   several zones:
//   2      2     count      Z; both tables must lie in the input
//   4      4 Z   elements   first output element of each zone, 0 to limit - 1
//   4+4Z   4 Z   bytes      first byte of each zone behind the tables, 0 to the bytes left - 1
//   then the zones, each behind a magic of its own, which isn't looked at
// Zone:
//   0      1     method     0 raw, 1 constant, 2 quantised; else the zone fails
//   1      4     count      floats of the zone (method 2 of the box: three sizes x, y, z)
//   5            raw: the floats; constant: one float;
//                quantised: float scale, float minimum, int32 base, uint8 order, bits (bit_coder.h)
// A field behind the zone's last byte fails the zone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "cache/bit_coder.h"
#include "cache/input_file.h"
#include "foundation/array.h"
#include "foundation/parallel.h"

namespace NMBUtils {

/// What the encoder is told.
struct ZoneEncoding {
    int bits =
        16;  // 20 and more: raw floats; 1 to 19: 2^bits steps over the range; 0, less: `step`
    float step = 0;
    int order = 1;                   // differencing passes, 0 to 255
    float minValue = 3.4028235e38f;  // range to quantise in; these two mean the data's own
    float maxValue = -3.4028235e38f;
    SymbolForm form = SymbolForm::Smaller;
};

/// One part of a stream.
struct Zone {
    const std::uint8_t* src = nullptr;     // behind the zone's magic
    const std::uint8_t* srcEnd = nullptr;  // end of all input: bits may reach up to here
    nimbra::InputFile* file = nullptr;     // where the bytes come from; null: from `src`
    std::uint64_t offset = 0;              // behind the zone's magic, from the stream's begin
    std::uint64_t readPos = 0;             // bytes read so far
    std::uint64_t readLimit = 0;           // bytes that the zone's header fields may take
    float* dst = nullptr;
    std::uint64_t maxCount = 0;  // most elements it may produce
    int result = 0;
    // Of the encoder: what is to be written, and the zone with its magic.
    const float* values = nullptr;
    std::size_t count = 0;
    ZoneEncoding encoding;
    std::vector<std::uint8_t> out;
};

/// Codes one stream at a time; work memory is kept between streams.
template <int N>
class SGCompressor : public NmbParallel {
public:
    /// `threads`: -1 as many as there are processors.
    explicit SGCompressor(int threads = -1, TessUtils::ThreadManager* manager = nullptr);

    /// Encodes or decodes every zone whose index is the job's plus a multiple of their number, as
    /// the job's argument (JobKind) tells.
    void Run(Job* job) override;
    const char* GetName() const override { return "SGCompressor"; }

    /// Fills `dst`, which holds `elementLimit` floats, from a stream of `bytes` bytes. 0 on
    /// failure, `dst` may then be written in parts. A stream of several zones answers 1 even if
    /// single zones failed; what those didn't get to stays as it was. `fromFile`: the path of a
    /// file that begins with the stream and is read in place of `src`.
    int Decode(const std::uint8_t* src, std::uint64_t bytes, float* dst, std::uint64_t elementLimit,
               const char* fromFile = nullptr);

    /// Appends a stream of `zoneCount` zones of nearly equal length (one zone: no tables) to
    /// `out`. False without memory, with a line in the log, and for a stream of over 2 GB.
    bool Encode(const float* values, std::size_t count, int zoneCount, const ZoneEncoding& encoding,
                std::vector<std::uint8_t>& out) requires(N == 1);

    /// Bytes that the work arrays hold now.
    std::size_t workBytes() const;

private:
    using WorkArray = NmbArray<int, long long>;

    enum JobKind : std::int32_t { kEncodeZones = 0, kDecodeZones = 1 };

    int decodeFile(const char* path, std::uint64_t bytes, float* dst, std::uint64_t elementLimit);
    bool readTables(const std::uint8_t* head, std::uint64_t bytes, float* dst,
                    std::uint64_t elementLimit);
    void decodeZones();
    void makeWorkArrays(int count);

    int threadRequest_;
    std::vector<Zone> zones_;
    std::vector<std::unique_ptr<WorkArray>> work_;  // one for each job
};

/// Appends one zone with its magic to `out`. A value that isn't finite makes the whole zone a
/// constant 0; steps too fine for 31 bits make it raw. False without memory, with a line in the
/// log.
bool encodeZone(const float* values, std::size_t count, const ZoneEncoding& encoding,
                std::vector<std::uint8_t>& out);

/// SGCompressor<1>::Encode with an object for this one stream.
bool encodeStream(const float* values, std::size_t count, int zoneCount,
                  const ZoneEncoding& encoding, std::vector<std::uint8_t>& out);

}  // namespace NMBUtils
