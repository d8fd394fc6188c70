// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Parameters of plug-ins: their description in a descriptor, their values in a scene (animated by
// time), and the list that ties both to the members of one plug-in instance.
#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "tessra/math.h"
#include "tessra/plugin_base.h"

namespace TessUtils {

class TextureInterface;
class TextureFloatInterface;

/// Text that a parameter is cached into.
using CharString = std::string;
/// Plug-ins that a list parameter is cached into; entries may be null.
using TessraPluginList = std::vector<PluginBase*>;

enum TessraParameterType : int {
    paramtype_bool = 0,
    paramtype_int = 1,
    paramtype_float = 2,
    paramtype_string = 3,
    paramtype_color = 4,
    paramtype_acolor = 5,
    paramtype_texture = 6,
    paramtype_textureFloat = 7,
    paramtype_transform = 8,
    paramtype_plugin = 9,
    paramtype_vector = 10,
    paramtype_list = 12,  // a list of mixed values
};

class TessraPluginParameter;

/// One row of a parameter table.
struct TESSRA_API ParameterDef {
    std::string name;
    TessraParameterType type = paramtype_int;
    /// -1: a single value; 0: a list of any length; n: a list of n.
    int count = -1;
    bool isOutput = false;
    bool hasDefault = false;
    bool isAnimated = false;  // a transform that the host samples within a frame
    bool takesList = false;   // a single value, which a list may stand in for
    /// The ID that a connected plug-in must offer; 0 for rows of other types.
    InterfaceID interfaceID = 0;
    const char* description = nullptr;
    const char* uiHint = nullptr;
    /// The default as a parameter of its own, so that unset rows read like set ones; rows with a
    /// fixed count hold it in each place. Null without one, as always with a count of 0.
    std::unique_ptr<TessraPluginParameter> defaultValue;

    ParameterDef();
    ~ParameterDef();
    ParameterDef(ParameterDef&&) noexcept;
    ParameterDef& operator=(ParameterDef&&) noexcept;
};

/// One value or a list of values, animated by time. Reads outside a list, and reads as a type that
/// the value can't turn into, answer zero, black, the empty text, the identity or null.
class TESSRA_API TessraPluginParameter {
public:
    virtual ~TessraPluginParameter();
    /// Entries of a list at that time; -1 for a single value.
    virtual int getCount(double time) const = 0;
    virtual int getInt(int index, double time) const = 0;
    virtual float getFloat(int index, double time) const = 0;
    virtual bool getBool(int index, double time) const = 0;
    virtual Vector getVector(int index, double time) const = 0;
    virtual Color getColor(int index, double time) const = 0;
    virtual AColor getAColor(int index, double time) const = 0;
    virtual Transform getTransform(int index, double time) const = 0;
    virtual PluginBase* getObject(int index) const = 0;
    virtual TessraParameterType getType(int index) const = 0;
    virtual const char* getName() const = 0;
    virtual std::string getString(int index, double time) const = 0;
};

class TESSRA_API EnumParameterCallback {
public:
    virtual ~EnumParameterCallback();
    /// Returning zero ends the enumeration.
    virtual int process(TessraPluginParameter* parameter) = 0;
};

class TessraParameterListDesc;

/// The parameters of one plug-in instance: values that the scene set, and the members that follow
/// them. Used on the scene thread.
class TESSRA_API TessraParameterList {
public:
    explicit TessraParameterList(const TessraParameterListDesc* desc);
    ~TessraParameterList();
    TessraParameterList(const TessraParameterList&) = delete;
    TessraParameterList& operator=(const TessraParameterList&) = delete;

    // Each binds a member to a row: from then on `cacheParams` keeps it current. False if there is
    // no such row. Bool rows bind to an int. A texture row without a connected texture gives null.
    bool setParamCache(const char* name, PluginBase** cache);
    bool setParamCache(const char* name, TessraPluginList* cache);
    bool setParamCache(const char* name, Color* cache);
    bool setParamCache(const char* name, AColor* cache);
    bool setParamCache(const char* name, TextureInterface** cache);
    bool setParamCache(const char* name, TextureFloatInterface** cache);
    bool setParamCache(const char* name, TraceTransform* cache);
    bool setParamCache(const char* name, CharString* cache);
    bool setParamCache(const char* name, float* cache);
    bool setParamCache(const char* name, int* cache);
    // Binds what other plug-ins read through an output row.
    bool setOutputParamCache(const char* name, TextureInterface* texture);
    bool setOutputParamCache(const char* name, TextureFloatInterface* texture);

    /// Refreshes all bound members for a time, from the scene's value or else from the row's
    /// default; a row with neither empties lists and references and leaves other members alone.
    /// Texts, numbers, colours and transforms of list rows follow the first entry. `point` is the
    /// place for values that vary in space; rows of this host don't, so it may be null.
    void cacheParams(double time, const TracePoint* point = nullptr);
    /// The scene's value of a row, or null where the scene leaves it unset.
    TessraPluginParameter* getParam(const char* name) const;
    /// Takes the scene's value; the list doesn't own it. False if there is no such row.
    bool setParameter(TessraPluginParameter* parameter);
    /// Calls back for each parameter that the scene set, in table order; returns the calls made.
    int enumParams(EnumParameterCallback* callback) const;
    /// What an output row is bound to (both null if it isn't).
    TextureInterface* outputTexture(const char* name) const;
    TextureFloatInterface* outputTextureFloat(const char* name) const;
    const TessraParameterListDesc* desc() const { return desc_; }

private:
    struct Data;
    const TessraParameterListDesc* desc_;
    std::unique_ptr<Data> data_;
};

/// The parameter table of one kind of plug-in, built once while the library loads.
/// `count`, `description` and `uiHint` as in ParameterDef; texts must live as long as the table.
class TESSRA_API TessraParameterListDesc {
public:
    TessraParameterListDesc();
    ~TessraParameterListDesc();
    TessraParameterListDesc(const TessraParameterListDesc&) = delete;
    TessraParameterListDesc& operator=(const TessraParameterListDesc&) = delete;

    void addParamBool(const char* name, bool def, int count = -1, const char* description = nullptr,
                      const char* uiHint = nullptr);
    void addParamInt(const char* name, int def, int count = -1, const char* description = nullptr,
                     const char* uiHint = nullptr);
    void addParamFloat(const char* name, float def, int count = -1,
                       const char* description = nullptr, const char* uiHint = nullptr);
    void addParamString(const char* name, const char* def, int count = -1,
                        const char* description = nullptr, const char* uiHint = nullptr);
    void addParamColor(const char* name, const Color& def, int count = -1,
                       const char* description = nullptr, const char* uiHint = nullptr);
    void addParamAColor(const char* name, const AColor& def, int count = -1,
                        const char* description = nullptr, const char* uiHint = nullptr);
    /// A colour texture slot; `def`, if given, is the constant that stands in for no texture.
    void addParamTexture(const char* name, const AColor* def = nullptr, int count = -1,
                         const char* description = nullptr, const char* uiHint = nullptr);
    void addParamTextureFloat(const char* name, const float* def = nullptr, int count = -1,
                              const char* description = nullptr, const char* uiHint = nullptr);
    /// `animated` marks a transform that the host samples within a frame.
    void addParamTransform(const char* name, bool animated, const Transform& def, int count = -1,
                           const char* description = nullptr, const char* uiHint = nullptr);
    void addParamPlugin(const char* name, InterfaceID interfaceID, int count = -1,
                        const char* description = nullptr, const char* uiHint = nullptr);
    void addParam(const char* name, TessraParameterType type, int count = -1,
                  const char* description = nullptr, const char* uiHint = nullptr);
    void addOutputParamTexture(const char* name, const char* description = nullptr,
                               const char* uiHint = nullptr);
    void addOutputParamTextureFloat(const char* name, const char* description = nullptr,
                                    const char* uiHint = nullptr);

    /// Lets scenes give a row of a single value a list as well. Nothing if there is no such row.
    void allowList(const char* name);

    TessraParameterList* newParameterList() const;
    void deleteParameterList(TessraParameterList* list) const;
    /// Tells the host each row, in table order; nothing when `host` is null.
    void registerParameters(PluginHost* host, PluginDesc* desc) const;
    /// The row of that name with its default, or null.
    const ParameterDef* findParamDef(const char* name) const;
    const std::vector<ParameterDef>& rows() const { return rows_; }
    /// The place of a row in the table, or -1. Of two rows with one name the first is found.
    int rowIndex(const char* name) const;

private:
    ParameterDef& add(const char* name, TessraParameterType type, int count,
                      const char* description, const char* uiHint);
    std::vector<ParameterDef> rows_;
    std::unordered_map<std::string, int> rowOfName_;
};

}  // namespace TessUtils
