// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The numbers of a frame's grid channels.
#pragma once

#include <cstdint>

namespace nimbra {

/// Slots of grid channels in a frame. Ids 11 to 13 and 22 to 31 are ordinary slots without a
/// meaning.
inline constexpr int kChannelSlots = 32;
/// Channels that tests of whole masks walk: ids 0 to 22.
inline constexpr int kMaskTestChannels = 23;

/// A grid channel. The enumerators convert to the plain numbers that files and parameters carry.
enum ChannelId : std::int32_t {
    kNoChannel = 0,    ///< also "Disabled" in every selector; never stored
    kTemperature = 1,  ///< carries the liquid level set as well
    kSmoke = 2,
    kSpeed = 3,  ///< length of the velocity, derived and never stored
    kVelocityX = 4,
    kVelocityY = 5,
    kVelocityZ = 6,
    kColorR = 7,
    kColorG = 8,
    kColorB = 9,
    kFuel = 10,
    kWaveletEnergy = 14,
    kAdvectionOriginX = 15,  ///< 15 to 17: advected texture coordinates ("uvw movement")
    kAdvectionOriginY = 16,
    kAdvectionOriginZ = 17,
    kPackedColor = 18,  ///< stored form of 7 to 9, one 0x00RRGGBB word a voxel; never visible
    kWaveletU = 19,
    kWaveletV = 20,
    kWaveletW = 21,
};

/// The bit of a channel in a channel mask; 0 for an id outside the slots.
inline constexpr std::uint32_t channelBit(int channel) {
    return channel >= 0 && channel < kChannelSlots ? 1u << channel : 0u;
}

}  // namespace nimbra
