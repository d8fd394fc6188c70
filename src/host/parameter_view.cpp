// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/parameter_view.h"

namespace nimbra::host {

using namespace TessUtils;

const TessraPluginParameter* ParameterView::find(const char* name) const {
    if (const TessraPluginParameter* value = plugin_.getParameter(name))
        return value;
    const ParameterDef* row = plugin_.parameterList()->desc()->findParamDef(name);
    return row ? row->defaultValue.get() : nullptr;
}

bool ParameterView::getBool(const char* name) const {
    const auto* value = find(name);
    return value && value->getBool(0, time_);
}

int ParameterView::getInt(const char* name) const {
    const auto* value = find(name);
    return value ? value->getInt(0, time_) : 0;
}

float ParameterView::getFloat(const char* name) const {
    const auto* value = find(name);
    return value ? value->getFloat(0, time_) : 0;
}

std::string ParameterView::getString(const char* name) const {
    const auto* value = find(name);
    return value ? value->getString(0, time_) : std::string();
}

Color ParameterView::getColor(const char* name) const {
    const auto* value = find(name);
    return value ? value->getColor(0, time_) : Color();
}

AColor ParameterView::getAColor(const char* name) const {
    const auto* value = find(name);
    return value ? value->getAColor(0, time_) : AColor();
}

Vector ParameterView::getVector(const char* name) const {
    const auto* value = find(name);
    return value ? value->getVector(0, time_) : Vector();
}

Transform ParameterView::getTransform(const char* name) const {
    const auto* value = find(name);
    return value ? value->getTransform(0, time_) : Transform();
}

PluginBase* ParameterView::getObject(const char* name) const {
    const auto* value = find(name);
    return value ? value->getObject(0) : nullptr;
}

}  // namespace nimbra::host
