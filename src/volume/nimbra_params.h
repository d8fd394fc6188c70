// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Read-only view of a container's parameters, so that the shader core needn't know the host.
#pragma once

#include "tessra/math.h"

namespace nimbra {

class NimbraFrameData;

/// Values at the frame's time. A key that isn't set answers with its default from the parameter
/// table, one that isn't in the table with 0 (black).
class NimbraParams {
public:
    virtual ~NimbraParams() = default;
    virtual int getInt(const char* key) const = 0;  // also of bool rows
    virtual float getFloat(const char* key) const = 0;
    virtual TessUtils::Color getColor(const char* key) const = 0;
    /// Whether a texture (TextureSlot) is connected.
    virtual bool hasTexture(int slot) const = 0;
    /// The factor that makes a density per unit of the frame's cells one per world unit. 1 without
    /// a frame.
    virtual float getDensityScale(const NimbraFrameData* frame) const = 0;
};

}  // namespace nimbra
