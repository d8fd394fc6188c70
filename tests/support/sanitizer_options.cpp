// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Compiled into every test program: without memory the sanitizers' allocators answer null, as the
// C library does, so that what the code does then can be tested.
// Debian's TBB and OpenVDB aren't built for the thread sanitizer, which therefore doesn't see how
// TBB's tasks wait for each other; OpenVDB writes and frees its trees by such tasks. Nothing of the
// project's own is left out.

// NOLINTBEGIN(bugprone-reserved-identifier): the sanitizers' own names.
extern "C" {
__attribute__((visibility("default"))) const char* __asan_default_options();
__attribute__((visibility("default"))) const char* __tsan_default_options();
__attribute__((visibility("default"))) const char* __tsan_default_suppressions();
const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}
const char* __tsan_default_options() {
    return "allocator_may_return_null=1";
}
const char* __tsan_default_suppressions() {
    return "race:tbb::detail\n"
           "race:libopenvdb.so\n"
           "called_from_lib:libtbb.so\n";
}
}
// NOLINTEND(bugprone-reserved-identifier)
