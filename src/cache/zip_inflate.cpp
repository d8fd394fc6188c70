// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/zip_inflate.h"

#include <zlib.h>

#include <algorithm>
#include <limits>

#include "foundation/log.h"

namespace nimbra {
namespace {

/// zlib counts in 32 bits: hands it the next piece of what remains.
uInt takePiece(std::int64_t& remaining) {
    const std::int64_t piece = std::min<std::int64_t>(remaining, std::numeric_limits<uInt>::max());
    remaining -= piece;
    return static_cast<uInt>(piece);
}

int inflateAll(z_stream& stream, std::int64_t packedLeft, std::int64_t outLeft) {
    for (;;) {
        if (stream.avail_in == 0)
            stream.avail_in = takePiece(packedLeft);
        if (stream.avail_out == 0)
            stream.avail_out = takePiece(outLeft);
        const int code = inflate(&stream, packedLeft == 0 ? Z_FINISH : Z_NO_FLUSH);
        const bool more =
            (stream.avail_in == 0 && packedLeft > 0) || (stream.avail_out == 0 && outLeft > 0);
        if ((code != Z_OK && code != Z_BUF_ERROR) || !more)
            return code;
    }
}

}  // namespace

bool inflateBuffer(const void* packed, std::int64_t packedBytes, void* out, std::int64_t outBytes,
                   std::int64_t* inflated) {
    z_stream stream = {};
    int code = inflateInit_(&stream, "1.2.8", sizeof stream);
    if (code == Z_OK) {
        stream.next_in = static_cast<Bytef*>(const_cast<void*>(packed));
        stream.next_out = static_cast<Bytef*>(out);
        code = inflateAll(stream, std::max<std::int64_t>(packedBytes, 0),
                          std::max<std::int64_t>(outBytes, 0));
        if (inflated)
            *inflated = static_cast<std::int64_t>(stream.total_out);
        inflateEnd(&stream);
    }
    if (code == Z_STREAM_END)
        return true;
    NMBUtils::logLine("[ERROR] Decompressing Zip (%d)\n", code);
    return false;
}

}  // namespace nimbra
