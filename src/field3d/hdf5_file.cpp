// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "field3d/hdf5_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "cache/bounded_reader.h"

namespace nimbra {

namespace {

constexpr unsigned char kSignature[8] = {0x89, 'H', 'D', 'F', '\r', '\n', 0x1A, '\n'};
constexpr std::uint64_t kFirstUserBlock = 512;

}  // namespace

bool Hdf5File::hasSignature(InputFile& file) {
    for (std::uint64_t at = 0; at + sizeof kSignature <= file.size();
         at = at == 0 ? kFirstUserBlock : at * 2) {
        std::byte bytes[sizeof kSignature];
        if (!file.readAt(at, bytes))
            return false;
        if (std::memcmp(bytes, kSignature, sizeof kSignature) == 0)
            return true;
    }
    return false;
}

bool Hdf5File::gone() {
    const std::string how = helper_.failure();
    return fail("can't be decoded: the reader of HDF5 files " + how);
}

bool Hdf5File::receiveText(std::uint64_t bytes) {
    std::string text(std::min<std::uint64_t>(bytes, kLongestText), ' ');
    if (bytes > kLongestText || !helper_.receive(std::as_writable_bytes(std::span(text))))
        return gone();
    return fail(printable(text));
}

bool Hdf5File::receiveTree() {
    MessageHead head;
    if (!helper_.receive(std::as_writable_bytes(std::span(&head, 1))))
        return gone();
    if (head.mark != MessageHead::kMark || head.bytes > kLargestTree)
        return fail("can't be decoded: the reader of HDF5 files speaks another language");
    if (head.kind != kTreeFollows)
        return receiveText(head.bytes);
    // Grows with what arrives, not with what is claimed.
    constexpr std::uint64_t kPiece = std::uint64_t(1) << 18;
    std::vector<std::byte> bytes;
    while (bytes.size() < head.bytes) {
        const std::uint64_t done = bytes.size();
        bytes.resize(done + std::min(kPiece, head.bytes - done));
        if (!helper_.receive(std::span(bytes).subspan(done)))
            return gone();
    }
    return unpackTree(bytes, root_) || fail("can't be decoded: its structure makes no sense");
}

bool Hdf5File::open(InputFile& file) {
    std::string problem;
    if (!helper_.start(file.descriptor(), file.size(), problem))
        return fail("can't be decoded: " + problem);
    return receiveTree();
}

bool Hdf5File::read(const F3dDataset& dataset, std::uint64_t firstRow, std::uint64_t count,
                    std::uint64_t rowBytes, const F3dSink& sink) {
    std::uint64_t end = 0, left = 0;
    if (!dataset.problem.empty())
        return fail(fmt::format("'{}' {}", printable(dataset.name), printable(dataset.problem)));
    if (!checkedAdd(firstRow, count, end) || end > dataset.rows || rowBytes != dataset.rowBytes ||
        !checkedMultiply(count, rowBytes, left))
        return fail(fmt::format("has {} rows of {} bytes of '{}', {} of {} are due", dataset.rows,
                                dataset.rowBytes, printable(dataset.name), end, rowBytes));
    const RowRequest request{dataset.number, 0, firstRow, count};
    if (!helper_.send(std::as_bytes(std::span(&request, 1))))
        return gone();
    const std::uint64_t scalar = elementBytes(scalarElement(dataset.element));
    while (left > 0) {
        std::uint32_t n = 0, length = 0;
        if (!helper_.receive(std::as_writable_bytes(std::span(&n, 1))))
            return gone();
        if (n == kFailureFollows)
            return helper_.receive(std::as_writable_bytes(std::span(&length, 1)))
                       ? receiveText(length)
                       : gone();
        if (n == 0 || n > left || scalar == 0 || n % scalar != 0)
            return fail("can't be decoded: the reader of HDF5 files sends too much or too little");
        // Pieces may be as long as a chunk; take them in smaller ones.
        constexpr std::uint32_t kPiece = 1u << 20;
        for (std::uint32_t done = 0; done < n;) {
            piece_.resize(std::min(kPiece, n - done));
            if (!helper_.receive(piece_))
                return gone();
            sink(piece_);
            done += static_cast<std::uint32_t>(piece_.size());
        }
        left -= n;
    }
    return true;
}

}  // namespace nimbra
