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

#include "support/mutated.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

std::string readAll(const char* path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void run(const std::string& bytes) {
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
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
            nimbra::test::mutated(inputs[static_cast<std::size_t>(i) % inputs.size()], random);
        // What is being tried stays behind a crash.
        if (const char* keep = std::getenv("FUZZ_KEEP"))
            std::ofstream(keep, std::ios::binary) << bytes;
        run(bytes);
        if (i % 1000 == 999)
            std::printf("%ld\n", i + 1);
    }
    return 0;
}
