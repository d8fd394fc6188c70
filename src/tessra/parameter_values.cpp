// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "tessra/parameter_values.h"

#include <algorithm>
#include <limits>
#include <type_traits>

namespace TessUtils {

namespace {

int toInt(float value) {
    if (!(value == value))
        return 0;
    const double wide = value;
    const double low = std::numeric_limits<int>::min();
    const double high = std::numeric_limits<int>::max();
    return static_cast<int>(std::clamp(wide, low, high));
}

Vector asVector(const Color& c) {
    return {c.r, c.g, c.b};
}
Color asColor(const Vector& v) {
    return {v.x, v.y, v.z};
}

float blend(float a, float b, double weight) {
    return static_cast<float>(a * (1.0 - weight) + b * weight);
}
Vector blend(const Vector& a, const Vector& b, double weight) {
    return {blend(a.x, b.x, weight), blend(a.y, b.y, weight), blend(a.z, b.z, weight)};
}
Color blend(const Color& a, const Color& b, double weight) {
    return asColor(blend(asVector(a), asVector(b), weight));
}
AColor blend(const AColor& a, const AColor& b, double weight) {
    return {blend(a.color, b.color, weight), blend(a.alpha, b.alpha, weight)};
}
Transform blend(const Transform& a, const Transform& b, double weight) {
    Transform result;
    for (int axis = 0; axis < 3; ++axis) {
        result.f[axis] = blend(a.f[axis], b.f[axis], weight);
        result.offs[axis] = a.offs[axis] * (1.0 - weight) + b.offs[axis] * weight;
    }
    return result;
}

// How a value of one type reads as another: numbers read as numbers, and vectors and colours as one
// another; all else reads as nothing.
template <class To, class From>
To convert(const From& value) {
    constexpr bool fromNumber = std::is_arithmetic_v<From>;
    if constexpr (std::is_same_v<To, From>)
        return value;
    else if constexpr (std::is_same_v<To, int> && std::is_same_v<From, float>)
        return toInt(value);
    else if constexpr (std::is_arithmetic_v<To> && fromNumber)
        return static_cast<To>(value);
    else if constexpr (std::is_same_v<To, Vector> && std::is_same_v<From, Color>)
        return asVector(value);
    else if constexpr (std::is_same_v<To, Vector> && std::is_same_v<From, AColor>)
        return asVector(value.color);
    else if constexpr (std::is_same_v<To, Color> && std::is_same_v<From, Vector>)
        return asColor(value);
    else if constexpr (std::is_same_v<To, Color> && std::is_same_v<From, AColor>)
        return value.color;
    else if constexpr (std::is_same_v<To, AColor> && std::is_same_v<From, Color>)
        return {value, 1.0f};
    else if constexpr (std::is_same_v<To, AColor> && std::is_same_v<From, Vector>)
        return {asColor(value), 1.0f};
    else
        return To{};
}

template <class To>
To read(const ParamScalar& value) {
    return std::visit([](const auto& held) { return convert<To>(held); }, value);
}

TessraParameterType typeOf(const ParamScalar& value) {
    static constexpr TessraParameterType kTypes[] = {
        paramtype_bool,  paramtype_int,    paramtype_float,     paramtype_string, paramtype_vector,
        paramtype_color, paramtype_acolor, paramtype_transform, paramtype_plugin};
    static_assert(std::size(kTypes) == std::variant_size_v<ParamScalar>);
    return kTypes[value.index()];
}

}  // namespace

DefParam::DefParam(std::string name, ParamScalar value)
    : name_(std::move(name)), isList_(false), elementType_(typeOf(value)) {
    constant_.push_back(std::move(value));
}

DefParam::DefParam(std::string name, TessraParameterType elementType, ParamList list)
    : name_(std::move(name)),
      isList_(true),
      elementType_(elementType),
      constant_(std::move(list)) {}

void DefParam::setKey(double time, ParamScalar value) {
    setKey(time, ParamList{std::move(value)});
}

void DefParam::setKey(double time, ParamList list) {
    const auto place =
        std::lower_bound(keys_.begin(), keys_.end(), time,
                         [](const Key& key, double searched) { return key.time < searched; });
    if (place != keys_.end() && place->time == time)
        place->values = std::move(list);
    else
        keys_.insert(place, Key{time, std::move(list)});
}

const ParamList& DefParam::listAt(double time, const ParamList** next, double* weight) const {
    if (keys_.empty())
        return constant_;
    const auto after =
        std::upper_bound(keys_.begin(), keys_.end(), time,
                         [](double searched, const Key& key) { return searched < key.time; });
    if (after == keys_.begin())
        return keys_.front().values;
    const auto before = after - 1;
    if (after != keys_.end()) {
        *next = &after->values;
        *weight = (time - before->time) / (after->time - before->time);
    }
    return before->values;
}

DefParam::Place DefParam::placeAt(int index, double time) const {
    const ParamList* next = nullptr;
    Place place;
    const ParamList& list = listAt(time, &next, &place.weight);
    const std::size_t entry = isList_ ? static_cast<std::size_t>(index) : 0;
    if (entry >= list.size())
        return {};
    place.value = &list[entry];
    // Lists of two lengths, or two types, have nothing to blend.
    if (next && next->size() == list.size() && (*next)[entry].index() == list[entry].index())
        place.next = &(*next)[entry];
    return place;
}

int DefParam::getCount(double time) const {
    const ParamList* next = nullptr;
    double weight = 0;
    return isList_ ? static_cast<int>(listAt(time, &next, &weight).size()) : -1;
}

int DefParam::getInt(int index, double time) const {
    const Place place = placeAt(index, time);
    if (place.value && std::holds_alternative<float>(*place.value))
        return toInt(getFloat(index, time));
    return place.value ? read<int>(*place.value) : 0;
}

bool DefParam::getBool(int index, double time) const {
    const Place place = placeAt(index, time);
    if (place.value && std::holds_alternative<float>(*place.value))
        return getFloat(index, time) != 0.0f;
    return place.value && read<bool>(*place.value);
}

float DefParam::getFloat(int index, double time) const {
    const Place place = placeAt(index, time);
    if (!place.value)
        return 0;
    if (place.next && std::holds_alternative<float>(*place.value))
        return blend(std::get<float>(*place.value), std::get<float>(*place.next), place.weight);
    return read<float>(*place.value);
}

Vector DefParam::getVector(int index, double time) const {
    const Place place = placeAt(index, time);
    if (!place.value)
        return {};
    const Vector value = read<Vector>(*place.value);
    return place.next ? blend(value, read<Vector>(*place.next), place.weight) : value;
}

Color DefParam::getColor(int index, double time) const {
    const Place place = placeAt(index, time);
    if (!place.value)
        return {};
    const Color value = read<Color>(*place.value);
    return place.next ? blend(value, read<Color>(*place.next), place.weight) : value;
}

AColor DefParam::getAColor(int index, double time) const {
    const Place place = placeAt(index, time);
    if (!place.value)
        return {};
    const AColor value = read<AColor>(*place.value);
    return place.next ? blend(value, read<AColor>(*place.next), place.weight) : value;
}

Transform DefParam::getTransform(int index, double time) const {
    const Place place = placeAt(index, time);
    if (!place.value)
        return {};
    const Transform value = read<Transform>(*place.value);
    return place.next ? blend(value, read<Transform>(*place.next), place.weight) : value;
}

std::string DefParam::getString(int index, double time) const {
    const Place place = placeAt(index, time);
    return place.value ? read<std::string>(*place.value) : std::string();
}

PluginBase* DefParam::getObject(int index) const {
    const Place place = placeAt(index, -std::numeric_limits<double>::infinity());
    return place.value ? read<PluginBase*>(*place.value) : nullptr;
}

TessraParameterType DefParam::getType(int index) const {
    if (!isList_ || elementType_ != paramtype_list)
        return elementType_;
    const Place place = placeAt(index, -std::numeric_limits<double>::infinity());
    return place.value ? typeOf(*place.value) : elementType_;
}

}  // namespace TessUtils
