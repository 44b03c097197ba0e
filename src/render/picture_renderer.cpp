#include "render/picture_renderer.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <deque>

#include "host/polygon_object.h"
#include "render/path_tracer.h"

namespace MELDO_GLOBAL::app {

using namespace host;

namespace {

constexpr i32 kTile = 16;

RenderedPicture::Colour ToFloat(const Vec3d& c) {
  return {static_cast<float>(c.x), static_cast<float>(c.y), static_cast<float>(c.z)};
}

/// Media that are ready to draw; they are freed at the end, whatever happens.
class ReadyMedia {
 public:
  ReadyMedia(const std::vector<VolumeMaterial*>& media, const RenderData& data) {
    for (VolumeMaterial* medium : media) {
      mStarted.push_back(medium);
      mIsReady.push_back(medium->InitRender(data));
      if (mIsReady.back()) mReady.push_back(medium);
    }
  }
  ~ReadyMedia() {
    for (VolumeMaterial* medium : mStarted) medium->FreeRender();
  }
  ReadyMedia(const ReadyMedia&) = delete;
  ReadyMedia& operator=(const ReadyMedia&) = delete;
  const PathTracer::Media& Get() const { return mReady; }
  const std::vector<bool>& IsReady() const { return mIsReady; }

 private:
  std::vector<VolumeMaterial*> mStarted;
  PathTracer::Media mReady;
  std::vector<bool> mIsReady;
};

/// The same for shaders.
class ReadyShaders {
 public:
  ReadyShaders(const std::vector<std::pair<NodeId, Shader*>>& shaders, const RenderData& data) {
    for (const auto& [node, shader] : shaders) {
      mStarted.push_back(shader);
      if (shader->InitRender(data)) mReady[node] = shader;
    }
  }
  ~ReadyShaders() {
    for (Shader* shader : mStarted) shader->FreeRender();
  }
  ReadyShaders(const ReadyShaders&) = delete;
  ReadyShaders& operator=(const ReadyShaders&) = delete;
  const ShaderMap& Get() const { return mReady; }

 private:
  std::vector<Shader*> mStarted;
  ShaderMap mReady;
};

RenderSettings SettingsOf(const BaseNode& node) {
  RenderSettings settings;
  FillMembers(RenderParameters(), &node, settings);
  return settings;
}

/// The moments in which the shutter is open, evenly about the frame.
std::vector<double> BlurMoments(const RenderSettings& settings, i32 frame) {
  const i32 count = settings.blurSamples;
  std::vector<double> moments;
  for (i32 i = 0; i < count; ++i)
    moments.push_back(frame + settings.shutter * ((i + 0.5) / count - 0.5));
  return moments;
}

/// Moves what pictures are made of, and nothing that a simulation is made of, to `moment`; what the
/// simulation moves stands at `frame`.
void MoveObjects(const Document& document, const RenderSpec& spec, i32 frame, double moment) {
  document.ForEachNode([&](BaseNode& node) {
    if (node.Type() != kMeshObject) return;
    node.Animate(moment);
    if (auto* mesh = dynamic_cast<PolygonObject*>(&node)) mesh->MoveOn(moment - frame);
  });
  for (BaseNode* light : spec.lights) light->Animate(moment);
  spec.camera->Animate(moment);
}

std::deque<RenderWorld> MakeBlurWorlds(const RenderSpec& spec, const RenderSettings& settings,
                                       i32 frame, const ShaderMap& shaders,
                                       const std::shared_ptr<const SphereScene>& spheres) {
  const Document& document = spec.settings->GetDocument();
  std::deque<RenderWorld> worlds;
  const std::vector<double> moments = BlurMoments(settings, frame);
  for (const double moment : moments) {
    MoveObjects(document, spec, frame, moment);
    worlds.emplace_back(spec, shaders, spheres, (moment - frame) / document.fps);
  }
  if (!moments.empty()) MoveObjects(document, spec, frame, frame);
  return worlds;
}

/// The particles of all materials; null where there are none.
std::shared_ptr<const SphereScene> MakeSpheres(
    const RenderSpec& spec, const RenderData& data, const RenderSettings& settings,
    const std::vector<const ParticleMaterial*>& materials, std::vector<i64>& counts) {
  std::vector<SphereCloud> clouds;
  bool isAny = false;
  for (const ParticleMaterial* material : materials) {
    clouds.push_back(material->Spheres(data));
    counts.push_back(static_cast<i64>(clouds.back().positions.size()));
    isAny = isAny || counts.back() > 0;
  }
  if (!isAny) return {};
  const Camera camera(*spec.camera, spec.width, spec.height);
  return std::make_shared<const SphereScene>(clouds, camera,
                                             settings.blurSamples > 0 ? settings.shutter : 0);
}

/// The sum of a pixel's samples.
struct PixelSum {
  RaySample sum;

  PixelSum() { sum.transmission = {}; }

  void Add(const RaySample& sample) {
    sum.colour += sample.colour;
    sum.sky += sample.sky;
    sum.alpha += sample.alpha;
    sum.samples += sample.samples;
    sum.scattering += sample.scattering;
    sum.emission += sample.emission;
    sum.transmission += sample.transmission;
    sum.depth = std::min(sum.depth, sample.depth);
  }
  RenderedPicture::Pixel Mean(i32 count) const {
    const double f = 1.0 / count;
    return {ToFloat(sum.colour * f),
            ToFloat(sum.sky * f),
            static_cast<float>(sum.alpha * f),
            ToFloat(sum.scattering * f),
            ToFloat(sum.emission * f),
            ToFloat(sum.transmission * f),
            static_cast<float>(std::min(sum.depth, double{RenderedPicture::kNoDepth}))};
  }
};

/// A place round a pixel's centre with the weight of a tent two pixels wide.
double TentOffset(double u) {
  return u < 0.5 ? std::sqrt(2 * u) - 0.5 : 1.5 - std::sqrt(2 - 2 * u);
}

class TileRenderer {
 public:
  TileRenderer(std::vector<PathTracer> tracers, i32 samples, u64 seed, RenderedPicture& picture)
      : mTracers(std::move(tracers)), mSamples(samples), mSeed(seed), mPicture(picture) {
    mColumns = (picture.width + kTile - 1) / kTile;
    mTiles = mColumns * ((picture.height + kTile - 1) / kTile);
  }

  /// Works on tiles until there are none left; thread 0 tells of the progress.
  void Run(i32 thread, const HostThread& control, const RenderProgress& progress) {
    for (i32 tile = mNext++; tile < mTiles && !control.TestBreak(); tile = mNext++) {
      const i32 x0 = tile % mColumns * kTile, y0 = tile / mColumns * kTile;
      const i32 x1 = std::min(x0 + kTile, mPicture.width);
      const i32 y1 = std::min(y0 + kTile, mPicture.height);
      i64 samples = 0;
      for (i32 y = y0; y < y1 && !control.TestBreak(); ++y)
        for (i32 x = x0; x < x1; ++x) samples += DrawPixel(x, y, thread);
      mMediaSamples += samples;
      const i32 done = ++mDone;
      if (thread == 0 && progress) progress(static_cast<double>(done) / mTiles);
    }
  }

  i64 MediaSamples() const { return mMediaSamples; }

 private:
  i64 DrawPixel(i32 x, i32 y, i32 thread) {
    const u64 seed = MixBits(mSeed, (static_cast<u64>(y) << 32) | static_cast<u32>(x));
    PixelSum pixel;
    for (i32 i = 0; i < mSamples; ++i) {
      Sampler sampler(seed, static_cast<u32>(i));
      const double moment = sampler.Next1D();
      const auto& tracer = mTracers[static_cast<std::size_t>(moment * mTracers.size())];
      const Vec2D<double> u = sampler.Next2D();
      pixel.Add(tracer.TraceCamera({x + TentOffset(u.x), y + TentOffset(u.y)}, sampler, thread));
    }
    mPicture.pixels[static_cast<std::size_t>(y) * mPicture.width + x] = pixel.Mean(mSamples);
    return pixel.sum.samples;
  }

  const std::vector<PathTracer> mTracers;  ///< one for each moment of the shutter
  const i32 mSamples;
  const u64 mSeed;
  RenderedPicture& mPicture;
  i32 mColumns, mTiles;
  std::atomic<i32> mNext{0}, mDone{0};
  std::atomic<i64> mMediaSamples{0};
};

constexpr double kBrightest = 1e6;  ///< far beyond white

/// Bends what is brighter than `kBend` towards 1, so that nothing is cut off.
double SoftShoulder(double x) {
  constexpr double kBend = 0.6;
  if (x <= kBend) return x;
  const double t = (x - kBend) / (1 - kBend);
  return kBend + (1 - kBend) * t / (1 + t);
}

/// IEC 61966-2-1.
double EncodeSrgb(double x) {
  return x <= 0.0031308 ? 12.92 * x : 1.055 * std::pow(x, 1 / 2.4) - 0.055;
}

}  // namespace

RenderedPicture RenderPicture(const RenderSpec& spec, i32 frame, const PictureMaterials& materials,
                              const HostThread& thread, const RenderProgress& progress) {
  const RenderSettings settings = SettingsOf(*spec.settings);
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  RenderData data;
  data.document = &spec.settings->GetDocument();
  data.threadCount = ThreadCount();
  data.brightness = settings.volumeBrightness;
  data.thread = &thread;
  const ReadyShaders shaders(materials.shaders, data);
  RenderedPicture picture;
  const std::shared_ptr<const SphereScene> spheres =
      MakeSpheres(spec, data, settings, materials.particles, picture.spheres);
  const auto world = std::make_shared<const RenderWorld>(spec, shaders.Get(), spheres);
  data.nearClip = world->GetCamera().NearClip();
  data.farClip = world->GetCamera().FarClip();
  for (const SceneLight& light : world->Lights()) data.lights.emplace_back(world, &light);

  picture.width = spec.width;
  picture.height = spec.height;
  picture.pixels.resize(static_cast<std::size_t>(spec.width) * spec.height);
  const ReadyMedia ready(materials.media, data);
  picture.isDrawn = ready.IsReady();
  if (thread.TestBreak()) return picture;

  const std::deque<RenderWorld> blurred =
      MakeBlurWorlds(spec, settings, frame, shaders.Get(), spheres);
  const bool bounce = settings.bounce;
  std::vector<PathTracer> tracers;
  for (const RenderWorld& moment : blurred) tracers.emplace_back(moment, data, ready.Get(), bounce);
  if (tracers.empty()) tracers.emplace_back(*world, data, ready.Get(), bounce);

  picture.setUpSeconds = std::chrono::duration<double>(Clock::now() - start).count();
  TileRenderer tiles(std::move(tracers), settings.samples,
                     MixBits(static_cast<u64>(frame), 0x53756C76), picture);
  WorkerPool::Instance().Run(data.threadCount,
                             [&](i32 index) { tiles.Run(index, thread, progress); });
  picture.samples = tiles.MediaSamples();
  return picture;
}

Picture ToneMap(const RenderedPicture& picture, const BaseNode& node) {
  const RenderSettings settings = SettingsOf(node);
  const double exposure = settings.exposure;
  const bool isSoft = settings.tone == ToneCurve::Soft;
  Picture out{picture.width, picture.height, {}};
  out.rgb.reserve(picture.pixels.size() * 3);
  for (std::size_t i = 0; i < picture.pixels.size(); ++i) {
    const auto light = picture.pixels[i].colour + picture.pixels[i].sky;
    for (int channel = 0; channel < 3; ++channel) {
      const double x = std::min(std::max(0.0, double{light[channel]} * exposure), kBrightest);
      const double shown = EncodeSrgb(std::min(isSoft ? SoftShoulder(x) : x, 1.0));
      const double grain = static_cast<double>(MixBits(i, channel) >> 11) * 0x1p-53;
      out.rgb.push_back(static_cast<u8>(std::clamp(shown * 255 + grain, 0.0, 255.0)));
    }
  }
  return out;
}

}  // namespace MELDO_GLOBAL::app
