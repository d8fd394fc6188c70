// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "tessra/surface_shading.h"

#include <cstdarg>
#include <cstdio>

namespace TessUtils {

DMCParam BRDFSampler::getDMCParam(const ShadingContext&) const {
    return {};
}

Color BRDFSampler::traceForward(ShadingContext&) {
    return {};
}

Color BSDFSampler::getBSDFTransparency() const {
    return {};
}

Color BSDFSampler::traceBSDFForward(ShadingContext&) {
    return {};
}

void setReflectDerivs(RayDerivs& derivs, const Vector& normal) {
    for (Vector* dir : {&derivs.dirX, &derivs.dirY})
        *dir = *dir - normal * (2 * dot(*dir, normal));
}

void ShaderSource::printf(const char* format, ...) {
    va_list args, again;
    va_start(args, format);
    va_copy(again, args);
    const int length = std::vsnprintf(nullptr, 0, format, args);
    if (length > 0) {
        const std::size_t start = text_.size();
        text_.resize(start + std::size_t(length));
        std::vsnprintf(text_.data() + start, std::size_t(length) + 1, format, again);
    }
    va_end(again);
    va_end(args);
}

}  // namespace TessUtils
