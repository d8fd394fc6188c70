// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/frame_buffer.h"

#include <Imath/half.h>

#include <algorithm>
#include <bit>

namespace nimbra::host {

namespace {

std::uint16_t toHalf(float value) {
    // What doesn't fit would become infinite.
    constexpr float kLargest = 65504;
    return imath_float_to_half(std::clamp(value, -kLargest, kLargest));
}

}  // namespace

PictureChannel::PictureChannel(std::string name, ChannelDepth depth, float unset, std::size_t size)
    : name_(std::move(name)), depth_(depth), unset_(unset), size_(size) {
    // The system backs what is reserved with memory when it is written to.
    if (depth == ChannelDepth::Half)
        halves_.reserve(size);
    else
        floats_.reserve(size);
}

void PictureChannel::hold() {
    if (depth_ == ChannelDepth::Half)
        halves_.assign(size_, toHalf(unset_));
    else
        floats_.assign(size_, unset_);
}

float PictureChannel::at(std::size_t i) const {
    if (!isHeld())
        return unset_;
    return depth_ == ChannelDepth::Half ? imath_half_to_float(halves_[i]) : floats_[i];
}

std::uint16_t PictureChannel::halfAt(std::size_t i) const {
    return halves_.empty() ? toHalf(at(i)) : halves_[i];
}

void PictureChannel::set(std::size_t i, float value) {
    if (!isHeld()) {
        // By their bits: zeros of both signs, and values that are no number.
        if (std::bit_cast<std::uint32_t>(value) == std::bit_cast<std::uint32_t>(unset_))
            return;
        hold();
    }
    if (depth_ == ChannelDepth::Half)
        halves_[i] = toHalf(value);
    else
        floats_[i] = value;
}

float* PictureChannel::floats() {
    if (!isHeld())
        hold();
    return floats_.data();
}

void FrameBuffer::resize(int fullW, int fullH, int left, int top, int w, int h,
                         const std::vector<std::string>& layers, ChannelDepth colors) {
    fullWidth = fullW;
    fullHeight = fullH;
    x0 = left;
    y0 = top;
    width = w;
    height = h;
    const std::size_t pixels = std::size_t(w) * std::size_t(h);
    channels.clear();
    for (const char* name : {"R", "G", "B", "A"})
        channels.emplace_back(name, colors, 0.0f, pixels);
    for (const std::string& name : layers)
        channels.emplace_back(name, ChannelDepth::Float, name == "Z" ? kNoDepth : 0.0f, pixels);
}

std::array<float, 4> FrameBuffer::pixel(int x, int y) const {
    const std::size_t i = index(x, y);
    return {channels[0].at(i), channels[1].at(i), channels[2].at(i), channels[3].at(i)};
}

}  // namespace nimbra::host
