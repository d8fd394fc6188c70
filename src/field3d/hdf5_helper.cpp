// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The process that reads HDF5 files for others: one file on descriptor 3, one socket on 0. It takes
// its size as its argument, limits itself before it touches a byte, and may die of a damaged file
// without harm to anybody.
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <exception>

#include "field3d/hdf5_walk.h"
#include "field3d/tree_message.h"

namespace nimbra {

namespace {

enum Ending { kDone = 0, kNoLimits = 2, kCallerGone = 3, kOutOfMemory = 4 };

void limit(__rlimit_resource what, std::uint64_t value) {
    const rlimit both = {value, value};
    if (setrlimit(what, &both) != 0)
        _exit(kNoLimits);
}

/// Processor time for unpacking the whole file a few times; memory for the library, its caches and
/// one chunk; no core file, no files to write, no new rights.
void limitSelf(std::uint64_t fileBytes) {
    constexpr std::uint64_t kLeastSeconds = 2, kBytesPerSecond = 2u << 20;
    const std::uint64_t seconds = kLeastSeconds + fileBytes / kBytesPerSecond;
    limit(RLIMIT_CORE, 0);
    limit(RLIMIT_FSIZE, 0);
    limit(RLIMIT_CPU, seconds);
#ifndef NIMBRA_SANITIZED
    constexpr std::uint64_t kLeastMemory = std::uint64_t(512) << 20;
    constexpr std::uint64_t kMostShare = std::uint64_t(1) << 30;
    limit(RLIMIT_AS, kLeastMemory + std::min(fileBytes, kMostShare));
#endif
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
}

void sendAll(const void* data, std::size_t bytes) {
    const char* at = static_cast<const char*>(data);
    while (bytes > 0) {
        const ssize_t n = send(0, at, bytes, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            _exit(kCallerGone);
        at += n;
        bytes -= static_cast<std::size_t>(n);
    }
}

void sendMessage(MessageKind kind, const std::string& body) {
    MessageHead head;
    head.kind = kind;
    head.bytes = body.size();
    sendAll(&head, sizeof head);
    sendAll(body.data(), body.size());
}

void sendFailure(const std::string& text) {
    const std::uint32_t words[2] = {kFailureFollows, static_cast<std::uint32_t>(text.size())};
    sendAll(words, sizeof words);
    sendAll(text.data(), text.size());
}

bool receiveRequest(RowRequest& request) {
    return recv(0, &request, sizeof request, MSG_WAITALL) == sizeof request;
}

/// Selects [first, first + count) of the first dimension, all of the second.
bool select(hid_t space, const Hdf5Rows& rows, std::uint64_t first, std::uint64_t count) {
    const hsize_t start[2] = {first, 0};
    const hsize_t size[2] = {count, rows.rowBytes / rows.scalarBytes};
    return H5Sselect_hyperslab(space, H5S_SELECT_SET, start, nullptr, size, nullptr) >= 0;
}

/// Sends what a request asks for in pieces of whole chunks, so that none is unpacked twice.
void sendRows(Hdf5Rows& rows, const RowRequest& request) {
    constexpr std::uint64_t kPieceBytes = std::uint64_t(1) << 20;
    if (request.firstRow > rows.rows || request.count > rows.rows - request.firstRow)
        return sendFailure("has fewer rows than are due");
    // Rank 1 is one row; its pieces are ranges of scalars.
    const bool flat = rows.rank == 1;
    const std::uint64_t unit = flat ? rows.scalarBytes : rows.rowBytes;
    const std::uint64_t units = flat ? rows.rowBytes / rows.scalarBytes : rows.rows;
    if (unit == 0 || units == 0 || request.count == 0)
        return;
    std::uint64_t at = flat ? 0 : request.firstRow;
    const std::uint64_t end = flat ? units : request.firstRow + request.count;
    const std::uint64_t chunkBytes = std::max<std::uint64_t>(1, rows.chunk * unit);
    const std::uint64_t step = rows.chunk * std::max<std::uint64_t>(1, kPieceBytes / chunkBytes);
    const Hdf5Handle fileSpace(H5Dget_space(rows.dataset.get()), H5Sclose);
    std::vector<char> piece;
    while (at < end) {
        const std::uint64_t count = std::min(end, at / step * step + step) - at;
        const hsize_t size[2] = {count, rows.rowBytes / rows.scalarBytes};
        const Hdf5Handle memory(H5Screate_simple(rows.rank, size, nullptr), H5Sclose);
        piece.resize(count * unit);
        if (!fileSpace || !memory || !select(fileSpace.get(), rows, at, count) ||
            H5Dread(rows.dataset.get(), rows.memoryType.get(), memory.get(), fileSpace.get(),
                    H5P_DEFAULT, piece.data()) < 0)
            return sendFailure("has data that can't be unpacked");
        const auto bytes = static_cast<std::uint32_t>(piece.size());
        sendAll(&bytes, sizeof bytes);
        sendAll(piece.data(), piece.size());
        at += count;
    }
}

void serve(std::uint64_t fileBytes) {
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
    H5PLset_loading_state(0);
    const std::string path = "/proc/self/fd/" + std::to_string(kHelperFile);
    const hid_t file = H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
    if (file < 0)
        return sendMessage(kFileFailed, "is a damaged HDF5 file");
    Hdf5Walk walk(file, fileBytes);
    F3dGroup root;
    if (!walk.run(root))
        return sendMessage(kFileFailed, "is an HDF5 file with a structure that makes no sense");
    const std::string tree = packTree(root);
    if (tree.size() > kLargestTree)
        return sendMessage(kFileFailed, "is an HDF5 file with too much in it");
    sendMessage(kTreeFollows, tree);
    for (RowRequest request; receiveRequest(request);) {
        if (request.dataset < walk.datasets().size())
            sendRows(walk.datasets()[request.dataset], request);
        else
            sendFailure("isn't there");
    }
}

}  // namespace

}  // namespace nimbra

int main(int argc, char** argv) {
    using namespace nimbra;
    const std::uint64_t fileBytes = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 0;
    limitSelf(fileBytes);
    try {
        serve(fileBytes);
    } catch (const std::exception&) {
        _exit(kOutOfMemory);
    }
    // Without the library's clean-up, which would look at the damage once more.
    _exit(kDone);
}
