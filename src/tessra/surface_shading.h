// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Shading of surfaces and of what behaves like one.
#pragma once

#include <string>

#include "tessra/shading.h"

namespace TessUtils {

/// A scattering function that lets light through by its own rules.
class TESSRA_API BSDFSampler {
public:
    virtual ~BSDFSampler();
    /// Of the surface, 0 to 1; the base is opaque.
    virtual Color getBSDFTransparency() const;
    /// Light along directions that are no matter of chance, as of a mirror; the base has none.
    virtual Color traceBSDFForward(ShadingContext& context);
};

/// An object that answers for its own points. Re-entrant.
class TESSRA_API BSDFShadeable {
public:
    virtual ~BSDFShadeable();
    /// Colour and transparency towards `context.ray` go to `context.volumeResult`.
    virtual void shade(ShadingContext& context) = 0;
};

/// What one light brought to a shaded point.
struct LightingResults {
    const Plugin* light = nullptr;
    LightingSums sums;
};

/// Records for each light, from storage of the thread that asks.
class TESSRA_API LightingResultsAllocator {
public:
    virtual ~LightingResultsAllocator();
    /// Null when there is no memory. Given back to `deleteLightingResult` on the same thread.
    virtual LightingResults* newLightingResults(int threadIndex) = 0;
    /// Ignores null.
    virtual void deleteLightingResult(LightingResults* results, int threadIndex) = 0;
};

/// How a ray's origin and direction change from a pixel to its right and to its lower neighbour.
struct RayDerivs {
    Vector originX, originY;
    Vector dirX, dirY;
};

/// The derivatives behind a mirror with that unit normal, flat around the point: the directions
/// are mirrored, d - 2 (d . n) n (Igehy, "Tracing Ray Differentials", 1999, without the term of
/// the mirror's curvature).
TESSRA_API void setReflectDerivs(RayDerivs& derivs, const Vector& normal);

/// Text of a program for another processor, written piece by piece.
class TESSRA_API ShaderSource {
public:
    void printf(const char* format, ...) __attribute__((format(printf, 2, 3)));
    const std::string& text() const { return text_; }

private:
    std::string text_;
};

}  // namespace TessUtils
