// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/value_summary.h"

#include <fmt/format.h>
#include <zlib.h>

#include <algorithm>
#include <bit>
#include <limits>

namespace nimbra::cli {

float FloatSummary::min() const {
    return any_ ? min_ : std::numeric_limits<float>::quiet_NaN();
}

float FloatSummary::max() const {
    return any_ ? max_ : std::numeric_limits<float>::quiet_NaN();
}

void CheckSum::add(std::span<const std::byte> bytes) {
    crc_ = crc32_z(crc_, reinterpret_cast<const Bytef*>(bytes.data()), bytes.size());
}

std::string CheckSum::text() const {
    return bitsText(static_cast<std::uint32_t>(crc_));
}

std::vector<std::int64_t> samplePlaces(std::int64_t count, std::int64_t most) {
    std::vector<std::int64_t> places(static_cast<std::size_t>(std::clamp(count, {}, most)));
    for (std::size_t k = 0; k < places.size(); ++k) {
        const auto i = static_cast<std::int64_t>(k);
        places[k] = count <= most ? i : i * (count - 1) / (most - 1);
    }
    return places;
}

void forEachPiece(const GridChannelProxy<float>& channel,
                  const std::function<bool(std::span<const float>)>& piece) {
    constexpr std::int64_t kPiece = 1 << 16;
    const std::int64_t cells = channel.storage->cells;
    const float* const dense = channel.denseVoxels();
    std::vector<float> buffer;
    if (!dense)
        buffer.resize(static_cast<std::size_t>(std::min(cells, kPiece)));
    for (std::int64_t at = 0; at < cells; at += kPiece) {
        const std::int64_t n = std::min(kPiece, cells - at);
        if (!dense)
            channel.readRun(at, n, buffer.data());
        if (!piece({dense ? dense + at : buffer.data(), static_cast<std::size_t>(n)}))
            return;
    }
}

std::string bitsText(std::uint32_t bits) {
    return fmt::format("{:08x}", bits);
}

std::string bitsText(float value) {
    return bitsText(std::bit_cast<std::uint32_t>(value));
}

std::string bytesText(std::span<const unsigned char> bytes) {
    std::string text;
    for (const unsigned char byte : bytes)
        text += fmt::format("{:02x}", byte);
    return text;
}

}  // namespace nimbra::cli
