// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/usage.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <cmath>
#include <sstream>
#include <vector>

#include "cache/channel_id.h"
#include "host/nearest_name.h"

namespace nimbra::cli {
namespace {

std::vector<std::string> commandNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* command : app.get_subcommands({}))
        names.push_back(command->get_name());
    return names;
}

std::vector<std::string> optionNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::Option* option : app.get_options())
        for (const std::string& name : option->get_lnames())
            names.push_back("--" + name);
    return names;
}

template <class Number>
bool readWhole(const std::string& text, Number& number) {
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end;
}

}  // namespace

std::string unknownWords(const CLI::App& app) {
    const std::vector<CLI::App*> chosen = app.get_subcommands();
    const CLI::App& command = chosen.empty() ? app : *chosen.front();
    const std::vector<std::string> rest = command.remaining();
    for (const std::string& word : rest)
        if (word.starts_with("--"))
            return fmt::format(
                "there is no option '{}'{}", word,
                host::suggestion(word.substr(0, word.find('=')), optionNames(command)));
    if (rest.empty())
        return "";
    if (chosen.empty())
        return fmt::format("there is no command '{}'{}", rest.front(),
                           host::suggestion(rest.front(), commandNames(app)));
    return fmt::format("'{}' is too much for {}", rest.front(), command.get_name());
}

std::string checkAboveZero(const std::string& text) {
    double number = 0;
    if (readWhole(text, number) && std::isfinite(number) && number > 0)
        return "";
    return fmt::format("found '{}', allowed is a number above 0", text);
}

std::function<std::string(const std::string&)> checkBetween(double low, double high) {
    return [=](const std::string& text) -> std::string {
        double number = 0;
        if (readWhole(text, number) && number >= low && number <= high)
            return "";
        return fmt::format("found '{}', allowed is a number from {} to {}", text, low, high);
    };
}

std::string checkMapping(const std::string& text) {
    std::istringstream entries(text);
    bool good = text.ends_with(';');
    for (std::string entry; std::getline(entries, entry, ';');) {
        const std::size_t comma = entry.find(',');
        int channel = -1;
        good = good && comma != entry.npos && comma + 1 < entry.size() &&
               readWhole(entry.substr(0, comma), channel) && channel > 0 && channel < kChannelSlots;
    }
    return good ? ""
                : fmt::format(
                      "found '{}', allowed is CHANNEL,GRID; for each, like "
                      "'2,density;1,heat;'",
                      text);
}

}  // namespace nimbra::cli
