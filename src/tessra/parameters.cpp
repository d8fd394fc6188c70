// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "tessra/parameters.h"

#include <algorithm>
#include <utility>
#include <variant>

#include "tessra/parameter_values.h"
#include "tessra/texture.h"

namespace TessUtils {

ParameterDef::ParameterDef() = default;
ParameterDef::~ParameterDef() = default;
ParameterDef::ParameterDef(ParameterDef&&) noexcept = default;
ParameterDef& ParameterDef::operator=(ParameterDef&&) noexcept = default;

// --- The table -----------------------------------------------------------------------------------

TessraParameterListDesc::TessraParameterListDesc() = default;
TessraParameterListDesc::~TessraParameterListDesc() = default;

ParameterDef& TessraParameterListDesc::add(const char* name, TessraParameterType type, int count,
                                           const char* description, const char* uiHint) {
    ParameterDef& row = rows_.emplace_back();
    row.name = name;
    row.type = type;
    row.count = count;
    row.description = description;
    row.uiHint = uiHint;
    rowOfName_.emplace(row.name, static_cast<int>(rows_.size()) - 1);
    return row;
}

namespace {

void setDefault(ParameterDef& row, ParamScalar value) {
    if (row.count == 0)
        return;
    row.hasDefault = true;
    if (row.count < 0)
        row.defaultValue = std::make_unique<DefParam>(row.name, std::move(value));
    else
        row.defaultValue = std::make_unique<DefParam>(
            row.name, row.type, ParamList(static_cast<std::size_t>(row.count), value));
}

}  // namespace

void TessraParameterListDesc::addParamBool(const char* name, bool def, int count,
                                           const char* description, const char* uiHint) {
    setDefault(add(name, paramtype_bool, count, description, uiHint), def);
}

void TessraParameterListDesc::addParamInt(const char* name, int def, int count,
                                          const char* description, const char* uiHint) {
    setDefault(add(name, paramtype_int, count, description, uiHint), def);
}

void TessraParameterListDesc::addParamFloat(const char* name, float def, int count,
                                            const char* description, const char* uiHint) {
    setDefault(add(name, paramtype_float, count, description, uiHint), def);
}

void TessraParameterListDesc::addParamString(const char* name, const char* def, int count,
                                             const char* description, const char* uiHint) {
    setDefault(add(name, paramtype_string, count, description, uiHint),
               std::string(def ? def : ""));
}

void TessraParameterListDesc::addParamColor(const char* name, const Color& def, int count,
                                            const char* description, const char* uiHint) {
    setDefault(add(name, paramtype_color, count, description, uiHint), def);
}

void TessraParameterListDesc::addParamAColor(const char* name, const AColor& def, int count,
                                             const char* description, const char* uiHint) {
    setDefault(add(name, paramtype_acolor, count, description, uiHint), def);
}

void TessraParameterListDesc::addParamTexture(const char* name, const AColor* def, int count,
                                              const char* description, const char* uiHint) {
    ParameterDef& row = add(name, paramtype_texture, count, description, uiHint);
    row.interfaceID = ids::kTexture;
    if (def)
        setDefault(row, *def);
}

void TessraParameterListDesc::addParamTextureFloat(const char* name, const float* def, int count,
                                                   const char* description, const char* uiHint) {
    ParameterDef& row = add(name, paramtype_textureFloat, count, description, uiHint);
    row.interfaceID = ids::kTextureFloat;
    if (def)
        setDefault(row, *def);
}

void TessraParameterListDesc::addParamTransform(const char* name, bool animated,
                                                const Transform& def, int count,
                                                const char* description, const char* uiHint) {
    ParameterDef& row = add(name, paramtype_transform, count, description, uiHint);
    row.isAnimated = animated;
    setDefault(row, def);
}

void TessraParameterListDesc::addParamPlugin(const char* name, InterfaceID interfaceID, int count,
                                             const char* description, const char* uiHint) {
    add(name, paramtype_plugin, count, description, uiHint).interfaceID = interfaceID;
}

void TessraParameterListDesc::addParam(const char* name, TessraParameterType type, int count,
                                       const char* description, const char* uiHint) {
    add(name, type, count, description, uiHint);
}

void TessraParameterListDesc::addOutputParamTexture(const char* name, const char* description,
                                                    const char* uiHint) {
    add(name, paramtype_texture, -1, description, uiHint).isOutput = true;
}

void TessraParameterListDesc::addOutputParamTextureFloat(const char* name, const char* description,
                                                         const char* uiHint) {
    add(name, paramtype_textureFloat, -1, description, uiHint).isOutput = true;
}

void TessraParameterListDesc::allowList(const char* name) {
    const int row = rowIndex(name);
    if (row >= 0)
        rows_[static_cast<std::size_t>(row)].takesList = true;
}

TessraParameterList* TessraParameterListDesc::newParameterList() const {
    return new TessraParameterList(this);
}

void TessraParameterListDesc::deleteParameterList(TessraParameterList* list) const {
    delete list;
}

void TessraParameterListDesc::registerParameters(PluginHost* host, PluginDesc* desc) const {
    if (!host)
        return;
    for (const ParameterDef& row : rows_)
        host->registerParameter(desc, row);
}

int TessraParameterListDesc::rowIndex(const char* name) const {
    const auto found = name ? rowOfName_.find(name) : rowOfName_.end();
    return found == rowOfName_.end() ? -1 : found->second;
}

const ParameterDef* TessraParameterListDesc::findParamDef(const char* name) const {
    const int row = rowIndex(name);
    return row < 0 ? nullptr : &rows_[static_cast<std::size_t>(row)];
}

// --- The list of one plug-in ---------------------------------------------------------------------

namespace {

/// A member that follows a row, by the kind of pointer it was bound with.
using Member = std::variant<PluginBase**, TessraPluginList*, Color*, AColor*, TextureInterface**,
                            TextureFloatInterface**, TraceTransform*, CharString*, float*, int*>;

struct Binding {
    std::size_t row;
    Member member;
};

struct Output {
    TextureInterface* texture = nullptr;
    TextureFloatInterface* textureFloat = nullptr;
};

/// The interface of a connected object as its type; null without an object.
template <class Interface>
Interface* interfaceOf(PluginBase* object, InterfaceID id) {
    return object ? static_cast<Interface*>(object->getInterface(id)) : nullptr;
}

/// Writes a row's value into a bound member. Without a value (null) only references and lists
/// change.
struct Refresh {
    const TessraPluginParameter* value;
    double time;

    PluginBase* object() const { return value ? value->getObject(0) : nullptr; }

    void operator()(PluginBase** member) const { *member = object(); }
    void operator()(TextureInterface** member) const {
        *member = interfaceOf<TextureInterface>(object(), ids::kTexture);
    }
    void operator()(TextureFloatInterface** member) const {
        *member = interfaceOf<TextureFloatInterface>(object(), ids::kTextureFloat);
    }
    void operator()(TessraPluginList* member) const {
        member->clear();
        if (!value)
            return;
        const int count = value->getCount(time);
        for (int i = 0; i < count; ++i)
            member->push_back(value->getObject(i));
        if (count < 0 && object())
            member->push_back(object());
    }
    void operator()(Color* member) const {
        if (value)
            *member = value->getColor(0, time);
    }
    void operator()(AColor* member) const {
        if (value)
            *member = value->getAColor(0, time);
    }
    void operator()(TraceTransform* member) const {
        if (value)
            *member = value->getTransform(0, time);
    }
    void operator()(CharString* member) const {
        if (value)
            *member = value->getString(0, time);
    }
    void operator()(float* member) const {
        if (value)
            *member = value->getFloat(0, time);
    }
    void operator()(int* member) const {
        if (value)
            *member = value->getInt(0, time);
    }
};

}  // namespace

struct TessraParameterList::Data {
    std::vector<TessraPluginParameter*> values;  // of the scene, one a row; null where unset
    std::vector<Binding> bindings;
    std::vector<Output> outputs;  // one a row

    bool bind(const TessraParameterListDesc& desc, const char* name, Member member) {
        const int row = desc.rowIndex(name);
        if (row < 0)
            return false;
        bindings.push_back({static_cast<std::size_t>(row), member});
        return true;
    }

    Output* output(const TessraParameterListDesc& desc, const char* name) {
        const int row = desc.rowIndex(name);
        if (row < 0 || !desc.rows()[static_cast<std::size_t>(row)].isOutput)
            return nullptr;
        return &outputs[static_cast<std::size_t>(row)];
    }
};

TessraParameterList::TessraParameterList(const TessraParameterListDesc* desc)
    : desc_(desc), data_(std::make_unique<Data>()) {
    data_->values.resize(desc->rows().size());
    data_->outputs.resize(desc->rows().size());
}

TessraParameterList::~TessraParameterList() = default;

bool TessraParameterList::setParamCache(const char* name, PluginBase** cache) {
    return data_->bind(*desc_, name, cache);
}
bool TessraParameterList::setParamCache(const char* name, TessraPluginList* cache) {
    return data_->bind(*desc_, name, cache);
}
bool TessraParameterList::setParamCache(const char* name, Color* cache) {
    return data_->bind(*desc_, name, cache);
}
bool TessraParameterList::setParamCache(const char* name, AColor* cache) {
    return data_->bind(*desc_, name, cache);
}
bool TessraParameterList::setParamCache(const char* name, TextureInterface** cache) {
    return data_->bind(*desc_, name, cache);
}
bool TessraParameterList::setParamCache(const char* name, TextureFloatInterface** cache) {
    return data_->bind(*desc_, name, cache);
}
bool TessraParameterList::setParamCache(const char* name, TraceTransform* cache) {
    return data_->bind(*desc_, name, cache);
}
bool TessraParameterList::setParamCache(const char* name, CharString* cache) {
    return data_->bind(*desc_, name, cache);
}
bool TessraParameterList::setParamCache(const char* name, float* cache) {
    return data_->bind(*desc_, name, cache);
}
bool TessraParameterList::setParamCache(const char* name, int* cache) {
    return data_->bind(*desc_, name, cache);
}

bool TessraParameterList::setOutputParamCache(const char* name, TextureInterface* texture) {
    Output* const output = data_->output(*desc_, name);
    if (output)
        output->texture = texture;
    return output != nullptr;
}

bool TessraParameterList::setOutputParamCache(const char* name, TextureFloatInterface* texture) {
    Output* const output = data_->output(*desc_, name);
    if (output)
        output->textureFloat = texture;
    return output != nullptr;
}

TextureInterface* TessraParameterList::outputTexture(const char* name) const {
    const Output* const output = data_->output(*desc_, name);
    return output ? output->texture : nullptr;
}

TextureFloatInterface* TessraParameterList::outputTextureFloat(const char* name) const {
    const Output* const output = data_->output(*desc_, name);
    return output ? output->textureFloat : nullptr;
}

void TessraParameterList::cacheParams(double time, const TracePoint*) {
    for (const Binding& binding : data_->bindings) {
        const TessraPluginParameter* value = data_->values[binding.row];
        if (!value)
            value = desc_->rows()[binding.row].defaultValue.get();
        std::visit(Refresh{value, time}, binding.member);
    }
}

TessraPluginParameter* TessraParameterList::getParam(const char* name) const {
    const int row = desc_->rowIndex(name);
    return row < 0 ? nullptr : data_->values[static_cast<std::size_t>(row)];
}

bool TessraParameterList::setParameter(TessraPluginParameter* parameter) {
    const int row = parameter ? desc_->rowIndex(parameter->getName()) : -1;
    if (row < 0)
        return false;
    data_->values[static_cast<std::size_t>(row)] = parameter;
    return true;
}

int TessraParameterList::enumParams(EnumParameterCallback* callback) const {
    int calls = 0;
    for (TessraPluginParameter* value : data_->values) {
        if (!value)
            continue;
        ++calls;
        if (callback->process(value) == 0)
            break;
    }
    return calls;
}

}  // namespace TessUtils
