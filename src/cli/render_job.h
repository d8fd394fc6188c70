// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// From a scene document to pictures: what `render` and `view` have in common.
#pragma once

#include <string>

#include "cli/console.h"
#include "cli/render_options.h"
#include "host/plugin_registry.h"
#include "host/scene_file.h"

namespace nimbra::cli {

/// Registers the host's plug-ins and those of the module; false with a line in the log.
bool loadPlugins(host::PluginRegistry& registry, const std::string& module, host::HostLog& log);

/// Renders the document and writes its pictures. `defaultOutput` is the name of the picture where
/// the user gave none. Returns an exit code.
int renderDocument(host::SceneDocument& document, const RenderOptions& options,
                   const std::string& defaultOutput, host::PluginRegistry& registry,
                   Console& console);

}  // namespace nimbra::cli
