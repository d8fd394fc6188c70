// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Reads parameters of a plug-in at any time: the scene's value, or else the default of the row.
#pragma once

#include <string>

#include "tessra/parameters.h"
#include "tessra/tessra_plugin.h"

namespace nimbra::host {

class ParameterView {
public:
    ParameterView(TessUtils::TessraPlugin& plugin, double time) : plugin_(plugin), time_(time) {}

    /// The value or its default; null for rows that are unset and have none, and for unknown names.
    const TessUtils::TessraPluginParameter* find(const char* name) const;

    // Zero, black, "" or null where there is no value.
    bool getBool(const char* name) const;
    int getInt(const char* name) const;
    float getFloat(const char* name) const;
    std::string getString(const char* name) const;
    TessUtils::Color getColor(const char* name) const;
    TessUtils::AColor getAColor(const char* name) const;
    TessUtils::Vector getVector(const char* name) const;
    TessUtils::Transform getTransform(const char* name) const;
    PluginBase* getObject(const char* name) const;

private:
    TessUtils::TessraPlugin& plugin_;
    double time_;
};

}  // namespace nimbra::host
