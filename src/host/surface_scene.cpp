// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/surface_scene.h"

#include <dlfcn.h>

#include <stdexcept>
#include <string>

#include "host/program_files.h"

namespace nimbra::host {

namespace {

using NewSearch = decltype(&nimbraNewSurfaceSearch);

/// The module stays loaded.
NewSearch loadModule() {
    const std::string name = "nimbra_embree.so", path = findModule(name);
    if (path.empty())
        throw std::runtime_error("geometry: " + name + " doesn't lie beside the program");
    void* const module = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    void* const made = module ? ::dlsym(module, "nimbraNewSurfaceSearch") : nullptr;
    if (!made)
        throw std::runtime_error(std::string("geometry: ") + ::dlerror());
    return reinterpret_cast<NewSearch>(made);
}

}  // namespace

SurfaceSearch& SurfaceScene::search() {
    static const NewSearch newSearch = loadModule();
    if (!search_)
        search_.reset(newSearch());
    return *search_;
}

}  // namespace nimbra::host
