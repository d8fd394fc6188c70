// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "field3d/f3d_tree.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>

namespace nimbra {

namespace {

struct ElementType {
    const char* name;
    std::uint64_t bytes;
    F3dElement scalar;
};

constexpr ElementType kTypes[] = {
    {"int8", 1, F3dElement::Int8},
    {"uint8", 1, F3dElement::UInt8},
    {"int16", 2, F3dElement::Int16},
    {"uint16", 2, F3dElement::UInt16},
    {"int32", 4, F3dElement::Int32},
    {"uint32", 4, F3dElement::UInt32},
    {"int64", 8, F3dElement::Int64},
    {"uint64", 8, F3dElement::UInt64},
    {"half", 2, F3dElement::Float16},
    {"float", 4, F3dElement::Float32},
    {"double", 8, F3dElement::Float64},
    {"half vector", 6, F3dElement::Float16},
    {"float vector", 12, F3dElement::Float32},
    {"double vector", 24, F3dElement::Float64},
    {"int vector", 12, F3dElement::Int32},
    {"matrix", 128, F3dElement::Float64},
    {"string", 0, F3dElement::String},
};

const ElementType* typeOf(F3dElement element) {
    const auto number = static_cast<std::int64_t>(element);
    return number >= 0 && number < std::int64_t(std::size(kTypes)) ? &kTypes[number] : nullptr;
}

template <class T>
const T* firstNamed(const std::vector<T>& list, const std::string& name) {
    const auto found =
        std::find_if(list.begin(), list.end(), [&](const T& t) { return t.name == name; });
    return found == list.end() ? nullptr : &*found;
}

}  // namespace

std::uint64_t elementBytes(F3dElement element) {
    const ElementType* const type = typeOf(element);
    return type ? type->bytes : 0;
}

F3dElement scalarElement(F3dElement element) {
    const ElementType* const type = typeOf(element);
    return type ? type->scalar : F3dElement::Invalid;
}

const char* elementName(F3dElement element) {
    const ElementType* const type = typeOf(element);
    return type ? type->name : "unknown type";
}

std::string F3dAttribute::display() const {
    if (kind == Kind::Text)
        return text;
    std::string out;
    for (const double v : numbers) {
        out += out.empty() ? "" : " ";
        out += kind == Kind::Integers ? fmt::format("{:.0f}", v) : fmt::format("{:.9g}", v);
    }
    return out;
}

const F3dAttribute* F3dGroup::attribute(const std::string& wanted) const {
    return firstNamed(attributes, wanted);
}

const F3dDataset* F3dGroup::dataset(const std::string& wanted) const {
    return firstNamed(datasets, wanted);
}

const F3dGroup* F3dGroup::group(const std::string& wanted) const {
    return firstNamed(groups, wanted);
}

bool F3dGroup::text(const std::string& wanted, std::string& out) const {
    const F3dAttribute* const found = attribute(wanted);
    if (!found || found->kind != F3dAttribute::Kind::Text)
        return false;
    out = found->text;
    return true;
}

bool F3dGroup::integer(const std::string& wanted, std::int64_t& out) const {
    constexpr double kMostExact = 9007199254740992.0;  // 2^53
    const F3dAttribute* const found = attribute(wanted);
    if (!found || found->kind != F3dAttribute::Kind::Integers || found->numbers.size() != 1 ||
        !(std::fabs(found->numbers[0]) <= kMostExact))
        return false;
    out = static_cast<std::int64_t>(found->numbers[0]);
    return true;
}

bool F3dGroup::numbers(const std::string& wanted, std::span<double> out) const {
    const F3dAttribute* const found = attribute(wanted);
    if (!found || found->kind == F3dAttribute::Kind::Text || found->numbers.size() != out.size())
        return false;
    std::copy(found->numbers.begin(), found->numbers.end(), out.begin());
    return true;
}

}  // namespace nimbra
