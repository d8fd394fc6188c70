// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// All surfaces of a frame, and the first of them along a ray. The module that searches is loaded
// for the first surface.
#pragma once

#include <memory>

#include "host/surface_search.h"

namespace nimbra::host {

/// As SurfaceSearch.
class SurfaceScene {
public:
    void clear() {
        if (search_)
            search_->clear();
    }
    /// For something to be added. Throws std::runtime_error when the module can't be loaded.
    SurfaceSearch& search();
    void commit() {
        if (search_)
            search_->commit();
    }
    bool empty() const { return !search_ || search_->empty(); }
    bool intersect(const TessUtils::TraceRay& ray, TessUtils::ShadingContext& context,
                   SurfaceHit& hit) const {
        return search_ && search_->intersect(ray, context, hit);
    }
    bool occluded(const TessUtils::TraceRay& ray, TessUtils::ShadingContext& context) const {
        return search_ && search_->occluded(ray, context);
    }

private:
    std::unique_ptr<SurfaceSearch> search_;
};

}  // namespace nimbra::host
