// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Scalars of a file as floating-point numbers of memory.
#pragma once

#include <Imath/half.h>

#include <cstring>
#include <span>
#include <vector>

#include "field3d/f3d_tree.h"

namespace nimbra {

template <class Stored, class Number>
void convertScalars(std::span<const std::byte> bytes, std::vector<Number>& out) {
    const std::size_t count = bytes.size() / sizeof(Stored);
    out.resize(count);
    for (std::size_t i = 0; i < count; ++i) {
        Stored value;
        std::memcpy(&value, bytes.data() + i * sizeof value, sizeof value);
        out[i] = static_cast<Number>(value);
    }
}

/// As many numbers as the bytes hold; none for a type that isn't half, float or double.
template <class Number>
void toNumbers(F3dElement element, std::span<const std::byte> bytes, std::vector<Number>& out) {
    switch (element) {
        case F3dElement::Float16:
            return convertScalars<Imath::half>(bytes, out);
        case F3dElement::Float32:
            return convertScalars<float>(bytes, out);
        case F3dElement::Float64:
            return convertScalars<double>(bytes, out);
        default:
            out.clear();
    }
}

}  // namespace nimbra
