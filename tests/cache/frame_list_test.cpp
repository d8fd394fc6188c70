// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "cache/nimbra_frame.h"
#include "support/caught_log.h"

namespace nimbra {
namespace {

/// A frame that tells when it goes.
struct WatchedFrame : NimbraFrameData {
    explicit WatchedFrame(int& goneCount) : gone(goneCount) {}
    ~WatchedFrame() override { ++gone; }
    int& gone;
};

std::string line(const char* change, const NimbraFrameData* frame, int count, int headerOnly,
                 const char* path) {
    char text[300];
    std::snprintf(text, sizeof text, "NimbraFrameData refCount%s %08X %d, I:%d, %s\n", change,
                  static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(frame)), count, headerOnly,
                  path);
    return text;
}

TEST(FrameDataArray, Counts_AreKeptAndLogged) {
    test::CaughtLog log;
    NimbraFrame::FrameDataArray list;
    int gone = 0;
    NimbraFrameData* const frame = new WatchedFrame(gone);
    frame->path = "/tmp/a_0001.kol";
    EXPECT_EQ(list.acquireFrame(nullptr, true), nullptr);
    EXPECT_EQ(list.acquireFrame(frame, true), frame);
    EXPECT_EQ(list.acquireFrame(frame, false), frame);
    EXPECT_EQ(log.take(), line("=1", frame, 1, 0, "/tmp/a_0001.kol") +
                              line("++", frame, 2, 0, "/tmp/a_0001.kol"));
    frame->flags = kFrameHeaderOnly | kFramePrivate;
    list.releaseFrame(frame);
    EXPECT_EQ(gone, 0);
    EXPECT_EQ(log.take(), line("--", frame, 1, 1, "/tmp/a_0001.kol"));
    const std::string last = line("--", frame, 0, 1, "/tmp/a_0001.kol");
    list.releaseFrame(frame);
    EXPECT_EQ(gone, 1);
    EXPECT_EQ(list.size, 0);
    EXPECT_EQ(log.take(), last);
    list.releaseFrame(frame);
    list.releaseFrame(nullptr);
    EXPECT_EQ(log.take(), "");
}

TEST(FrameDataArray, TheEnd_ReportsWhatIsLeftFromTheLastOn) {
    test::CaughtLog log;
    int gone = 0;
    {
        NimbraFrame::FrameDataArray list;
        for (int number : {3, 5}) {
            NimbraFrameData* const frame = list.acquireFrame(new WatchedFrame(gone), true);
            frame->frameNumber = number;
            list.acquireFrame(frame, false);
        }
        list.acquireFrame(list[1], true);  // twice in the list
        list[0]->refCount = 7;
        log.take();
    }
    EXPECT_EQ(log.take(),
              "Nimbra cache file not released 5 ref:1\n"
              "Nimbra cache file not released 5 ref:1\n"
              "Nimbra cache file not released 3 ref:7\n");
    EXPECT_EQ(gone, 2);
}

}  // namespace
}  // namespace nimbra
