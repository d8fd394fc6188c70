// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The plug-in that offers a sequence of PRT files as a source of particles.
#pragma once

#include "cache/prt_file.h"
#include "tessra/particle_source.h"
#include "tessra/tessra_plugin.h"

namespace nimbra {

/// "NmbShaderPrtLoader". Holds the file of the moment that was asked for last. Scene thread.
class NimbraPrtLoaderPlugin : public TessUtils::TessraPlugin,
                              public TessUtils::PerParticleDataSourceInterface,
                              public TessUtils::PerParticleDataSourceInterface2 {
public:
    explicit NimbraPrtLoaderPlugin(TessUtils::TessraPluginDesc* desc);

    PluginInterface* getInterface(InterfaceID id) override;
    Plugin* getPlugin() override { return this; }

    // What a particle has no value for is 0, but for sizes: 1.
    int getCount(double time) override;
    void getPositions(double time, std::vector<TessUtils::Vector>& out) override;
    void getVelocities(double time, std::vector<TessUtils::Vector>& out) override;
    void getSizes(double time, std::vector<float>& out) override;
    void getIds(double time, std::vector<std::int64_t>& out) override;
    void getInstances(double time, std::vector<PluginBase*>& objects,
                      std::vector<TessUtils::Transform>& transforms,
                      std::vector<int>& which) override;
    void getChannels(TessUtils::PerParticleChannels& out, double time, std::uint32_t mask) override;
    void getAges(double time, std::vector<float>& out) override;

    bool isInWorldSpace() override;

private:
    int prepare(double time);
    int particlesAt(double time);
    void fillChannels(TessUtils::PerParticleChannels& out, int particles, std::uint32_t mask) const;

    PrtIO::PrtFile file_;
    /// Path of the file in `file_`, whether it could be read or not.
    TessUtils::CharString loadedPath_;
    /// Some time was asked for: the rows were read.
    bool asked_ = false;
    // The rows.
    TessUtils::CharString filesrc_;
    int usetm_ = 1;
    float velmult_ = 1;
};

}  // namespace nimbra
