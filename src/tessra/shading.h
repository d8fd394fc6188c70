// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Rays, the shading context, scattering functions and the host's light loop, as they cross the
// border between host and library. Everything here is used on render threads and is per ray.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tessra/math.h"
#include "tessra/plugin_base.h"

namespace TessUtils {

/// The class of a ray. A primary path (camera ray and what mirrors and lenses make of it) carries
/// kRayPath; the bits beside it say what the last bounce was.
enum RayFlags : std::uint32_t {
    kRayPath = 0x1,  // part of a path that reaches the picture: all but shadow rays
    kRayReflection = 0x2,
    kRayRefraction = 0x4,
    kRayShadow = 0x8,   // asks for transparency only
    kRayGI = 0x10,      // after a diffuse bounce
    kRayVolume = 0x20,  // while the light loop lights a point inside a volume for it: no surface
                        // normal there; rays that the loop sends off don't inherit the flag
    kRayLightCachePass = 0x40,  // of a light-cache or irradiance pre-pass
    kRayCaustics = 0x80,
    kRayFirstHit = 0x100,  // render channels are written for this ray
    kRayNoFilter = 0x200,  // texture look-ups without a filter size
};

/// A ray in world space (the frame's scene offset already subtracted). `dir` is of unit length, so
/// the parameters are distances in scene units.
struct TraceRay {
    TracePoint p;
    Vector dir;
    double mint = 0;
    double maxt = 1e18;
    float time = 0;  // within the frame's motion interval, 0 to 1
    std::uint32_t flags = kRayPath;
    int depth = 0;         // bounces of any kind since the camera
    int diffuseLevel = 0;  // diffuse bounces since the camera
    /// What the ray left: the object that a volume or light registered as its own, or null.
    const void* origin = nullptr;
    /// The light that a shadow ray goes to; null for other rays.
    const Plugin* light = nullptr;
};

/// Random numbers of one ray, uniform in [0, 1): a pure function of pixel, sample and bounce.
class TESSRA_API RaySampler {
public:
    virtual ~RaySampler();
    virtual float next() = 0;
};

/// Fog inside a medium that a ray runs through (glass with fog): none where `unit` is 0.
struct MediumFog {
    Color color{1, 1, 1};
    float unit = 0;
};

class BRDFSampler;
class LightListInterface;
class ShadingContext;
struct ShadeData;

/// An object that prepares its own points for the light loop.
class TESSRA_API Shadeable {
public:
    virtual ~Shadeable() = default;
    /// Enters what the light loop must know of the object: ShadeData::object and the lights it
    /// takes.
    virtual void setupShading(const ShadingContext& context, ShadeData& data) const = 0;
};

/// Aliases of the render channels that the host knows by number.
enum RenderChannelAlias : int {
    kChannelDiffuse = 101,
    kChannelSelfIllumination = 104,
    kChannelShadow = 105,
    kChannelLighting = 107,
    kChannelGI = 108,
    kChannelRawGI = 110,
    kChannelRawLighting = 111,
    kChannelRawShadow = 112,
    kChannelVelocity = 113,
    kChannelZDepth = 117,
    kChannelTotalLighting = 129,
    kChannelRawTotalLighting = 130,
};

/// A render channel that takes part in this render.
struct RenderChannelRef {
    int alias = 0;     // RenderChannelAlias, or 0
    std::string name;  // of channels known by name, like "TessraVolumeGrid_normals"
    int index = -1;    // where a ray's value goes, into FragmentChannels; -1: not written
};

/// The value of each render channel of one ray, four floats a channel.
struct FragmentChannels {
    std::vector<Color> values;
};

/// ID kRenderChannelList, asked of the sequence.
class TESSRA_API RenderChannelListInterface : public PluginInterface {
public:
    InterfaceID getInterfaceID() const override { return ids::kRenderChannelList; }
    std::vector<RenderChannelRef> channels;
};

/// One answer of a volume in a ray's list of fragments.
struct Fragment {
    int kind = 0;  // 100: volume
    Color color;
    Color transparency{1, 1, 1};
};

/// What a volume answers for one ray stretch. `color` is to be added to what lies behind times
/// `transparency`.
struct VolumeResult {
    AColor color;
    AColor transparency{{1, 1, 1}, 1};
    AColor transparency2{{1, 1, 1}, 1};  // without probabilistic noise; the same here
};

/// Light that arrives at a shaded point. Filled by the host's light loop through a BRDFSampler.
struct LightingSums {
    Color direct;  // weighted by the scattering function
    Color gi;
    Color rawDirect;  // without shadows applied: light that would arrive
    Color shadow;     // what shadows took away
};

/// Everything the host and a volume share about one ray on one thread.
class TESSRA_API ShadingContext {
public:
    virtual ~ShadingContext();
    int threadIndex = 0;
    TraceRay ray;
    RaySampler* sampler = nullptr;
    float screenX = 0, screenY = 0;  // pixel position
    MediumFog fog;
    float giRayLimit = 0;                        // longest indirect ray in scene units; 0: no limit
    LightListInterface* lights = nullptr;        // the host's light loop; null: no lighting
    FragmentChannels* channels = nullptr;        // null unless kRayFirstHit
    std::vector<Fragment>* fragments = nullptr;  // may be null
    VolumeResult volumeResult;                   // where a volume puts its answer
    /// The motion of a world point, in pixels in x and y, over `displacement` in scene units.
    virtual Vector projectVelocity(const TracePoint&, const Vector& /*displacement*/) const {
        return {};
    }
};

/// Flags of ShadeData, read by the host's light loop.
enum ShadeFlags : std::uint32_t {
    kShadeCastShadows = 0x1010,      // shadow rays that may follow the class of the asking ray
    kShadeVolumePoint = 0x808000,    // no surface: no cosine, no normal test
    kShadeFixedShadows = 0x2000000,  // in place of kShadeCastShadows: shadow rays (and those of
                                     // indirect light) are traced all the same, but depend on the
                                     // point alone, at the start of the frame, whoever asks
    kShadeNotInGI = 0x200000,        // takes no indirect light
};

/// A point that the host is to light.
struct ShadeData {
    TracePoint position;
    Vector normal;  // for volume points the direction back along the ray
    std::uint32_t flags = kShadeCastShadows;
    float lightLevel = 1;  // scale of all light
    float giLevel = 1;     // further scale of indirect light
    Color importance{1, 1, 1};
    Color transparency;            // of the surface, 0 to 1
    const void* object = nullptr;  // what shadow rays of this point leave (TraceRay::origin)
    std::uint32_t sampleSeed = 0;  // added to the sampler's state where lights are sampled
    bool seedAlone = false;        // the state is sampleSeed itself, whichever ray asks
    /// Lights to use in place of all lights of the scene; null: all.
    const std::vector<PluginBase*>* onlyLights = nullptr;
    LightingSums sums;  // of the light loop
};

/// How many directions a scattering function wants to be sampled by.
struct DMCParam {
    int minSamples = 1;
    int maxSamples = 1;
    float threshold = 0;  // of the error at which sampling may stop
};

/// A scattering function at a shaded point, asked by the host's light loop.
class TESSRA_API BRDFSampler {
public:
    virtual ~BRDFSampler();
    /// Light scattered towards the ray from one light sample. `lightDir` points from the shaded
    /// point to the light; `lightColor` is the light with shadows and attenuation, `raw` without
    /// shadows; `distance` to the light's position, negative for lights without one (sun, sky).
    /// Implementations clear `lightColor` and `raw` once they are used.
    virtual Color eval(const TraceRay& ray, const Vector& lightDir, Color& lightColor, Color& raw,
                       float distance) = 0;
    /// A direction for indirect light from two random numbers. The light found along it is
    /// multiplied by `weight` before it goes into `eval`, and looked for no further than
    /// `rayLength`.
    virtual Vector sampleDirection(const TraceRay& ray, const float u[2], float& weight) = 0;
    /// The base wants a single direction. This host decides by its own settings.
    virtual DMCParam getDMCParam(const ShadingContext& context) const;
    /// Light along directions that are no matter of chance, as of a mirror; the base has none.
    virtual Color traceForward(ShadingContext& context);
    double rayLength = 1e18;
    /// True while the host evaluates indirect light.
    bool giMode = false;
};

/// The host's light loop. Re-entrant.
class TESSRA_API LightListInterface {
public:
    virtual ~LightListInterface();
    /// Lights `data` with all lights (and GI rays where the host traces them), adding the answers
    /// of `brdf` to `data.sums`. Shadow rays run through surfaces and volumes and carry
    /// `data.object` as their origin.
    virtual void illuminate(ShadingContext& context, ShadeData& data, BRDFSampler& brdf) = 0;
};

}  // namespace TessUtils
