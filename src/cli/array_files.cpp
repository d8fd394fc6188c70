// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/array_files.h"

#include <fmt/format.h>

#include <cstring>
#include <functional>
#include <vector>

#include "cache/bounded_reader.h"
#include "cli/cache_frame.h"
#include "cli/value_summary.h"
#include "host/atomic_file.h"

namespace nimbra::cli {
namespace {

enum TypeCode : int { kInt64 = 7, kFloat = 10 };

/// Opens, lets `fill` write through a buffer, and commits.
class ArrayFile {
public:
    ArrayFile(const std::string& path, const host::AbortFlag& abort, std::string& error)
        : file_(path), abort_(abort), error_(error) {
        good_ = file_.open(error_);
    }
    /// False when there is no use in going on.
    bool write(std::string_view bytes) {
        good_ = good_ && !abort_.requested() && file_.write(bytes, error_);
        return good_;
    }
    FileResult finish() {
        if (abort_.requested())
            return FileResult::Aborted;
        return good_ && file_.commit(error_) ? FileResult::Written : FileResult::Failed;
    }

private:
    host::AtomicFile file_;
    const host::AbortFlag& abort_;
    std::string& error_;
    bool good_ = false;
};

/// Writes a record for each particle; `append` puts it behind the text.
FileResult writeRecords(ArrayFile& file, const std::string& header, int count,
                        const std::function<void(int particle, std::string& out)>& append) {
    constexpr std::size_t kPiece = 1 << 20;
    std::string buffer = header;
    for (int i = 0; i < count; ++i) {
        append(i, buffer);
        if (buffer.size() >= kPiece) {
            if (!file.write(buffer))
                return file.finish();
            buffer.clear();
        }
    }
    file.write(buffer);
    return file.finish();
}

/// The bytes of a value; zeros where it can't be had.
void appendValue(NimbraFrameData::PGroup& group, int particle, int channel, std::string& out) {
    // No channel has more than three words.
    char value[16] = {};
    group.getValue(particle, channel, value);
    out.append(value, static_cast<std::size_t>(group.getChannelStride(channel)));
}

/// Names of a channel's components in a PLY file.
std::vector<std::string> plyNames(const INimbraPrtGroup& group, int channel) {
    switch (channel) {
        case kPrtPosition:
            return {"x", "y", "z"};
        case kPrtVelocity:
            return {"vx", "vy", "vz"};
        case kPrtColor:
            return {"red", "green", "blue"};
        default:
            return std::vector<std::string>(
                static_cast<std::size_t>(group.getChannelComponents(channel)),
                particleChannelName(channel));
    }
}

const char* plyType(int type) {
    return type == kFloat ? "float" : type == kInt64 ? "double" : "uint";
}

}  // namespace

bool canDeliver(NimbraFrameData::PGroup& group, int channel) {
    char value[16];
    return group.hasChannel(channel) && group.getChannelStride(channel) > 0 &&
           (group.count < 1 || group.getValue(0, channel, value));
}

std::string npyHeader(const std::string& type, const std::vector<std::int64_t>& shape) {
    std::string extents;
    for (const std::int64_t n : shape)
        extents += fmt::format("{}, ", n);
    std::string text =
        fmt::format("{{'descr': '{}', 'fortran_order': False, 'shape': ({}), }}", type, extents);
    // Magic, version and length take 10 bytes; values start at a multiple of 64.
    constexpr std::size_t kPreamble = 10, kAlignment = 64;
    const std::size_t used = kPreamble + text.size() + 1;
    text.append((kAlignment - used % kAlignment) % kAlignment, ' ');
    text += '\n';
    std::string header("\x93NUMPY\x01\x00", 8);
    header += static_cast<char>(text.size() & 255);
    header += static_cast<char>(text.size() >> 8);
    return header + text;
}

FileResult writeGridNpy(const std::string& path, const GridChannelProxy<float>& channel,
                        const host::AbortFlag& abort, std::string& error) {
    ArrayFile file(path, abort, error);
    const GridStorage& s = *channel.storage;
    if (file.write(npyHeader("<f4", {s.size[2], s.size[1], s.size[0]})))
        forEachPiece(channel, [&](std::span<const float> values) {
            return file.write({reinterpret_cast<const char*>(values.data()), values.size_bytes()});
        });
    return file.finish();
}

FileResult writeParticleNpy(const std::string& path, NimbraFrameData::PGroup& group, int channel,
                            const host::AbortFlag& abort, std::string& error) {
    ArrayFile file(path, abort, error);
    const int type = group.getChannelType(channel);
    std::vector<std::int64_t> shape{group.count};
    if (const int components = group.getChannelComponents(channel); components > 1)
        shape.push_back(components);
    return writeRecords(file,
                        npyHeader(type == kFloat   ? "<f4"
                                  : type == kInt64 ? "<i8"
                                                   : "<u4",
                                  shape),
                        group.count, [&](int particle, std::string& out) {
                            appendValue(group, particle, channel, out);
                        });
}

FileResult writeParticlePly(const std::string& path, NimbraFrameData::PGroup& group,
                            const host::AbortFlag& abort, std::string& error) {
    std::vector<int> channels;
    std::string header = fmt::format(
        "ply\nformat binary_little_endian 1.0\ncomment particles of {}\nelement vertex {}\n",
        printable(group.getName()), group.getCount());
    for (int c = 0; c < kPrtChannelSlots; ++c)
        if (canDeliver(group, c)) {
            channels.push_back(c);
            for (const std::string& name : plyNames(group, c))
                header += fmt::format("property {} {}\n", plyType(group.getChannelType(c)), name);
        }
    header += "end_header\n";
    ArrayFile file(path, abort, error);
    return writeRecords(file, header, group.getCount(), [&](int particle, std::string& out) {
        for (const int c : channels) {
            const std::size_t at = out.size();
            appendValue(group, particle, c, out);
            if (group.getChannelType(c) != kInt64)
                continue;
            std::int64_t whole;
            std::memcpy(&whole, out.data() + at, sizeof whole);
            const auto value = static_cast<double>(whole);
            std::memcpy(out.data() + at, &value, sizeof value);
        }
    });
}

}  // namespace nimbra::cli
