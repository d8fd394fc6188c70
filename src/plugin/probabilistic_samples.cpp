// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "plugin/probabilistic_samples.h"

#include "tessra/parameters.h"

namespace nimbra {

using namespace TessUtils;

namespace {

void overrideBy(const TessraPluginParameter* force, double time, int& samples) {
    const int forced = force ? force->getInt(0, time) : -1;
    if (forced >= 0)
        samples = forced;
}

}  // namespace

void readProbabilisticSamples(const TessraSequenceData& sequence, double time,
                              const TessraPluginParameter* force,
                              const TessraPluginParameter* forceGI, int& samples, int& samplesGI) {
    // Asking an object for an interface doesn't change it.
    auto& asked = const_cast<TessraSequenceData&>(sequence);
    auto* settings = static_cast<ProbabilisticSettingsInterface*>(
        asked.getInterface(ids::kProbabilisticSettings));
    samples = settings ? settings->samples() : 0;
    samplesGI = settings ? settings->samplesGI() : 0;
    overrideBy(force, time, samples);
    overrideBy(forceGI, time, samplesGI);
}

}  // namespace nimbra
