// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// PRT particle files for tests: sound ones, and ones whose fields say anything.
#pragma once

#include <zlib.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace nimbra::test {

struct PrtChannel {
    std::string name;
    std::int32_t type = 4;
    std::int32_t arity = 1;
    std::int32_t offset = 0;
};

struct PrtSpec {
    std::int32_t headerLength = 56;
    std::int32_t version = 1;
    std::int64_t particles = 0;
    std::vector<PrtChannel> channels;
    std::string records{};
    std::int64_t statedChannels = -1;  // of what there are when negative
    int level = 6;
};

template <class T>
void appendBytes(std::string& out, const T& value) {
    out.append(reinterpret_cast<const char*>(&value), sizeof value);
}

inline std::string zlibStream(const std::string& plain, int level = 6) {
    uLongf size = compressBound(plain.size());
    std::string out(size, '\0');
    compress2(reinterpret_cast<Bytef*>(out.data()), &size,
              reinterpret_cast<const Bytef*>(plain.data()), plain.size(), level);
    out.resize(size);
    return out;
}

inline std::string prtBytes(const PrtSpec& spec) {
    std::string out("\xC0PRT\r\n\x1A\n", 8);
    appendBytes(out, spec.headerLength);
    std::string text = "Extensible Particle Format";
    text.resize(32);
    out += text;
    appendBytes(out, spec.version);
    appendBytes(out, spec.particles);
    if (spec.headerLength > 56 && spec.version >= 1)
        out.append(static_cast<std::size_t>(spec.headerLength) - 56, '\x55');
    appendBytes(out, std::int32_t{4});
    appendBytes(out, spec.statedChannels < 0 ? static_cast<std::int32_t>(spec.channels.size())
                                             : static_cast<std::int32_t>(spec.statedChannels));
    appendBytes(out, std::int32_t{44});
    for (const PrtChannel& c : spec.channels) {
        std::string name = c.name;
        name.resize(32);
        out += name;
        appendBytes(out, c.type);
        appendBytes(out, c.arity);
        appendBytes(out, c.offset);
    }
    return out + zlibStream(spec.records, spec.level);
}

/// Particles i = 0 ... with position (i, i + 0.25, i + 0.5), size 2 i and ID 100 + i.
inline PrtSpec simplePrt(int particles) {
    PrtSpec spec{.particles = particles,
                 .channels = {{"Position", 4, 3, 0}, {"Size", 4, 1, 12}, {"ID", 2, 1, 16}}};
    for (int i = 0; i < particles; ++i) {
        const float f = static_cast<float>(i);
        for (const float v : {f, f + 0.25f, f + 0.5f, 2 * f})
            appendBytes(spec.records, v);
        appendBytes(spec.records, std::int64_t{100} + i);
    }
    return spec;
}

}  // namespace nimbra::test
