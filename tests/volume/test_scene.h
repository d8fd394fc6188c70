// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Volumes, rays and lights for the tests of the marcher.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "cache/frame_data.h"
#include "support/golden.h"
#include "volume/gizmo_object.h"
#include "volume/grid_transforms.h"
#include "volume/lut_holder.h"
#include "volume/march.h"
#include "volume/nimbra_params.h"
#include "volume/settings.h"
#include "volume/volume_shader_tessra.h"

namespace nimbra::test {

/// The rows of a container's parameter table that the shader core reads, with their defaults.
/// Other keys throw.
class TestParams : public NimbraParams {
public:
    TestParams();
    int getInt(const char* key) const override { return static_cast<int>(numbers.at(key)); }
    float getFloat(const char* key) const override { return static_cast<float>(numbers.at(key)); }
    TessUtils::Color getColor(const char* key) const override;
    bool hasTexture(int slot) const override { return textures[slot]; }
    float getDensityScale(const NimbraFrameData* frame) const override {
        return frame ? densityScale : 1;
    }

    /// Throws for a key that isn't in the table.
    void set(const std::string& key, double value) { numbers.at(key) = value; }

    TessUtils::Color simpleColor{0.2f, 0.2f, 0.2f};
    bool textures[4] = {};
    float densityScale = 1;

private:
    std::map<std::string, double> numbers;
};

struct ShadeResult {
    int marched = 0;
    TessUtils::Color color;
    TessUtils::Color opacity;
};

/// One container: its frame, tables and the shader set up from them.
struct TestVolume {
    TestVolume(int nx, int ny, int nz);

    /// Makes a channel of a value in every cell, or of a function of the cell.
    void fill(int channel, float value);
    void fill(int channel, const std::function<float(int, int, int)>& value);
    void fill(int channel, const std::vector<float>& values);
    /// Reads the settings; the shader can be marched then.
    void load();
    /// A ray through this volume alone, over black.
    ShadeResult shade(const ShadeQuery& ray, Illuminator& illuminator) const;
    /// The opacity of this volume alone that a transparency query gives.
    TessUtils::Color shadow(const ShadeQuery& ray, Illuminator& illuminator) const;

    TestParams params;
    NimbraFrameData frame;
    NimbraVolumeRenderLUTholder luts;
    TessUtils::Transform nodeTransform;
    VolumeShaderTessra shader;
    std::unique_ptr<GizmoObject> gizmo;
};

/// A ray's illuminator with given random numbers and simple lights.
class TestIlluminator : public Illuminator {
public:
    struct Light {
        TessUtils::Color color;
        bool directional = false;  // else ambient
        TessUtils::Vector toLight{};
        double shadowLength = 0;
    };

    void illuminate(TessUtils::Color& out, const TessUtils::Vector& pos,
                    const TessUtils::Color& diffuse, LightSelectRecord* record) override;
    int bounceLevel() override { return bounces; }
    float random() override;
    void selectShader(const VolumeShader& selected) override;
    void beginElements() override { elementMask = wantedElements; }
    void writeElements() override { written.assign(elements, elements + kElementCount); }
    void applyMediumAttenuation(TessUtils::Color& color, const RaySegment&) override {
        color = color * mediumFactor;
    }
    void projectVelocity(const TessUtils::TracePoint&, const TessUtils::Vector&,
                         TessUtils::Color&) override {}
    void initFromRay(const TessUtils::TraceRay*) override {}
    bool isLightCacheRay() const override { return false; }

    int bounces = 0;
    std::uint32_t wantedElements = 0;
    float mediumFactor = 1;
    const VolumeShader* from = nullptr;  // the volume that the ray left
    std::vector<float> randomNumbers;    // then a fixed stream
    std::vector<Light> lights;
    std::vector<const VolumeShader*> scene;  // what shadow rays pass
    std::vector<TessUtils::Color> written;
    int illuminations = 0;

private:
    TessUtils::Color lightAt(const Light& light, const TessUtils::Vector& pos);
    std::size_t nextRandom = 0;
    std::uint32_t state = 12345;
};

/// Marches a ray through all volumes over a background.
ShadeResult shadeOver(const TessUtils::Color& background, ShadeQuery query,
                      const std::vector<const VolumeShader*>& shaders, Illuminator& illuminator);
/// The opacity that a transparency query gives.
TessUtils::Color shadowOf(ShadeQuery query, const std::vector<const VolumeShader*>& shaders,
                          Illuminator& illuminator);

/// A ray along +x at the height (y, z).
ShadeQuery rayAlongX(double y, double z, double from, double to);

/// Disjoint ellipsoids and boxes, each between two corners.
class ShapesGizmo : public GizmoObject {
public:
    struct Shape {
        bool sphere;
        TessUtils::Vector low, high;
    };
    explicit ShapesGizmo(std::vector<Shape> list) : shapes(std::move(list)) {}
    bool firstHit(const TessUtils::Vector& origin, const TessUtils::Vector& dir, float mint,
                  float maxt, GizmoHit& hit) const override;

private:
    std::vector<Shape> shapes;
};

// ---- Shading tables from the curves and gradients of golden files

/// Sets a range of the input if the entry has one.
void setGoldenRange(LutRange& range, const nlohmann::json& from, const char* key = "range");

// Each builds one table from its entry of a file; the range of the input is set if there is one.
void buildGoldenEmission(NimbraVolumeRenderLUTholder& luts, const nlohmann::json& from,
                         int fireOpacityMode);
void buildGoldenDiffuse(NimbraVolumeRenderLUTholder& luts, const nlohmann::json& from);
void buildGoldenOpacity(NimbraVolumeRenderLUTholder& luts, const nlohmann::json& from, bool invert);

}  // namespace nimbra::test
