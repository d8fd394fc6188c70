// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cache/smooth_frame.h"

#include "cache/mt_smooth.h"
#include "cache/nimbra_frame.h"

namespace nimbra {

void NimbraFrame::storeSmoothSettings(std::uint32_t mask, const float* values) {
    smoothMask = mask;
    for (int c = 0; c < kChannelSlots; ++c) {
        if (!(mask & channelBit(c)))
            continue;
        smoothThreshold[c] = values[c * 3];
        smoothSimilarity[c] = values[c * 3 + 1];
        smoothRandomize[c] = values[c * 3 + 2];
    }
}

void smoothFrame(NimbraFrame& holder, TessUtils::ProgressCallback* stop) {
    // The channels behind these may be asked for, yet are never smoothed.
    constexpr int kSmoothedChannels = 23;
    constexpr int kIterations = 3;
    NimbraFrameData* const frame = holder.data;
    if (!frame || !(holder.smoothMask & ((1u << kSmoothedChannels) - 1)))
        return;
    const NMBUtils::Matrix34 gridToObject =
        inverse(NMBUtils::Matrix34::fromFloats(frame->transform));
    MTSmooth smooth(nullptr, stop);
    for (int c = 0; c < kSmoothedChannels; ++c) {
        if (!(holder.smoothMask & channelBit(c)))
            continue;
        GridChannelProxy<float>& channel = frame->getChannelProxy(c);
        if (channel.loaded)
            smooth.smoothChannel(kIterations, channel, frame->gridSize, gridToObject,
                                 holder.smoothThreshold[c], holder.smoothSimilarity[c],
                                 holder.smoothRandomize[c]);
    }
}

}  // namespace nimbra
