// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/usage.h"

#include "cli/command_line.h"

namespace nimbra::cli {
namespace {

TEST(Usage, UnknownWords_AreNamedWithTheNearest) {
    const struct {
        std::vector<std::string> words;  // the last one first
        const char* told;
    } cases[] = {
        {{"s.json", "rendr"}, "there is no command 'rendr' (did you mean 'render'?)"},
        {{"3", "--sampels", "s.json", "render"},
         "there is no option '--sampels' (did you mean '--samples'?)"},
        {{"--up=z", "--ipu=z", "a.vdb", "view"}, "there is no option '--ipu=z'"},
        {{"b.json", "a.json", "render"}, "'b.json' is too much for render"},
        {{"render"}, ""},
    };
    for (const auto& c : cases) {
        CLI::App app("", "nimbra");
        app.require_subcommand(1);
        int code = 0;
        addRenderCommand(app, code);
        addViewCommand(app, code);
        EXPECT_THROW(app.parse(std::vector<std::string>(c.words)), CLI::ParseError);
        EXPECT_EQ(unknownWords(app), c.told);
    }
}

TEST(Usage, Values_AreChecked) {
    for (const char* good : {"1", "0.5", "1e3"})
        EXPECT_EQ(checkAboveZero(good), "") << good;
    for (const char* bad : {"0", "-1", "nan", "inf", "1e999", "x", "1 ", ""})
        EXPECT_EQ(checkAboveZero(bad),
                  "found '" + std::string(bad) + "', allowed is a number above 0");
    for (const char* good : {"2,density;", "2,density;10,a b;4,vel(x);"})
        EXPECT_EQ(checkMapping(good), "") << good;
    for (const char* bad :
         {"", "2,density", ";", "2,;", "density;", "x,density;", "99,density;", "0,d;", "2,a;;"})
        EXPECT_NE(checkMapping(bad), "") << bad;
}

}  // namespace
}  // namespace nimbra::cli
