// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Parameters that hold their own values: constants, lists, and values keyed by time.
#pragma once

#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "tessra/parameters.h"

namespace TessUtils {

/// What a parameter can hold at one moment: one value, or a list of them.
using ParamScalar =
    std::variant<bool, int, float, std::string, Vector, Color, AColor, Transform, PluginBase*>;
using ParamList = std::vector<ParamScalar>;

/// A parameter that owns its values. Without keys it is constant. With keys, values between two
/// keys are blended linearly where the type allows (float, vector, colours, transforms entry by
/// entry); all other types hold the earlier key's value; outside the keys the nearest key holds.
class TESSRA_API DefParam : public TessraPluginParameter {
public:
    DefParam(std::string name, ParamScalar value);
    DefParam(std::string name, TessraParameterType elementType, ParamList list);

    /// Adds a key at `time`, in the host's units; keys may come in any order. A scalar parameter
    /// takes scalar keys, a list parameter list keys; the constructor's value counts only while
    /// there is none.
    /// A key at the same time as another replaces it.
    void setKey(double time, ParamScalar value);
    void setKey(double time, ParamList list);
    bool isAnimated() const { return keys_.size() > 1; }

    int getCount(double time) const override;
    int getInt(int index, double time) const override;
    float getFloat(int index, double time) const override;
    bool getBool(int index, double time) const override;
    Vector getVector(int index, double time) const override;
    Color getColor(int index, double time) const override;
    AColor getAColor(int index, double time) const override;
    Transform getTransform(int index, double time) const override;
    PluginBase* getObject(int index) const override;
    TessraParameterType getType(int index) const override;
    const char* getName() const override { return name_.c_str(); }
    std::string getString(int index, double time) const override;

private:
    struct Key {
        double time;
        ParamList values;
    };
    /// What a time falls on: a value of one key, and where it blends, that of the next key with
    /// its weight. Both null outside a list.
    struct Place {
        const ParamScalar* value = nullptr;
        const ParamScalar* next = nullptr;
        double weight = 0;
    };
    Place placeAt(int index, double time) const;
    const ParamList& listAt(double time, const ParamList** next, double* weight) const;

    std::string name_;
    bool isList_;
    TessraParameterType elementType_;
    ParamList constant_;
    std::vector<Key> keys_;
};

/// A list that its owner keeps in a store of its own: derived classes answer the count and the
/// reads of their type, all others answer as if outside the list.
class TESSRA_API DefListParamBase : public TessraPluginParameter {
public:
    DefListParamBase(std::string name, TessraParameterType elementType)
        : name_(std::move(name)), elementType_(elementType) {}

    int getInt(int, double) const override { return 0; }
    float getFloat(int, double) const override { return 0; }
    bool getBool(int, double) const override { return false; }
    Vector getVector(int, double) const override { return {}; }
    Color getColor(int, double) const override { return {}; }
    AColor getAColor(int, double) const override { return {}; }
    Transform getTransform(int, double) const override { return {}; }
    PluginBase* getObject(int) const override { return nullptr; }
    TessraParameterType getType(int) const override { return elementType_; }
    const char* getName() const override { return name_.c_str(); }
    std::string getString(int, double) const override { return {}; }

private:
    std::string name_;
    TessraParameterType elementType_;
};

}  // namespace TessUtils
