// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/prt_loader_plugin.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <type_traits>

#include "cache/env_path.h"
#include "cache/file_patterns.h"
#include "tessra/renderer.h"

namespace nimbra {

using namespace TessUtils;

namespace {

/// The whole frame nearest to a time.
std::int64_t frameOfTime(double time) {
    const double frame = std::floor(time + 0.5);
    return frame >= INT32_MIN && frame <= INT32_MAX ? static_cast<std::int64_t>(frame) : INT32_MIN;
}

template <class T>
bool read(const PrtIO::PrtFile& file, int channel, int particle, T& out) {
    return file.readChannel(channel, particle, &out, sizeof out) != 0;
}

Vector readVector(const PrtIO::PrtFile& file, int channel, int particle, float factor) {
    float v[3] = {};
    if (!file.readChannel(channel, particle, v, sizeof v))
        return {};
    return Vector{v[0], v[1], v[2]} * factor;
}

/// A list of the filler alone, with room for the particles.
template <class T>
void startList(std::vector<T>& out, int particles) {
    out.clear();
    out.reserve(static_cast<std::size_t>(particles) + 1);
    out.push_back(T());
}

/// The filler, and a value for each particle. Without memory it comes out empty.
template <class T, class Value>
void fillList(std::vector<T>& out, int particles, Value&& value) {
    try {
        startList(out, particles);
        for (int i = 0; i < particles; ++i)
            out.push_back(value(i));
    } catch (const std::bad_alloc&) {
        out.clear();
    }
}

}  // namespace

NimbraPrtLoaderPlugin::NimbraPrtLoaderPlugin(TessraPluginDesc* desc) : TessraPlugin(desc) {
    paramList->setParamCache("filesrc", &filesrc_);
    paramList->setParamCache("usetm", &usetm_);
    paramList->setParamCache("velmult", &velmult_);
}

PluginInterface* NimbraPrtLoaderPlugin::getInterface(InterfaceID id) {
    if (id == ids::kPerParticleData)
        return static_cast<PerParticleDataSourceInterface*>(this);
    if (id == ids::kPerParticleData2)
        return static_cast<PerParticleDataSourceInterface2*>(this);
    return TessraPlugin::getInterface(id);
}

bool NimbraPrtLoaderPlugin::isInWorldSpace() {
    // This may be the first question of all, and it has no time.
    if (!asked_)
        paramList->cacheParams(0);
    return usetm_ == 0;
}

int NimbraPrtLoaderPlugin::prepare(double time) {
    // Whoever asks may be earlier in the frame than this plug-in.
    asked_ = true;
    paramList->cacheParams(time);
    if (filesrc_.empty())
        return 0;
    const FilePattern pattern(networkPath(expandEnvironment(adjustRelativePath(this, filesrc_))));
    std::string path = pattern.fill(frameOfTime(time));
    if (path != loadedPath_) {
        file_.load(path.c_str());
        loadedPath_ = std::move(path);
    }
    return 1;
}

int NimbraPrtLoaderPlugin::particlesAt(double time) {
    try {
        return prepare(time) ? std::clamp(file_.count, 0, INT32_MAX - 1) : 0;
    } catch (const std::bad_alloc&) {
        return 0;
    }
}

int NimbraPrtLoaderPlugin::getCount(double time) {
    return particlesAt(time) + 1;
}

void NimbraPrtLoaderPlugin::getPositions(double time, std::vector<Vector>& out) {
    const int particles = particlesAt(time);
    fillList(out, particles, [&](int i) { return readVector(file_, file_.position, i, 1); });
}

void NimbraPrtLoaderPlugin::getVelocities(double time, std::vector<Vector>& out) {
    const int particles = particlesAt(time);
    fillList(out, particles, [&](int i) { return readVector(file_, file_.velocity, i, velmult_); });
}

void NimbraPrtLoaderPlugin::getSizes(double time, std::vector<float>& out) {
    const int particles = particlesAt(time);
    fillList(out, particles, [&](int i) {
        float size = 0;
        return read(file_, file_.size, i, size) ? size : 1.0f;
    });
}

void NimbraPrtLoaderPlugin::getIds(double time, std::vector<std::int64_t>& out) {
    PerParticleChannels lists;
    getChannels(lists, time, kPerParticleIds);
    out.swap(lists.ids);
}

void NimbraPrtLoaderPlugin::getInstances(double time, std::vector<PluginBase*>& objects,
                                         std::vector<Transform>& transforms,
                                         std::vector<int>& which) {
    particlesAt(time);
    objects.clear();
    transforms.clear();
    which.clear();
}

void NimbraPrtLoaderPlugin::getChannels(PerParticleChannels& out, double time, std::uint32_t mask) {
    const int particles = particlesAt(time);
    try {
        fillChannels(out, particles, mask);
    } catch (const std::bad_alloc&) {
        out = {};
    }
}

void NimbraPrtLoaderPlugin::fillChannels(PerParticleChannels& out, int particles,
                                         std::uint32_t mask) const {
    if (mask & kPerParticlePositions)
        startList(out.positions, particles);
    if (mask & kPerParticleVelocities)
        startList(out.velocities, particles);
    if (mask & kPerParticleSizes)
        startList(out.sizes, particles);
    if (mask & kPerParticleIds)
        startList(out.ids, particles);
    // The first particle without a value ends a list.
    const auto append = [&](auto& list, std::uint32_t bit, int channel, int particle) {
        typename std::remove_reference_t<decltype(list)>::value_type value = 0;
        if (!(mask & bit))
            return;
        if (read(file_, channel, particle, value)) {
            list.push_back(value);
        } else {
            list.clear();
            mask &= ~bit;
        }
    };
    for (int i = 0; i < particles && mask != 0; ++i) {
        if (mask & kPerParticlePositions)
            out.positions.push_back(readVector(file_, file_.position, i, 1));
        if (mask & kPerParticleVelocities)
            out.velocities.push_back(readVector(file_, file_.velocity, i, velmult_));
        append(out.sizes, kPerParticleSizes, file_.size, i);
        append(out.ids, kPerParticleIds, file_.id, i);
    }
}

void NimbraPrtLoaderPlugin::getAges(double time, std::vector<float>& out) {
    const int particles = particlesAt(time);
    fillList(out, particles, [&](int i) {
        float age = 0;
        return read(file_, file_.age, i, age) ? age : 0.0f;
    });
}

}  // namespace nimbra
