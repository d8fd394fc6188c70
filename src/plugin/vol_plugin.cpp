// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "plugin/vol_plugin.h"

#include <algorithm>
#include <cmath>

#include "plugin/probabilistic_samples.h"
#include "plugin/render_situation.h"
#include "plugin/sim_interface.h"
#include "plugin/volume_register.h"
#include "tessra/light.h"
#include "volume/illuminator_tessra.h"
#include "volume/march.h"
#include "volume/nimbra_renderer.h"
#include "volume/ray_kind.h"

namespace nimbra {

using namespace TessUtils;

namespace {

/// In the place of a saved time: nothing was saved.
constexpr float kNoTime = 1e18f;
/// Kind of a volume's entry in a ray's list of fragments.
constexpr int kVolumeFragment = 100;

/// The value of a whole-numbered row of a plug-in, 0 where it has none or leaves it unset.
int rowValue(TessraPluginInterface& plugin, const char* name) {
    const TessraPluginParameter* row = plugin.getParameter(name);
    return row ? row->getInt(0, 0) : 0;
}

AColor withRepeatedBlue(const Color& c) {
    return {c, c.b};
}

void setResult(VolumeResult& result, const Color& color, const Color& opacity) {
    const Color transparency{std::max(1 - opacity.r, 0.0f), std::max(1 - opacity.g, 0.0f),
                             std::max(1 - opacity.b, 0.0f)};
    result.color = withRepeatedBlue(color);
    result.transparency = result.transparency2 = withRepeatedBlue(transparency);
}

bool isShadowRay(const TraceRay& ray) {
    return (ray.flags & kRayShadow) != 0;
}

/// Whether the light of a shadow ray is the container's own fire.
bool comesFromOwnLight(const TraceRay& ray, NimbraSimInterface& container) {
    if (!ray.light)
        return false;
    Plugin* plugin = container.getPlugin();
    return plugin == ray.light && plugin->getInterface(ids::kLight);
}

bool contains(const WorldBox& box, const TracePoint& p) {
    return box.low.x <= p.x && p.x <= box.high.x && box.low.y <= p.y && p.y <= box.high.y &&
           box.low.z <= p.z && p.z <= box.high.z;
}

VolumeShaderTessra& asTessra(VolumeShader& shader) {
    return static_cast<VolumeShaderTessra&>(shader);
}

}  // namespace

NimbraVolPlugin::NimbraVolPlugin(TessraPluginDesc* desc) : TessraVolumetric(desc) {}

PluginInterface* NimbraVolPlugin::getInterface(InterfaceID id) {
    switch (id) {
        case ids::kRenderSettings:
            return static_cast<RenderSettingsInterface*>(this);
        case ids::kGeomGen:
        case ids::kGeomGen2:
            return static_cast<GeomGenInterface2*>(this);
        case ids::kSceneModifier:
            return static_cast<TessraSceneModifierInterface*>(this);
        case ids::kStaticGeomSource:
            return static_cast<StaticGeomSourceInterface*>(this);
        case ids::kTopLevelPlugin:
            return static_cast<TopLevelPluginInterface*>(this);
        default:
            return TessraVolumetric::getInterface(id);
    }
}

void NimbraVolPlugin::renderBegin(TessraRenderer* renderer) {
    TessraVolumetric::renderBegin(renderer);
    normalChannel.shared = zDepthChannel.shared = ageChannel.shared = true;
    for (Plugin* plugin : getVolumeRegister(renderer)->plugins) {
        auto* rows = static_cast<TessraPluginInterface*>(plugin->getInterface(ids::kTessraPlugin));
        if (!rows)
            continue;
        constexpr int kSeparateNormals = 1, kSeparateZDepth = 2, kSeparateAge = 1;
        if (rowValue(*rows, "volnorm") == kSeparateNormals)
            normalChannel.shared = false;
        if (rowValue(*rows, "volzdepth") == kSeparateZDepth)
            zDepthChannel.shared = false;
        if (rowValue(*rows, "part_age") == kSeparateAge)
            ageChannel.shared = false;
    }
}

void NimbraVolPlugin::setupRender(TessraRenderer* renderer) {
    if (auto* list = queryRender<VolumetricListInterface>(renderer, ids::kVolumetricList))
        list->volumetrics.push_back(this);
    forceProbSamples = getParameter("force_prob_samples");
    forceProbSamplesGI = getParameter("force_prob_samples_gi");
    readProbabilisticSamples(renderer->getSequenceData(), renderer->getFrameData().t,
                             forceProbSamples, forceProbSamplesGI, samples, samplesGI);
}

void NimbraVolPlugin::renderEnd(TessraRenderer* renderer) {
    if (auto* list = queryRender<VolumetricListInterface>(renderer, ids::kVolumetricList)) {
        auto& volumetrics = list->volumetrics;
        const auto place = std::find(volumetrics.begin(), volumetrics.end(), this);
        if (place != volumetrics.end()) {
            *place = volumetrics.back();
            volumetrics.pop_back();
        }
    }
    releaseVolumeRegister(renderer);
    TessraVolumetric::renderEnd(renderer);
}

void NimbraVolPlugin::listShadersOf(Plugin* plugin, ProgressCallback* progress) {
    auto* container = static_cast<NimbraSimInterface*>(plugin->getInterface(ids::kNimbraSim));
    if (!container) {
        if (progress)
            progress->printWarning(
                "[NimbraVolPlugin] The Nimbra simulator plugin does not support "
                "NimbraSimInterface.\n");
        return;
    }
    if (container->isRenderable() == 0)
        return;
    for (int i = 0; NimbraRenderer* renderer = container->getRenderer(i); ++i) {
        renderer->collector = this;
        // Without memory an array is empty; the other one then is, too.
        if (!shaders.Append(renderer))
            simInterfaces.SetSize(0);
        else if (!simInterfaces.Append(container))
            shaders.SetSize(0);
    }
}

void NimbraVolPlugin::compileGeometry(TessraRenderer* renderer) {
    const TessraSequenceData& sequence = renderer->getSequenceData();
    shaders.SetSize(0);
    simInterfaces.SetSize(0);
    for (Plugin* plugin : getVolumeRegister(renderer)->plugins)
        listShadersOf(plugin, sequence.progress);
    renderChannels_ = queryRender<RenderChannelListInterface>(renderer, ids::kRenderChannelList);
    prepareThreads(sequence.threadCount);
    buildTree(sequence.progress);
    findBounds();
}

void NimbraVolPlugin::prepareThreads(int threadCount) {
    threadPools.resize(std::size_t(std::clamp(threadCount, 1, kMaxRenderThreads)));
    for (ThreadPool& pool : threadPools) {
        pool.blocks.prepare(shaders.size);
        pool.rayTime = 0;
    }
}

void NimbraVolPlugin::buildTree(ProgressCallback* progress) {
    tree_.clear();
    if (shaders.size < kTreeThreshold)
        return;
    std::vector<const VolumeShaderTessra*> list;
    for (VolumeShader* shader : shaders)
        list.push_back(&asTessra(*shader));
    tree_.build(list);
    if (progress) {
        progress->printInfo("QND tree contains %u primitives.", tree_.primitiveCount());
        progress->printInfo("QND tree built in %.2f ms, depth %u.", tree_.buildMilliseconds(),
                            tree_.depth());
    }
}

void NimbraVolPlugin::findBounds() {
    bounds_ = {};
    WorldBox all;
    for (VolumeShader* shader : shaders) {
        const WorldBox box = asTessra(*shader).worldBounds();
        if (box.isEmpty() || shader->moving)
            return;
        all.include(box);
    }
    // Matrices and their inverses are rounded to single precision, each for itself.
    double largest = 0;
    for (int axis = 0; axis < 3; ++axis)
        largest = std::max({largest, std::fabs(all.low[axis]), std::fabs(all.high[axis])});
    const double margin = 1e-5 * largest;
    const TracePoint step{margin, margin, margin};
    bounds_ = {all.low - step, all.high + step};
}

bool NimbraVolPlugin::mayMeet(const ShadingContext& context) const {
    // Who asks for fragments gets one of each ray.
    const TraceRay& ray = context.ray;
    if (context.fragments || bounds_.isEmpty() || contains(bounds_, ray.p))
        return true;
    return BoxRay(ray.p, ray.dir, static_cast<float>(ray.mint), static_cast<float>(ray.maxt))
        .mayMeet(bounds_);
}

void NimbraVolPlugin::clearGeometry(TessraRenderer*) {
    // Shaders end with their frame.
    shaders.SetSize(0);
    simInterfaces.SetSize(0);
    tree_.clear();
}

/// The shaders that take part in one ray. Shaders that keep a time for each thread, and textures,
/// are set to the ray's time while this lives: a ray that is traced from inside the march has a
/// time of its own, and gives the outer ray's back.
class NimbraVolPlugin::ActiveShaders {
public:
    ActiveShaders(NimbraVolPlugin& plugin, ShadingContext& context)
        : plugin_(plugin),
          pool_(plugin.threadPools[std::size_t(context.threadIndex)]),
          thread_(context.threadIndex),
          outerTime_(pool_.rayTime),
          active_(pool_.blocks.take()),
          savedTimes_(pool_.blocks.take()) {
        if (!active_ || !savedTimes_)
            return;
        pool_.rayTime = context.ray.time;
        for (int i = 0; i < plugin.shaders.size; ++i) {
            time(i) = kNoTime;
            if (plugin.simInterfaces[i]->isVisibleFor(context))
                activate(i, context);
        }
    }
    ~ActiveShaders() {
        for (int i = 0; savedTimes_ && active_ && i < plugin_.shaders.size; ++i)
            if (time(i) != kNoTime)
                *asTessra(*plugin_.shaders[i]).threadTime(thread_) = time(i);
        for (int i = 0; i < count_; ++i)
            if (usesTextures(*list()[i]))
                list()[i]->beginTextureFrame(outerTime_);
        pool_.rayTime = outerTime_;
        if (savedTimes_)
            pool_.blocks.give(savedTimes_);
        if (active_)
            pool_.blocks.give(active_);
    }
    ActiveShaders(const ActiveShaders&) = delete;
    ActiveShaders& operator=(const ActiveShaders&) = delete;

    int count() const { return count_; }
    const VolumeShader* const* list() const {
        return reinterpret_cast<const VolumeShader* const*>(active_);
    }
    /// The ray is a shadow ray to the fire light of one of the shaders.
    bool selfShadow() const { return selfShadow_; }

private:
    float& time(int i) { return reinterpret_cast<float&>(savedTimes_[i]); }
    static bool usesTextures(const VolumeShader& shader) {
        return shader.has(kTextureFlags | kModEmissive | kModDiffuse | kModOpacity);
    }

    void activate(int i, const ShadingContext& context) {
        VolumeShaderTessra& shader = asTessra(*plugin_.shaders[i]);
        active_[count_++] = static_cast<VolumeShader*>(&shader);
        if (float* threadTime = shader.threadTime(thread_)) {
            time(i) = *threadTime;
            *threadTime = context.ray.time;
        }
        if (usesTextures(shader)) {
            shader.beginTextureFrame(context.ray.time);
            shader.setTextureThread(thread_);
        }
        if (context.ray.flags & (kRayShadow | kRayVolume))
            selfShadow_ |= comesFromOwnLight(context.ray, *plugin_.simInterfaces[i]);
    }

    NimbraVolPlugin& plugin_;
    ThreadPool& pool_;
    const int thread_;
    const float outerTime_;  // of the ray that this one was traced from
    void** active_;
    void** savedTimes_;
    int count_ = 0;
    bool selfShadow_ = false;
};

void NimbraVolPlugin::shade(ShadingContext& context) {
    const bool known =
        context.threadIndex >= 0 && std::size_t(context.threadIndex) < threadPools.size();
    try {
        const bool empty = shaders.size == 0 || context.ray.maxt < context.ray.mint;
        if (known && !empty && mayMeet(context) && march(context))
            return;
    } catch (...) {
        // Without memory the ray passes as if there were no volumes.
    }
    setResult(context.volumeResult, {}, {});
}

bool NimbraVolPlugin::march(ShadingContext& context) {
    const ActiveShaders active(*this, context);
    if (active.count() == 0)
        return false;
    const TraceRay& ray = context.ray;
    const bool isShadow = isShadowRay(ray);
    IlluminatorTessra illuminator(&context, renderChannels_);
    ShadeQuery query;
    // The tree holds all shaders of the frame, also those that this ray doesn't see.
    query.tree = active.count() == shaders.size ? &tree_ : nullptr;
    query.shaders = active.list();
    query.count = active.count();
    query.rayStart = ray.p + toPoint(ray.dir) * ray.mint;
    query.rayEnd = ray.p + toPoint(ray.dir) * ray.maxt;
    query.time = ray.time;
    query.isGI = active.selfShadow();
    query.probabilisticSamples = isSecondaryKind(illuminator.kind) ? samplesGI : samples;

    Color color, opacity;
    Shade(query, illuminator, isShadow ? nullptr : &color, opacity);
    setResult(context.volumeResult, color, opacity);
    if (context.fragments)
        context.fragments->push_back({kVolumeFragment, context.volumeResult.color.color,
                                      context.volumeResult.transparency.color});
    return true;
}

}  // namespace nimbra
