// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// nimbra render: pictures of a scene file.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <memory>

#include "cache/file_patterns.h"
#include "cli/cache_frame.h"
#include "cli/commands.h"
#include "cli/exit_codes.h"
#include "cli/frame_names.h"
#include "cli/render_job.h"

namespace nimbra::cli {
namespace {

struct RenderCommand {
    ConsoleOptions console;
    RenderOptions render;
    std::string scene;
};

int runRender(RenderCommand& o) {
    o.console.progress = *progressModeNamed(o.render.progress);
    Console console(o.console);
    if (!console.logFileProblem().empty()) {
        console.log().error(console.logFileProblem());
        return kExitOutput;
    }
    const auto& caches = cacheExtensions();
    if (std::find(caches.begin(), caches.end(), "." + fileExtension(o.scene)) != caches.end()) {
        console.log().error(
            fmt::format("'{}' is a cache; 'nimbra view' makes pictures of it", o.scene));
        return kExitInput;
    }
    host::SceneDiagnostics faults;
    host::SceneDocument document = host::SceneDocument::load(o.scene, faults);
    if (!faults.empty()) {
        for (const host::SceneMessage& message : faults.messages())
            console.log().error(message.str());
        return kExitInput;
    }
    host::PluginRegistry registry(console.log());
    if (!loadPlugins(registry, o.render.module, console.log()))
        return kExitInput;
    const std::string name = plainName(std::filesystem::path(o.scene).stem().string()) + ".png";
    return renderDocument(document, o.render, name, registry, console);
}

}  // namespace

void addRenderCommand(CLI::App& app, int& exitCode) {
    auto options = std::make_shared<RenderCommand>();
    CLI::App* command = app.add_subcommand("render", "Render a scene file");
    command->add_option("scene", options->scene, "Scene file (JSON)")->required();
    addRenderOptions(*command, options->render);
    addTimeOptions(*command, options->render.time, "every cache of the scene");
    addConsoleOptions(*command, options->console);
    command->callback([options, &exitCode] { exitCode = runRender(*options); });
}

}  // namespace nimbra::cli
