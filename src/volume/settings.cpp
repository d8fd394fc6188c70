// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Reads the settings of a frame. The order of the steps matters: some keys change what others mean.
#include "volume/settings.h"

#include <algorithm>
#include <cmath>

#include "cache/frame_data.h"
#include "volume/grid_transforms.h"
#include "volume/lut_holder.h"
#include "volume/nimbra_params.h"
#include "volume/volume_shader.h"

namespace nimbra {

namespace {

/// What an input is based on: a channel of the frame, or one of these.
constexpr int kBasedOnNothing = 0;  // of emission and diffuse
constexpr int kBasedOnSimpleSmoke = 0;
constexpr int kBasedOnSmokeTexture = 0;
constexpr int kBasedOnTexture = 4;
constexpr int kEmissionFromGridColor = 5;
constexpr int kDiffuseFromSimpleColor = 5;
constexpr int kDiffuseFromGridColor = 6;

class SettingsReader {
public:
    SettingsReader(VolumeShader& target, const VolumeSettingsSource& from)
        : shader(target), source(from), params(from.params), luts(from.luts) {}

    void read() {
        reset();
        readBeforeGrid();
        giveGrid();
        if (shader.outOfMemory)
            return;
        readMarching();
        readLighting();
        readMotionAndFades();
        readTransparencies();
        readBasedOn();
        takeTables();
        normalizeInputs();
        bindChannels();
        readDisplacement();
        readOutputs();
        shader.sampleMask = sampleMask();
    }

private:
    void setFlag(std::uint32_t flag, bool on) {
        shader.flags = on ? shader.flags | flag : shader.flags & ~flag;
    }
    bool isOn(const char* key) const { return params.getInt(key) != 0; }

    void reset() {
        shader.flags = kMediumFog;
        shader.setDefaults();
        std::fill(shader.gridSize, shader.gridSize + 3, 0);
        for (int slot = 0; slot < kSlotCount; ++slot)
            shader.bindChannel(nullptr, slot, kNoChannel);
        shader.setTransforms(source.transforms.objectFromGrid, source.transforms.worldFromObject,
                             false);
    }

    void readBeforeGrid() {
        setFlag(kLightCache, isOn("lightcache"));
        setFlag(kProbBounces, isOn("pmbounces"));
        setFlag(kProbPrimary, isOn("pmprimary"));
        setFlag(kHeatHaze, isOn("heathaze"));
        // (n - 1) of air per kelvin, over a step in kelvin.
        shader.hhfactor = params.getFloat("hhfactor") * -0.000293f * 0.0033333334f;
        const bool geometry = isOn("geommode");
        setFlag(kVolumetric, !geometry);
        setFlag(kSolid, geometry && isOn("rendsolid") && !source.forGPU);
        setFlag(kJitter, isOn("jitter"));
        setFlag(kInvertGizmo, isOn("invgizmo"));
    }

    void giveGrid() {
        int size[3] = {luts.gridSize[0], luts.gridSize[1], luts.gridSize[2]};
        if (source.frame)
            source.frame->getGridSize(size);
        shader.outOfMemory = false;
        shader.setGridSize(size);
    }

    void readMarching() {
        const int bounces = params.getInt("bounces");
        shader.bounces = bounces == 0 ? 0x7FFFFFFF : bounces;
        shader.rendstep = static_cast<float>(params.getInt("rendstep")) * 0.01f;
        shader.rendshadstep = static_cast<float>(params.getInt("rendshadstep")) * 0.01f;
        shader.softb = params.getFloat("softb");
        shader.surflevel = params.getFloat("surflevel");
        shader.subred = std::clamp(params.getFloat("subred"), 0.0f, 0.999f);
        shader.sampler = std::clamp(params.getInt("sampler"), 0, 2);
        shader.bias = params.getFloat("bias");
        shader.optvolpass = params.getInt("optvolpass");
    }

    void readLighting() {
        shader.difmul = params.getFloat("difmul");
        shader.transfext = params.getFloat("transfext");
        shader.transfown = params.getFloat("transfown");
        shader.shad_strength = params.getFloat("shad_strength");
        shader.noscatter = params.getInt("noscatter");
        shader.brdfscatter = params.getFloat("brdfscatter");
        shader.selfShadowed = isOn("al_enable") && params.getInt("selfshadow") == 2;
        shader.gridReductInv = 1.0f / (params.getFloat("gridreduct") * 0.01f);
        shader.self_illum_map_min_pow = params.getFloat("self_illum_map_min_pow");
        shader.al_decay = params.getInt("al_decay");
    }

    void readMotionAndFades() {
        shader.displmul = params.getFloat("displmul");
        shader.fadebylevel = isOn("fadebylevel");
        shader.displfade = params.getFloat("displfade");
        shader.fadebyvel = isOn("fadebyvel");
        shader.displvelfade = params.getFloat("displvelfade");
        shader.usefadeobj = isOn("usefadeobj");
        shader.displgeomfade = params.getFloat("displgeomfade");
        shader.play_speed = params.getFloat("play_speed");
        shader.frameDuration = 1.0f / 30;
        shader.mbgrid = isOn("mbgrid");
        shader.mbsmooth = params.getInt("mbsmooth");
    }

    void readTransparencies() {
        shader.smoketransp = params.getFloat("smoketransp");
        shader.stoptransp = params.getFloat("stoptransp");
        shader.skiptransp = params.getFloat("skiptransp");
        // Each mode has one slider that runs the other way.
        if (isOn("transpmode")) {
            shader.stoptransp = 1 - shader.stoptransp;
            shader.smoketransp = 1 - shader.smoketransp;
        } else {
            shader.skiptransp = 1 - shader.skiptransp;
        }
        shader.smoketransp = std::log(std::clamp(shader.smoketransp, 1e-12f, 1.0f)) *
                             params.getDensityScale(source.frame);
    }

    void readBasedOn() {
        earg = params.getInt("earg");
        darg = params.getInt("darg");
        targ = params.getInt("targ");
        sarg = params.getInt("sarg");
        const bool emission = params.hasTexture(kEmissionTexture);
        const bool diffuse = params.hasTexture(kDiffuseTexture);
        opacityTexture = params.hasTexture(kOpacityTexture);
        const bool smoke = params.hasTexture(kSmokeTexture);
        setFlag(kTexEmissive, earg == kBasedOnTexture && emission);
        setFlag(kTexDiffuse, darg == kBasedOnTexture && diffuse);
        setFlag(kTexOpacity, targ == kBasedOnTexture && opacityTexture);
        setFlag(kTexSmoke, sarg == kBasedOnSmokeTexture && smoke);
        setFlag(kModEmissive, emission && isOn("mod_e"));
        setFlag(kModDiffuse, diffuse && isOn("mod_d"));
        setFlag(kModOpacity, opacityTexture && isOn("mod_t"));
        setFlag(kDiffuse, darg != kBasedOnNothing && (darg != kBasedOnTexture || diffuse));
        setFlag(kEmissive, earg != kBasedOnNothing && (earg != kBasedOnTexture || emission));
    }

    void takeTables() {
        const bool emission = earg != kEmissionFromGridColor;
        shader.emissionTable = emission ? luts.emission.get() : nullptr;
        shader.fireOpacityTable = emission ? luts.fireOpacity.get() : nullptr;
        const bool diffuse = darg != kDiffuseFromSimpleColor && darg != kDiffuseFromGridColor &&
                             !shader.has(kTexDiffuse);
        shader.diffuseTable = diffuse ? luts.diffuse.get() : nullptr;
        if (targ == kBasedOnTexture && !opacityTexture)
            targ = kBasedOnSimpleSmoke;
        shader.opacityTable = targ != kBasedOnSimpleSmoke ? luts.opacity.get() : nullptr;

        shader.fire_opacity_mode = params.getInt("fire_opacity_mode");
        // The fire's own opacity brings the power in squared.
        if (shader.fire_opacity_mode == kFireOwnOpacity)
            shader.self_illum_map_min_pow *= shader.self_illum_map_min_pow;
        setFlag(kExtraLights, isOn("al_enable"));
        shader.useGridColor = darg == kDiffuseFromGridColor;
        if (shader.diffuseTable)
            shader.simpleColor = {shader.diffuseTable[0], shader.diffuseTable[1],
                                  shader.diffuseTable[2]};
        else
            shader.simpleColor = params.getColor("simple_color");
    }

    void normalizeInputs() {
        LutRange ranges[3] = {luts.eRange, luts.dRange, luts.tRange};
        if (targ == kBasedOnSimpleSmoke) {
            targ = kSmoke;
            ranges[2] = {0, 1};
        }
        for (int i = 0; i < 3; ++i) {
            const bool valid = ranges[i].width > 0;
            shader.inputScale[i] = valid ? 1 / ranges[i].width : 0;
            shader.inputOffset[i] = valid ? -ranges[i].start / ranges[i].width : 0;
        }
        // A field that is solid below the level is mirrored around the level.
        const bool below = isOn("solidbelow");
        shader.inputOffset[kSlotS] = below ? 2 * shader.surflevel : 0;
        shader.inputScale[kSlotS] = below ? -1 : 1;
    }

    void bindChannels() {
        if (!source.frame)
            return;
        if (!shader.has(kSolid)) {
            if (!shader.has(kTexEmissive) && shader.emissionTable && shader.has(kEmissive))
                shader.bindChannel(source.frame, kSlotE, earg);
            if (!shader.has(kTexDiffuse) && shader.diffuseTable && shader.has(kDiffuse))
                shader.bindChannel(source.frame, kSlotD, darg);
        }
        if (!shader.has(kTexOpacity))
            shader.bindChannel(source.frame, kSlotT, targ);
        if (!shader.has(kTexSmoke))
            shader.bindChannel(source.frame, kSlotS, sarg);
        if (needsGridColor()) {
            for (int i = 0; i < 3; ++i)
                shader.bindChannel(source.frame, kSlotColor + i, kColorR + i);
        }
    }

    bool needsGridColor() const {
        return darg == kDiffuseFromGridColor || earg == kEmissionFromGridColor ||
               shader.has(kTexEmissive | kTexDiffuse | kTexOpacity);
    }

    void readDisplacement() {
        if (!source.skipDisplacement && isOn("displacement") && shader.displmul != 0)
            shader.displ2d = params.getInt("displ2d");
    }

    void readOutputs() {
        shader.wrapFlags = (isOn("wrapx") ? kSampleWrapX : 0u) |
                           (isOn("wrapy") ? kSampleWrapY : 0u) |
                           (isOn("wrapz") ? kSampleWrapZ : 0u);
        shader.volnorm = params.getInt("volnorm");
        shader.volzdepth = params.getInt("volzdepth");
    }

    std::uint32_t sampleMask() const {
        std::uint32_t mask = 0;
        if (shader.has(kDiffuse) && shader.diffuseTable && !shader.has(kTexDiffuse))
            mask |= kSampleD;
        if (shader.has(kEmissive) && !shader.has(kTexEmissive))
            mask |= kSampleE;
        return needsGridColor() ? mask | kSampleColor : mask;
    }

    VolumeShader& shader;
    const VolumeSettingsSource& source;
    const NimbraParams& params;
    const NimbraVolumeRenderLUTholder& luts;
    int earg = 0, darg = 0, targ = 0, sarg = 0;
    bool opacityTexture = false;
};

}  // namespace

void readVolumeSettings(VolumeShader& shader, const VolumeSettingsSource& source) {
    SettingsReader(shader, source).read();
}

}  // namespace nimbra
