// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A folder with a sequence of small .kol files, and a count of how often its files are opened.
#pragma once

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "kol_writer/kol_writer.h"
#include "support/temp_folder.h"

namespace nimbra::test {

struct KolFrame {
    /// A value for each cell, or one for all, by channel.
    std::map<int, std::vector<float>> channels;
    std::array<std::int32_t, 3> size{3, 2, 2};
    std::array<float, 3> offset{0, 0, 0};
    float cellsInUnit = 1;
    float timeStep = 1;
    /// A group of one particle without ID and age, if named.
    std::string group = {};
};

/// Frames are "s_0001.kol" and so on.
class KolSequence {
public:
    std::string pattern() const { return folder / "s_####.kol"; }
    std::string file(int number) const {
        char name[32];
        std::snprintf(name, sizeof name, "s_%04d.kol", number);
        return folder / name;
    }
    /// Writes a frame; one that replaces another has another time.
    void write(int number, const KolFrame& f) {
        KolWriter writer;
        writer.frameNumber = number;
        writer.timeStep = f.timeStep;
        const float s = f.cellsInUnit;
        const float transform[12] = {s, 0, 0, 0,           s,           0,
                                     0, 0, s, f.offset[0], f.offset[1], f.offset[2]};
        writer.setGrid(f.size.data(), transform);
        const auto cells = static_cast<std::size_t>(f.size[0] * f.size[1] * f.size[2]);
        for (const auto& [id, values] : f.channels) {
            const std::vector<float> all =
                values.size() == 1 ? std::vector<float>(cells, values[0]) : values;
            EXPECT_TRUE(writer.addChannel(id, all, {.encoding = {.bits = 24}})) << id;
        }
        if (!f.group.empty()) {
            static constexpr float kPosition[3] = {1, 1, 1};
            KolGroup group;
            group.name = f.group;
            group.count = 1;
            group.channels.push_back({.values = std::as_bytes(std::span(kPosition))});
            EXPECT_TRUE(writer.addGroup(group));
        }
        std::string problem;
        EXPECT_TRUE(writer.writeFile(file(number), problem)) << problem;
        std::filesystem::last_write_time(
            file(number),
            std::filesystem::file_time_type::clock::now() + std::chrono::seconds(++written_));
    }
    /// A frame of smoke of that density alone.
    void write(int number, float smoke) { write(number, KolFrame{{{kSmoke, {smoke}}}}); }
    void remove(int number) { std::filesystem::remove(file(number)); }
    /// A file that lost its end.
    void damage(int number) { writeText(number, "a file without an end"); }
    void writeText(int number, const std::string& text) {
        folder.write(std::filesystem::path(file(number)).filename(), text);
    }

    TempFolder folder;

private:
    int written_ = 0;
};

/// Counts how often files of a folder are opened; looking at their times is none.
class OpenCount {
public:
    explicit OpenCount(const TempFolder& folder) : queue_(inotify_init1(IN_NONBLOCK)) {
        EXPECT_GE(inotify_add_watch(queue_, folder.path().c_str(), IN_OPEN), 0);
    }
    ~OpenCount() { close(queue_); }
    OpenCount(const OpenCount&) = delete;
    OpenCount& operator=(const OpenCount&) = delete;

    /// Since the last time it was asked.
    int take() {
        alignas(inotify_event) char bytes[4096];
        int count = 0;
        for (ssize_t n; (n = read(queue_, bytes, sizeof bytes)) > 0;)
            for (ssize_t at = 0; at < n;) {
                const auto* event = reinterpret_cast<const inotify_event*>(bytes + at);
                count += !(event->mask & IN_ISDIR);
                at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            }
        return count;
    }

private:
    int queue_;
};

}  // namespace nimbra::test
