// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The parameter tables of plug-ins as text for people and for programs.
#pragma once

#include <string>

#include "host/plugin_registry.h"

namespace nimbra::cli {

/// Word for a row's type: bool, int, float, string, color, acolor, texture, textureFloat,
/// transform, plugin, vector or list.
const char* typeWord(TessUtils::TessraParameterType type);

/// {"plugin", "id", "description", "parameters": [{"name", "type", "default", "count", "interface",
/// "description", "uiHint"}]}; null where a row has no default, interface, description or hint.
std::string parametersJson(const host::PluginType& type);
/// A list of such objects.
std::string parametersJson(const host::PluginRegistry& registry);

/// A table for a terminal of `columns` characters.
std::string parametersText(const host::PluginType& type, int columns);
/// A table for the documentation.
std::string parametersMarkdown(const host::PluginType& type);

}  // namespace nimbra::cli
