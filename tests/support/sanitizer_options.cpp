// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Compiled into every test program: without memory the sanitizers' allocators answer null, as the
// C library does, so that what the code does then can be tested.

// NOLINTBEGIN(bugprone-reserved-identifier): the sanitizers' own names.
extern "C" {
__attribute__((visibility("default"))) const char* __asan_default_options();
__attribute__((visibility("default"))) const char* __tsan_default_options();
const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}
const char* __tsan_default_options() {
    return "allocator_may_return_null=1";
}
}
// NOLINTEND(bugprone-reserved-identifier)
