// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A picture in memory, channel by channel, each in the precision that its files hold.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace nimbra::host {

/// Value of layer "Z" where nothing was met.
inline constexpr float kNoDepth = 1e10f;

enum class ChannelDepth { Half, Float };

/// The values of one channel. Takes memory only when one of them differs from `unset`.
class PictureChannel {
public:
    /// Throws std::bad_alloc where `size` values could not be held.
    PictureChannel(std::string name, ChannelDepth depth, float unset, std::size_t size);

    /// Like "R", "Z" or "diffuse.R".
    const std::string& name() const { return name_; }
    std::size_t size() const { return size_; }
    float at(std::size_t i) const;
    /// As at(), cut to what a half can hold; its bits.
    std::uint16_t halfAt(std::size_t i) const;
    /// One thread at a time. A half holds at most 65504, and the nearest value that it can.
    void set(std::size_t i, float value);
    /// All values of a channel of floats, to be filled.
    float* floats();
    bool operator==(const PictureChannel&) const = default;

private:
    bool isHeld() const { return !halves_.empty() || !floats_.empty(); }
    void hold();

    std::string name_;
    ChannelDepth depth_;
    float unset_;
    std::size_t size_;
    // One of them, if any.
    std::vector<std::uint16_t> halves_;
    std::vector<float> floats_;
};

/// A picture or a part of it. Rows go down; values are averages over the samples of a pixel, in
/// layer "Z" the nearest of them.
struct FrameBuffer {
    int fullWidth = 0, fullHeight = 0;  // the whole picture
    int x0 = 0, y0 = 0;                 // upper left corner of the part that is held
    int width = 0, height = 0;          // its size
    /// R, G, B and A, scene-linear with associated alpha; then the layers.
    std::vector<PictureChannel> channels;

    /// Begins anew, with `colors` for the first four channels and floats for the layers. Layers are
    /// 0 where nothing was met, except "Z".
    void resize(int fullW, int fullH, int left, int top, int w, int h,
                const std::vector<std::string>& layers = {},
                ChannelDepth colors = ChannelDepth::Float);
    /// Where the channels hold a pixel.
    std::size_t index(int x, int y) const {
        return std::size_t(y - y0) * std::size_t(width) + std::size_t(x - x0);
    }
    /// Colour and alpha.
    std::array<float, 4> pixel(int x, int y) const;
};

}  // namespace nimbra::host
