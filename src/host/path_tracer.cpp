// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/path_tracer.h"

#include <algorithm>
#include <stdexcept>

#include "host/camera_plugin.h"
#include "host/integrator.h"
#include "host/mesh_plugin.h"

namespace nimbra::host {

using TessUtils::AColor;
using TessUtils::LightInterface;
using TessUtils::StaticGeomInstance;
using TessUtils::StaticGeomSourceInterface;
using TessUtils::TessraRenderer;
using TessUtils::TraceRay;
using TessUtils::VolumetricInterface;
using TessUtils::VolumetricListInterface;

struct PathTracer::State {
    explicit State(HostLog& l) : log(l) {}

    HostLog& log;
    TraceScene scene;
    std::unique_ptr<Integrator> integrator;
    /// Geometry that plug-ins of the library brought, to be given back.
    std::vector<std::pair<StaticGeomSourceInterface*, StaticGeomInstance*>> instances;
    bool motionBlur = false;   // rays have times
    bool cameraMoves = false;  // within the frame

    void gatherCamera(const TessUtils::TessraFrameData& frame, Scene& plugins);
    void gatherMeshes(Scene& plugins);
    int addPlaced(PlacedPlugin& plugin, const MaterialPlugin* material);
    void gatherGenerated(TessraRenderer& renderer, Scene& plugins);
    void gatherLights(Scene& plugins);
    void gatherVolumes(TessraRenderer& renderer);
    int addObject(const SurfaceObject& object, bool opaque);
    bool cameraRay(const CameraSample& sample, const LensSample& lens, float time,
                   TraceRay& ray) const;
    void clear();
};

PathTracer::PathTracer(HostLog& log) : state_(std::make_unique<State>(log)) {}

PathTracer::~PathTracer() {
    endFrame();
}

std::vector<std::string> PathTracer::layerNames() const {
    return {"Z"};
}

std::uint64_t PathTracer::rayCount() const {
    return state_->integrator ? state_->integrator->rayCount() : 0;
}

void PathTracer::beginFrame(TessraRenderer& renderer, Scene& scene,
                            const RenderSettings& settings) {
    endFrame();
    State& s = *state_;
    s.scene.settings = settings;
    s.motionBlur = settings.motionBlur;
    s.gatherCamera(renderer.getFrameData(), scene);
    s.gatherMeshes(scene);
    s.gatherGenerated(renderer, scene);
    s.scene.surfaces.commit();
    s.scene.hasSurfaces = !s.scene.surfaces.empty();
    s.gatherLights(scene);
    s.gatherVolumes(renderer);
    const int threads =
        std::clamp(renderer.getSequenceData().threadCount, 1, TessUtils::kMaxRenderThreads);
    s.integrator = std::make_unique<Integrator>(s.scene, threads);
}

void PathTracer::endFrame() {
    state_->clear();
}

void PathTracer::State::clear() {
    integrator.reset();
    scene.surfaces.clear();
    scene.objects.clear();
    scene.allOpaque = true;
    scene.volumes.clear();
    scene.lights.clear();
    scene.lightOf.clear();
    scene.backgrounds.clear();
    scene.unseenLights.clear();
    for (auto& camera : scene.cameras)
        camera.reset();
    for (const auto& [source, instance] : instances)
        source->deleteInstance(instance);
    instances.clear();
}

void PathTracer::State::gatherCamera(const TessUtils::TessraFrameData& frame, Scene& plugins) {
    const std::vector<CameraPlugin*> cameras = plugins.pluginsOf<CameraPlugin>();
    if (cameras.empty())
        throw std::runtime_error("the scene has no TessraCamera");
    const RenderSettings& settings = scene.settings;
    cameraMoves = motionBlur && cameras.front()->hasMotionBlur();
    const double times[2] = {cameraMoves ? frame.frameStart : frame.t,
                             cameraMoves ? frame.frameEnd : frame.t};
    for (int end = 0; end < 2; ++end)
        scene.cameras[end] = cameras.front()->makeCamera(
            times[end], settings.width, settings.height, frame.sceneOffset, settings.up);
}

int PathTracer::State::addObject(const SurfaceObject& object, bool opaque) {
    scene.allOpaque = scene.allOpaque && opaque && object.castsShadows;
    scene.objects.push_back(object);
    return static_cast<int>(scene.objects.size()) - 1;
}

int PathTracer::State::addPlaced(PlacedPlugin& plugin, const MaterialPlugin* material) {
    SurfaceObject object;
    object.material = material;
    object.visibleToCamera = plugin.visibleToCamera();
    object.castsShadows = plugin.castsShadows();
    object.identity = &plugin;
    object.plugin = &plugin;
    return addObject(object, !material || material->isOpaque());
}

void PathTracer::State::gatherMeshes(Scene& plugins) {
    for (MeshPlugin* mesh : plugins.pluginsOf<MeshPlugin>())
        scene.surfaces.search().addMesh(*mesh->getMesh(), mesh->place(0), mesh->place(1),
                                        addPlaced(*mesh, mesh->material()));
    for (InstancePlugin* copy : plugins.pluginsOf<InstancePlugin>()) {
        MeshPlugin* source = copy->source();
        if (!source)
            continue;
        const MaterialPlugin* material = copy->material() ? copy->material() : source->material();
        scene.surfaces.search().addInstance(*source->getMesh(), copy->place(0), copy->place(1),
                                            addPlaced(*copy, material));
    }
}

void PathTracer::State::gatherGenerated(TessraRenderer& renderer, Scene& plugins) {
    for (Plugin* plugin : plugins.plugins()) {
        auto* source = dynamic_cast<StaticGeomSourceInterface*>(
            plugin->getInterface(TessUtils::ids::kStaticGeomSource));
        StaticGeomInstance* instance = source ? source->newInstance(&renderer) : nullptr;
        if (!instance)
            continue;
        instances.emplace_back(source, instance);
        instance->compile(&renderer);
        SurfaceObject object;
        object.identity = plugin;
        object.plugin = plugin;
        if (TessUtils::UserPrimitive* primitive = instance->primitive())
            scene.surfaces.search().addPrimitive(*primitive, addObject(object, false));
        if (const TessUtils::TriangleMesh* mesh = instance->mesh())
            scene.surfaces.search().addMesh(*mesh, {}, {}, addObject(object, true));
    }
}

void PathTracer::State::gatherLights(Scene& plugins) {
    for (Plugin* plugin : plugins.plugins()) {
        auto* light = dynamic_cast<LightInterface*>(plugin->getInterface(TessUtils::ids::kLight));
        if (!light)
            continue;
        scene.lights.push_back(light);
        scene.lightOf.emplace(plugin, light);
        TessUtils::Color seen;
        const auto* own = dynamic_cast<const LightPlugin*>(plugin);
        if (own)
            scene.backgrounds.push_back(own);
        if (!own || !own->background({0, 1, 0}, seen))
            scene.unseenLights.push_back(plugin);
    }
    if (scene.lights.empty())
        log.warning("the scene has no lights");
}

void PathTracer::State::gatherVolumes(TessraRenderer& renderer) {
    auto* list = dynamic_cast<VolumetricListInterface*>(
        renderer.getInterface(TessUtils::ids::kVolumetricList));
    if (!list)
        return;
    for (VolumetricInterface* volumetric : list->volumetrics)
        if (TessUtils::TessraVolume* volume = volumetric->getVolume())
            scene.volumes.push_back(volume);
}

bool PathTracer::State::cameraRay(const CameraSample& sample, const LensSample& lens, float time,
                                  TraceRay& ray) const {
    ray = {};
    if (!scene.cameras[0]->ray(sample.x, sample.y, lens, ray))
        return false;
    if (motionBlur)
        ray.time = time;
    if (!cameraMoves)
        return true;
    // Between its two places the camera moves along a line.
    TraceRay last;
    if (!scene.cameras[1]->ray(sample.x, sample.y, lens, last))
        return false;
    ray.p = ray.p * (1.0 - time) + last.p * time;
    ray.dir = normalize(ray.dir * (1 - time) + last.dir * time);
    return true;
}

namespace {

/// Numbers that nobody needs cost nothing, but keep their dimensions.
LensSample drawPair(PixelSampler& random, bool needed) {
    if (needed)
        return {{random.next(), random.next()}};
    random.skipPair();
    return {};
}

}  // namespace

void PathTracer::radiance(const CameraSample& sample, SampleValue& out) {
    const State& s = *state_;
    TraceContext& context = s.integrator->cameraContext(sample.threadIndex);
    context.sampler = sample.random;
    context.screenX = sample.x;
    context.screenY = sample.y;
    const LensSample lens = drawPair(*sample.random, s.scene.camera().hasWideLens());
    const float time = drawPair(*sample.random, s.motionBlur).u[0];

    out.color = {};
    out.alpha = 0;
    for (float& layer : out.layers)
        layer = kNoDepth;
    if (!s.cameraRay(sample, lens, time, context.ray))
        return;
    const TraceRay ray = context.ray;
    const PathValue value = s.integrator->trace(context);
    const AColor behind = s.scene.background(ray.dir);
    out.color = value.color + value.transmittance * behind.color;
    const TessUtils::Color& t = value.transmittance;
    out.alpha = 1 - (t.r + t.g + t.b) / 3 * (1 - behind.alpha);
    if (value.firstSurface >= 0 && !out.layers.empty())
        out.layers[0] = static_cast<float>(
            s.scene.camera().depth(ray.p + toPoint(ray.dir) * value.firstSurface));
}

}  // namespace nimbra::host
