// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Krakatoa PRT particle files, version 1: a header, a list of channels, and all particles as one
// zlib stream. Reads what it needs and validates nothing but what memory safety takes.
//
//   offset  size  field
//   0       8     magic, not compared
//   8       4     header length: with version >= 1, what it is above 56 is skipped behind the count
//   12      32    identification, not compared
//   44      4     version
//   48      8     particle count; its low 32 bits count
//   then    4     reserved
//   then    4     channel count; none when negative
//   then    4     length of a channel's definition, ignored: 44
//   then    44 n  channels (PRTChannelDefinition)
//   then          one zlib stream of particle records, to the end
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "foundation/array.h"

namespace nimbra {
class InputFile;
}

namespace PrtIO {

/// A channel, as it stands in the file.
struct PRTChannelDefinition {
    char name[32];        // ends with a zero
    std::int32_t type;    // DataType
    std::int32_t arity;   // components of a particle
    std::int32_t offset;  // bytes, in a particle's record

    std::string nameText() const;
};
static_assert(sizeof(PRTChannelDefinition) == 44);

enum DataType : std::int32_t {
    kInt16,
    kInt32,
    kInt64,
    kFloat16,
    kFloat32,
    kFloat64,
    kUint16,
    kUint32,
    kUint64,
    kInt8,
    kUint8,
};
/// Bytes of a value; 0 for types that don't exist.
int dataTypeWidth(int type);
/// "float32"; "unknown" for types that don't exist.
const char* dataTypeName(int type);
/// A half float as a float. Denormal ones become a zero of the same sign.
float widenHalf(std::uint16_t half);

/// What the header says, for listings.
struct PrtHeader {
    bool knownMagic = false;
    std::int32_t headerLength = 0;
    std::string identification;
    std::int32_t version = 0;
    std::int64_t particles = 0;
};

/// A file in memory.
class PrtFile {
public:
    unsigned char* data = nullptr;  // all records
    std::int32_t count = 0;
    std::int32_t recordSize = 0;  // sum of the channels' widths times arities
    // Places in `channels`, -1 for those that aren't there.
    std::int32_t position = -1, velocity = -1, age = -1, size = -1;
    std::int32_t scale = -1, id = -1, orientation = -1, color = -1;
    NMBUtils::NmbArray<PRTChannelDefinition> channels;

    PrtFile() = default;
    ~PrtFile() { clear(); }
    PrtFile(const PrtFile&) = delete;
    PrtFile& operator=(const PrtFile&) = delete;

    /// Replaces the contents by a file's; 0 when it can't be opened, ends before its particles, or
    /// states more particles than its size can hold or memory has room for. A stream that is
    /// damaged or too short is no failure: the particles behind the damage are zeros.
    int load(const char* path);
    /// Copies one channel of one particle to `out`, at most `outBytes` of it; half floats become
    /// floats. 0 (and `out` untouched) for a channel that isn't there, a type other than int64,
    /// float16 and float32, or a place outside the data.
    int readChannel(int channelIndex, int particle, void* out, std::size_t outBytes) const;

    const PrtHeader& header() const { return header_; }
    /// Bytes that the stream held, and those that the particles take.
    std::int64_t inflatedBytes() const { return inflatedBytes_; }
    std::int64_t dataBytes() const { return dataBytes_; }
    /// What is wrong with the file, empty if nothing is.
    const std::string& problem() const { return problem_; }

private:
    void clear();
    bool fail(const char* problem);
    bool readHeader(nimbra::InputFile& file, std::uint64_t& at);
    bool readDefinitions(nimbra::InputFile& file, std::uint64_t& at);
    bool allocateData(std::uint64_t packedBytes);
    void inflateData(nimbra::InputFile& file, std::uint64_t at);
    void findChannels();

    PrtHeader header_;
    std::int64_t dataBytes_ = 0, inflatedBytes_ = 0;
    std::string problem_;
};

}  // namespace PrtIO
