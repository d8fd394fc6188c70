// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// nimbra params: the plug-ins that a scene can use, and their parameters.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>
#include <memory>

#include "cli/commands.h"
#include "cli/console.h"
#include "cli/exit_codes.h"
#include "cli/parameter_json.h"
#include "cli/render_options.h"
#include "cli/terminal.h"
#include "host/nearest_name.h"
#include "host/plugin_registry.h"

namespace nimbra::cli {
namespace {

struct ParamsOptions {
    ConsoleOptions console;
    std::string plugin;
    std::string module;
    bool json = false;
    bool markdown = false;
};

void printList(const host::PluginRegistry& registry) {
    std::size_t width = 0;
    for (const host::PluginType* type : registry.types())
        width = std::max(width, std::string(type->name()).size());
    for (const host::PluginType* type : registry.types())
        std::cout << fmt::format("{:{}}  {:12}  {:3} parameters  {}\n", type->name(), width,
                                 type->desc->getPluginID(), type->rows.size(),
                                 type->ofHost ? "host" : "module");
    std::cout << "\nnimbra params NAME prints the table of one of them.\n";
}

int printAll(const host::PluginRegistry& registry, const ParamsOptions& o) {
    if (o.json) {
        std::cout << parametersJson(registry);
    } else if (o.markdown) {
        for (const host::PluginType* type : registry.types())
            std::cout << parametersMarkdown(*type);
    } else {
        printList(registry);
    }
    return kExitDone;
}

int runParams(const ParamsOptions& o) {
    Console console(o.console);
    host::PluginRegistry registry(console.log());
    host::addHostPlugins(registry);
    std::string error;
    if (!registry.loadModule(
            o.module.empty() ? host::PluginRegistry::defaultModulePath() : o.module, error)) {
        console.log().error(error);
        return kExitInput;
    }
    if (o.plugin.empty())
        return printAll(registry, o);
    const host::PluginType* type = registry.find(o.plugin);
    if (!type) {
        console.log().error(fmt::format("there is no plug-in '{}'{}", o.plugin,
                                        host::suggestion(o.plugin, registry.typeNames())));
        return kExitUsage;
    }
    std::cout << (o.json       ? parametersJson(*type)
                  : o.markdown ? parametersMarkdown(*type)
                               : parametersText(*type, terminalColumns(1)));
    return kExitDone;
}

}  // namespace

void addParamsCommand(CLI::App& app, int& exitCode) {
    auto options = std::make_shared<ParamsOptions>();
    CLI::App* command =
        app.add_subcommand("params", "List plug-ins, or the parameters of one with their defaults");
    command->add_option("plugin", options->plugin, "Name of a plug-in, like NmbShaderSim");
    auto* json = command->add_flag("--json", options->json, "As JSON");
    command->add_flag("--markdown", options->markdown, "As tables for documents")->excludes(json);
    command->add_option("--module", options->module, "Plug-in library to load")->type_name("FILE");
    addConsoleOptions(*command, options->console);
    command->callback([options, &exitCode] { exitCode = runParams(*options); });
}

}  // namespace nimbra::cli
