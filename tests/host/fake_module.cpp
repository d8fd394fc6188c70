// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A module for the registry's tests: the library of recorders, printing to standard output while it
// loads.
#include <cstdio>

#include "host/fake_library.h"

extern "C" __attribute__((visibility("default"))) PluginLibDesc* getLibDesc() {
    static nimbra::host::test::Record record;
    static nimbra::host::test::RecorderLibrary library(&record);
    std::printf("Fake: no reader\n");
    std::fflush(stdout);
    std::printf("Fake: second line without an end");
    return &library;
}
