// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Commands as a user calls them.
#pragma once

#include <gtest/gtest.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/exit_codes.h"

namespace nimbra::cli {

struct Answer {
    int code = 0;
    std::string out, err;
};

/// Runs one command line: the command, then its words.
inline Answer run(std::vector<std::string> words) {
    CLI::App app("", "nimbra");
    Answer answer;
    for (const auto add :
         {addInfoCommand, addDumpCommand, addConvertCommand, addViewCommand, addRenderCommand})
        add(app, answer.code);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    std::reverse(words.begin(), words.end());
    try {
        app.parse(words);
    } catch (const CLI::ParseError& e) {
        answer.code = app.exit(e) == 0 ? kExitDone : kExitUsage;
    }
    std::cout << std::flush;
    answer.out = testing::internal::GetCapturedStdout();
    answer.err = testing::internal::GetCapturedStderr();
    return answer;
}

/// The words are separated by blanks.
inline Answer run(const std::string& line) {
    std::istringstream words(line);
    return run(std::vector<std::string>{std::istream_iterator<std::string>(words), {}});
}

}  // namespace nimbra::cli
