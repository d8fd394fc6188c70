// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What the HDF5 helper and its caller say to each other over a socket. Numbers are the machine's.
//
//   helper:  MessageHead, then `bytes` of a tree (kTreeFollows) or of a text that says what is
//   wrong caller:  RowRequest helper:  uint32 n and n bytes, again and again until all are sent; or
//   kFailureFollows, uint32
//            length and a text, after which nothing more comes of this request
//   ... until the caller closes its end.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "field3d/f3d_tree.h"

namespace nimbra {

struct MessageHead {
    static constexpr std::uint32_t kMark = 0x35443346;  // "F3D5"
    std::uint32_t mark = kMark;
    std::uint32_t kind = 0;
    std::uint64_t bytes = 0;
};
enum MessageKind : std::uint32_t { kFileFailed = 0, kTreeFollows = 1 };

struct RowRequest {
    std::uint32_t dataset = 0;
    std::uint32_t reserved = 0;
    std::uint64_t firstRow = 0;
    std::uint64_t count = 0;
};
inline constexpr std::uint32_t kFailureFollows = 0xFFFFFFFF;
inline constexpr std::uint32_t kLongestText = 1024;

/// Most bytes of a tree's message, things in a tree, groups inside each other, numbers in an
/// attribute, and bytes in a text.
inline constexpr std::uint64_t kLargestTree = std::uint64_t(64) << 20;
inline constexpr std::uint32_t kMostThings = 1u << 18;
inline constexpr int kDeepestGroup = 6;
inline constexpr std::uint32_t kMostNumbers = 4096;
inline constexpr std::uint32_t kLongestName = 1u << 20;
/// Descriptor of the file in the helper; 0 is the socket.
inline constexpr int kHelperFile = 3;

std::string packTree(const F3dGroup& root);
/// False for bytes that are no tree: the helper works on bytes that nobody has vouched for, so
/// nobody vouches for what it says.
bool unpackTree(std::span<const std::byte> bytes, F3dGroup& root);

}  // namespace nimbra
