// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A main for fuzz targets where the compiler has no fuzzer of its own: replays files, or mutations
// of them.
//
//     fuzz_x FILE...
//     fuzz_x --mutate COUNT SEED FILE...
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

std::string readAll(const char* path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void run(const std::string& bytes) {
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

/// One to six changes: a byte, a bit, a telling number, a piece cut out, doubled or moved.
std::string mutated(std::string bytes, std::mt19937_64& random) {
    static constexpr std::uint64_t kNumbers[] = {
        0,          1,          2,          0x7F,       0xFF,       0x7FFF,
        0xFFFF,     0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, 0x40000000, 0x7FFFFFFFFFFFFFFF,
        1ull << 63, ~0ull,      1ull << 32, 4096};
    const auto pick = [&](std::size_t n) { return static_cast<std::size_t>(random() % n); };
    for (std::size_t changes = 1 + pick(6); changes > 0 && bytes.size() > 64; --changes) {
        // Half of the changes go to the head, where the structure is dense.
        const std::size_t reach =
            pick(2) ? bytes.size() : std::min<std::size_t>(bytes.size(), 4096);
        const std::size_t at = pick(reach - 8);
        switch (pick(7)) {
            case 0:
                bytes[at] = static_cast<char>(random());
                break;
            case 1:
                bytes[at] = static_cast<char>(bytes[at] ^ (1 << pick(8)));
                break;
            case 2:
            case 3:
                std::memcpy(&bytes[at], &kNumbers[pick(std::size(kNumbers))], pick(2) ? 4 : 8);
                break;
            case 4:
                bytes.erase(at, 1 + pick(64));
                break;
            case 5:
                bytes.insert(at, bytes.substr(pick(bytes.size()), 1 + pick(64)));
                break;
            default: {
                const std::string piece = bytes.substr(pick(bytes.size()), 1 + pick(16));
                bytes.replace(at, piece.size(), piece);
                break;
            }
        }
    }
    if (pick(20) == 0)
        bytes.resize(pick(bytes.size()));
    return bytes;
}

}  // namespace

int main(int argc, char** argv) {
    const bool mutate = argc > 4 && std::strcmp(argv[1], "--mutate") == 0;
    const long count = mutate ? std::atol(argv[2]) : 0;
    std::mt19937_64 random(mutate ? std::strtoull(argv[3], nullptr, 10) : 0);
    std::vector<std::string> inputs;
    for (int i = mutate ? 4 : 1; i < argc; ++i) {
        inputs.push_back(readAll(argv[i]));
        std::printf("%s: %zu bytes\n", argv[i], inputs.back().size());
        run(inputs.back());
    }
    for (long i = 0; i < count; ++i) {
        const std::string bytes =
            mutated(inputs[static_cast<std::size_t>(i) % inputs.size()], random);
        // What is being tried stays behind a crash.
        if (const char* keep = std::getenv("FUZZ_KEEP"))
            std::ofstream(keep, std::ios::binary) << bytes;
        run(bytes);
        if (i % 1000 == 999)
            std::printf("%ld\n", i + 1);
    }
    return 0;
}
