// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What is said of a command line that can't be followed.
#pragma once

#include <functional>
#include <string>

namespace CLI {
class App;
}

namespace nimbra::cli {

/// Of the words that no command took, what is wrong with the first: an unknown command or option
/// with the nearest name, or a word too many. Empty where all words were taken.
std::string unknownWords(const CLI::App& app);

/// Checks of option values: empty, or what was found and what is allowed.
std::string checkAboveZero(const std::string& text);
std::function<std::string(const std::string&)> checkBetween(double low, double high);
/// Channel mappings like "2,density;1,heat;".
std::string checkMapping(const std::string& text);

}  // namespace nimbra::cli
