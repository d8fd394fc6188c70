// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/texture_plugins.h"

#include <algorithm>
#include <cmath>

#include "tessra/renderer.h"

namespace nimbra::host {

using namespace TessUtils;

HostTexture::HostTexture(TessraPluginDesc* desc) : TessraPlugin(desc) {
    paramList->setOutputParamCache("out_color", static_cast<TextureInterface*>(this));
    paramList->setOutputParamCache("out_intensity",
                                   static_cast<TextureFloatInterface*>(&intensity_));
    paramList->setOutputParamCache("out_alpha", static_cast<TextureFloatInterface*>(&alpha_));
}

PluginInterface* HostTexture::getInterface(InterfaceID id) {
    if (id == ids::kTexture)
        return static_cast<TextureInterface*>(this);
    if (id == ids::kTextureFloat)
        return &intensity_;
    return TessraPlugin::getInterface(id);
}

void HostTexture::addOutputs(TessraParameterListDesc& table) {
    table.addOutputParamTexture("out_color", "The colour");
    table.addOutputParamTextureFloat("out_intensity", "The mean of the colour's channels");
    table.addOutputParamTextureFloat("out_alpha", "The alpha");
}

float HostTexture::Side::getTexFloat(const TextureContext& context) {
    const AColor value = texture_.getTexColor(context);
    return alpha_ ? value.alpha : (value.color.r + value.color.g + value.color.b) * (1.0f / 3.0f);
}

HostPluginInfo ConstantTexturePlugin::info() {
    return {"TessraTexConstant",
            2026010120,
            HostCategory::Texture,
            "The same colour everywhere.",
            {ids::kTexture, ids::kTextureFloat}};
}

void ConstantTexturePlugin::defineParameters(TessraParameterListDesc& table) {
    table.addParamAColor("color", {{0.5f, 0.5f, 0.5f}, 1}, -1, "The colour");
    addOutputs(table);
}

ConstantTexturePlugin::ConstantTexturePlugin(TessraPluginDesc* desc) : HostTexture(desc) {
    paramList->setParamCache("color", &color_);
}

namespace {

constexpr AColor kDefaultFirst{{0.1f, 0.1f, 0.1f}, 1};
constexpr AColor kDefaultSecond{{0.8f, 0.8f, 0.8f}, 1};

/// Inverse of the columns f by cofactors; all zero where there is none.
void invertColumns(const Vector f[3], double rows[3][3]) {
    const double m[3][3] = {
        {f[0].x, f[1].x, f[2].x}, {f[0].y, f[1].y, f[2].y}, {f[0].z, f[1].z, f[2].z}};
    double cofactor[3][3];
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            const int a = (i + 1) % 3, b = (i + 2) % 3, c = (j + 1) % 3, d = (j + 2) % 3;
            cofactor[i][j] = m[a][c] * m[b][d] - m[a][d] * m[b][c];
        }
    const double det =
        m[0][0] * cofactor[0][0] + m[0][1] * cofactor[0][1] + m[0][2] * cofactor[0][2];
    const double scale = det != 0 && std::isfinite(1 / det) ? 1 / det : 0;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            rows[i][j] = cofactor[j][i] * scale;
}

}  // namespace

SpaceTexture::SpaceTexture(TessraPluginDesc* desc) : HostTexture(desc) {
    first_.fallback = kDefaultFirst;
    second_.fallback = kDefaultSecond;
    paramList->setParamCache("color_a", &first_.texture);
    paramList->setParamCache("color_b", &second_.texture);
    paramList->setParamCache("transform", &transform_);
    paramList->setParamCache("size", &size_);
    paramList->setParamCache("use_uvw", &useUvw_);
}

void SpaceTexture::addSpaceRows(TessraParameterListDesc& table, float size) {
    table.addParamTexture("color_a", &kDefaultFirst, -1, "First colour");
    table.addParamTexture("color_b", &kDefaultSecond, -1, "Second colour");
    table.addParamFloat("size", size, -1, "Size of one cell, in scene units or in uvw",
                        "minValue=(1e-9)");
    table.addParamBool("use_uvw", false, -1,
                       "Follow the surface's own coordinates where it has them");
    table.addParamTransform("transform", true, {}, -1, "Placement in the world");
}

void SpaceTexture::frameBegin(TessraRenderer* renderer) {
    HostTexture::frameBegin(renderer);
    invertColumns(transform_.f, inverse_);
    // Shaded positions have the scene's offset subtracted.
    origin_ = transform_.offs - renderer->getFrameData().sceneOffset;
}

TracePoint SpaceTexture::place(const TextureContext& context) const {
    const double scale = size_ > 0 ? 1.0 / size_ : 0.0;
    if (useUvw_ && context.hasUVW)
        return toPoint(context.uvw) * scale;
    const TracePoint p = context.position - origin_;
    TracePoint result;
    for (int a = 0; a < 3; ++a)
        result[a] = (inverse_[a][0] * p.x + inverse_[a][1] * p.y + inverse_[a][2] * p.z) * scale;
    return result;
}

HostPluginInfo CheckerTexturePlugin::info() {
    return {"TessraTexChecker",
            2026010121,
            HostCategory::Texture,
            "Cubes of two colours in turn.",
            {ids::kTexture, ids::kTextureFloat}};
}

void CheckerTexturePlugin::defineParameters(TessraParameterListDesc& table) {
    addSpaceRows(table, 1);
    addOutputs(table);
}

AColor CheckerTexturePlugin::getTexColor(const TextureContext& context) {
    const TracePoint p = place(context);
    // Cubes are shifted by a hair, so that a plane on a cube's face doesn't flicker between two.
    constexpr double kHair = 1e-6;
    double sum = 0;
    for (int a = 0; a < 3; ++a)
        sum += std::floor(p[a] + kHair);
    const bool odd = std::fmod(std::abs(sum), 2.0) == 1.0;
    return odd ? second_.at(context) : first_.at(context);
}

HostPluginInfo NoiseTexturePlugin::info() {
    return {"TessraTexNoise",
            2026010122,
            HostCategory::Texture,
            "Clouds: octaves of smooth noise between two colours.",
            {ids::kTexture, ids::kTextureFloat}};
}

void NoiseTexturePlugin::defineParameters(TessraParameterListDesc& table) {
    const FractalNoise defaults;
    addSpaceRows(table, 1);
    table.addParamInt("octaves", defaults.octaves, -1, "Layers of finer and finer noise",
                      "minValue=(1), maxValue=(16)");
    table.addParamFloat("lacunarity", defaults.lacunarity, -1, "How much finer each layer is",
                        "minValue=(1), maxValue=(16)");
    table.addParamFloat("gain", defaults.gain, -1,
                        "How strong each layer is against the one before",
                        "minValue=(0), maxValue=(1)");
    table.addParamFloat("contrast", 1, -1, "Steepness of the way from one colour to the other",
                        "minValue=(0)");
    addOutputs(table);
}

NoiseTexturePlugin::NoiseTexturePlugin(TessraPluginDesc* desc) : SpaceTexture(desc) {
    paramList->setParamCache("octaves", &noise_.octaves);
    paramList->setParamCache("lacunarity", &noise_.lacunarity);
    paramList->setParamCache("gain", &noise_.gain);
    paramList->setParamCache("contrast", &contrast_);
}

AColor NoiseTexturePlugin::getTexColor(const TextureContext& context) {
    const float n = fractalNoise(place(context), noise_);
    const float t = std::clamp(0.5f + 0.5f * n * contrast_, 0.0f, 1.0f);
    const AColor a = first_.at(context), b = second_.at(context);
    return {a.color * (1 - t) + b.color * t, a.alpha * (1 - t) + b.alpha * t};
}

}  // namespace nimbra::host
