#include "fluids/rendering/ray_marcher.h"

#include "fluids/flow/grid_extrapolation.h"
#include "fluids/flow/ifluid_solver.h"
#include "fluids/levelset/density_to_levelset.h"
#include "fluids/operators/channel_operator_remap.h"
#include "fluids/rendering/diffusor.h"
#include "fluids/rendering/grid_copies.h"
#include "fluids/rendering/render_grid_preprocessor.h"
#include "framework/scene.h"
#include "grids/fixed_blocks.h"
#include "host/console.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

using namespace MELDO_SULVA;

namespace {

constexpr i32 kFireLevelKind = 13;
constexpr double kFarFromFire = 1e6;
constexpr i32 kBrick = 8;  ///< cells

/// Runs an object's `Evaluate` on all workers.
void RunOnWorkers(iObject& object, host::HostThread* thread) {
  ForEachShare(host::ThreadCount(), thread,
               [&](const EvaluationThreadData& share) { object.Evaluate(share); });
}

double LargestOf(const EGrid<double>& grid) {
  return MaxBlocks(grid.mCount, 1 << 16, host::ThreadCount(), [&](i64 first, i64 last) {
    return *std::max_element(grid.mData + first, grid.mData + last);
  });
}

}  // namespace

RayMarcher::RayMarcher() = default;
RayMarcher::~RayMarcher() = default;

bool RayMarcher::Precompute(host::BaseNode& container, const std::vector<Scene*>& scenes,
                            const host::RenderData& data) {
  Finish();
  mInterface.Bind(&container);
  mLook.Fill(container);
  // The workers' records hold a thread that could be stopped; nothing here stops it.
  mThread = const_cast<host::HostThread*>(data.thread);
  host::ShowStatus("Precompute");
  const bool done = PrecomputeFields(scenes, data) && PrecomputeMaps();
  host::ClearStatus();
  mState = done && !data.IsCancelled();
  return mState != 0;
}

bool RayMarcher::PrecomputeFields(const std::vector<Scene*>& scenes, const host::RenderData& data) {
  if (!FindFields(scenes, data) || !mLook.IsComplete()) return false;
  SetWalks();
  SetMappings();
  // Behind a step of the simulation no link stands.
  mLook.filters.ForEach([&](FilterList& list) {
    list.Relink();
    list.Prepare(this);
  });
  GatherLights(data);
  host::ShowStatus("Preprocessors");
  const FilterSettings& filters = mLook.filters;
  Preprocess(filters.smokeGrid, mSmoke.exists ? &mSmoke.channel : nullptr, nullptr);
  Preprocess(filters.fireGrid, mFire.exists ? &mFire.channel : nullptr, nullptr);
  Preprocess(filters.thirdGrid, mThird.exists ? &mThird.channel : nullptr, nullptr);
  Preprocess(filters.colourGrid, nullptr, mHasSmokeColour ? &mSmokeColour : nullptr);
  BlurFields();
  BuildOccupancy();
  if (mHasSmokeColour)
    mPackedColour.Take(*mSmokeColour.mGrids[0], *mSmokeColour.mGrids[1], *mSmokeColour.mGrids[2]);
  return true;
}

bool RayMarcher::PrecomputeMaps() {
  // Light is stored where it meets smoke; fire alone needs none.
  if (!mSmoke.exists) return true;
  if (mFireLightOn) {
    host::ShowStatus("Fire Levelset");
    mFireLightOn = BuildFireLevelSet();
  }
  host::ShowStatus("Scattering maps");
  if (!AllocateMaps()) return false;
  Begin();
  RunOnWorkers(*this, mThread);
  ComputeMaps();
  return true;
}

// ---- fields -------------------------------------------------------------------------------------

bool RayMarcher::FindFields(const std::vector<Scene*>& scenes, const host::RenderData& data) {
  const bool full = mLook.copies.fullInFinal && (data.flags & host::kRenderFinal);
  const double factor = full ? 1.0 : mLook.copies.resolution;
  const FieldSettings& linked = mLook.fields;
  for (Scene* scene : scenes) {
    mScene = scene;
    mLook.Connect(*mInterface.GetObject(), *scene);
    const auto take = [&](RenderField& field, const ScalarField* source) {
      field.exists = source && CopyField(field, *source, factor);
    };
    take(mSmoke, linked.smoke);
    take(mFire, linked.fire);
    take(mThird, linked.third);
    if (!mSmoke.exists && !mFire.exists && !mThird.exists) continue;
    mHasSmokeColour = linked.smokeColour && CopyColours(*linked.smokeColour, factor);
    iFluidSolver* solver = linked.displacementSolver;
    mDisplacer.Set(solver ? &solver->GetFlow() : nullptr, &mLook.displacement);
    const RenderField& first = mSmoke.exists ? mSmoke : mFire.exists ? mFire : mThird;
    const GridLayout& layout = first.channel.mGrid->mLayout;
    mBounds = {layout.worldOrigin, layout.worldMax};
    mCells = first.channel.mGrid->Dims();
    mWorldToSim = layout.worldToSim;
    return true;
  }
  mScene = nullptr;
  return false;
}

bool RayMarcher::CopyField(RenderField& field, const ScalarField& source, double factor) {
  const EGrid<double>* grid = source.GetGrid(0);
  if (!grid || !grid->mData) return false;
  std::unique_ptr<EGrid<double>> copy = CopiedGrid(*grid, factor, mLook.copies.sampling);
  if (!copy) return false;
  field.channel.mGrid = std::move(copy);
  field.channel.SetRange(source.mValueMin, source.mValueMax);
  field.channel.mGrid->mRangeMin = source.mValueMin;
  field.channel.mGrid->mRangeMax = source.mValueMax;
  return true;
}

bool RayMarcher::CopyColours(const VectorField& source, double factor) {
  for (i32 a = 0; a < 3; ++a) {
    const EGrid<double>* grid = source.GetGrid(a);
    if (!grid || !grid->mData) return false;
    mSmokeColour.mGrids[a] = CopiedGrid(*grid, factor, mLook.copies.sampling);
    if (!mSmokeColour.mGrids[a]) return false;
  }
  mSmokeColour.SetRange(source.mValueMin, source.mValueMax);
  return true;
}

void RayMarcher::Preprocess(const FilterList& list, ScalarField* target, VectorField* colours) {
  if (!target && !colours) return;
  RenderGridPreprocessor scalar;
  ColorRenderGridPreprocessor colour;
  RenderGridPreprocessor& work = colours ? colour : scalar;
  if (!work.Bind(this, target, colours, &list)) return;
  for (host::BaseNode* node : list.Ramps()) {
    auto ramp = std::make_unique<ChannelOperator_Remap>(node, mScene);
    ramp->ResolveLinks();
    ramp->Constraints()->Relink();
    work.AddOperator(std::move(ramp));
  }
  work.Run(mThread);
}

void RayMarcher::BlurFields() {
  const auto blur = [&](RenderField& field, const auto& settings) {
    if (field.exists) Diffusor().Blur(*field.channel.mGrid, settings.blur, settings.blurRounds);
  };
  blur(mSmoke, mLook.smoke);
  blur(mFire, mLook.fire);
  blur(mThird, mLook.third);
}

void RayMarcher::BuildOccupancy() {
  mOccupancy.Clear();
  // A sample may then stand for a place in another brick.
  if (mDisplacer.mEnabled) return;
  const RenderField& first = mSmoke.exists ? mSmoke : mFire.exists ? mFire : mThird;
  const VecInt3D dims = first.channel.mGrid->Dims();
  const auto bricks = [](i32 n) { return (n + kBrick - 1) / kBrick; };
  const VecInt3D count{bricks(dims.x), bricks(dims.y), bricks(dims.z)};
  mOccupancy.Set(mBounds, count);
  MarkBricks(mSmoke, mSmoke.mapping.threshold, count);
  MarkBricks(mFire, mFire.mapping.threshold - FieldMapping::kCelsius, count);
  MarkBricks(mThird, mThird.mapping.threshold, count);
}

void RayMarcher::MarkBricks(const RenderField& field, double threshold, const VecInt3D& bricks) {
  if (!field.exists) return;
  const EGrid<double>& grid = *field.channel.mGrid;
  // A cubic sample may overshoot what it lies between.
  const double limit = field.view.cubic ? std::min(threshold, 0.0) : threshold;
  const i32 reach = field.view.cubic ? 2 : 1;
  const VecInt3D n = grid.Dims();
  ForEachBlock(bricks.z, host::ThreadCount(), [&](i32 bz) {
    for (i32 by = 0; by < bricks.y; ++by)
      for (i32 bx = 0; bx < bricks.x; ++bx) {
        VecInt3D low, high;
        const VecInt3D brick{bx, by, bz};
        for (int a = 0; a < 3; ++a) {
          const double scale = double(n[a]) / bricks[a];
          low[a] = std::max(0, static_cast<i32>(std::floor(brick[a] * scale)) - reach);
          high[a] = std::min(n[a], static_cast<i32>(std::ceil((brick[a] + 1) * scale)) + reach);
        }
        bool any = false;
        for (i32 z = low.z; z < high.z && !any; ++z)
          for (i32 y = low.y; y < high.y && !any; ++y) {
            const double* row = grid.mData + grid.Index(0, y, z);
            for (i32 x = low.x; x < high.x; ++x) any |= row[x] > limit;
          }
        if (any) mOccupancy.Fill(bx, by, bz);
      }
  });
}

// ---- maps ---------------------------------------------------------------------------------------

bool RayMarcher::BuildFireLevelSet() {
  const EGrid<double>& fire = *mFire.channel.mGrid;
  mFireRecord = std::make_unique<FireLightRecord>();
  LevelField& levelSet = mFireRecord->levelSet;
  if (!levelSet.Allocate(&fire, kFireLevelKind, kFarFromFire)) return false;
  DensityToLevelset work;
  work.mLevelSet = &levelSet;
  work.mSource = &mFire.channel;
  work.mThreshold = mFire.mapping.threshold - FieldMapping::kCelsius;
  work.mTrueDistances = mLook.fireLight.trueDistances;
  if (!work.Run(mThread)) return false;
  mFireRecord->levelSetView = FieldView(*levelSet.mGrid);
  return true;
}

bool RayMarcher::AllocateMaps() {
  const EGrid<double>& smoke = *mSmoke.channel.mGrid;
  const std::unique_ptr<EGrid<double>> shape = EmptyScaled(smoke, mLook.shadow.mapResolution);
  if (!shape) return false;
  const auto allocate = [&](ScalarField& map) {
    map.SetRange(0, 1);
    return map.Allocate(shape.get(), kCentre, 0);
  };
  for (const auto& record : mLights)
    for (ScalarField& map : record->maps)
      if (!allocate(map)) return false;
  if (mFireLightOn) {
    if (!allocate(mFireRecord->reach) || !allocate(mFireRecord->strength)) return false;
    for (i32 a = 0; mLook.fireLight.directed && a < 3; ++a)
      if (!allocate(mFireRecord->directions[a])) return false;
  }
  mMultiple.records.clear();
  if (!mMultiple.on) return true;
  mMultiple.records.resize(mLights.size());
  for (ScatterRecord& record : mMultiple.records)
    for (auto* grid : {&record.source, &record.depth, &record.distance}) {
      *grid = EmptyScaled(smoke, mMultiple.resolution);
      if (!*grid) return false;
    }
  return true;
}

void RayMarcher::ComputeMaps() {
  FinishScattering();
  FinishLightMaps();
  if (mFireLightOn) FinishFireMaps();
  PackMaps();
}

void RayMarcher::FinishScattering() {
  for (ScatterRecord& record : mMultiple.records) {
    record.depthView = FieldView(*record.depth);
    record.distanceView = FieldView(*record.distance);
    record.pyramid.Build(std::move(record.source), mMultiple.blur);
  }
}

void RayMarcher::FinishLightMaps() {
  const ShadowSettings& maps = mLook.shadow;
  for (const auto& record : mLights)
    for (ScalarField& map : record->maps) {
      Diffusor().Blur(*map.mGrid, maps.mapBlur, maps.mapBlurRounds);
      GridExtrapolation().ExtendField(*map.mGrid, map.mInitial, maps.mapLayers,
                                      host::ThreadCount());
    }
}

void RayMarcher::FinishFireMaps() {
  host::ShowStatus("Blur fire map");
  const host::SplineData* curve = mLook.fireLight.curve;
  for (ScalarField* map : {&mFireRecord->strength, &mFireRecord->reach}) {
    EGrid<double>& grid = *map->mGrid;
    const double cells = mFireReach * grid.mLayout.worldToSim.x * grid.mLayout.simToCell.x;
    Diffusor().Blur(grid, cells, 1);
    if (map == &mFireRecord->strength) map->SetRange(0, std::max(LargestOf(grid), 1e-6));
    grid.mRangeMin = map->mValueMin;
    grid.mRangeMax = map->mValueMax;
    if (!curve || IsIdentity(*curve)) continue;
    RenderGridPreprocessor work;
    work.Bind(this, map, nullptr, nullptr);
    work.AddRemap(*curve);
    work.Run(mThread);
  }
  mFireRecord->reachView = FieldView(*mFireRecord->reach.mGrid);
  mFireRecord->strengthView = FieldView(*mFireRecord->strength.mGrid);
  if (mLook.fireLight.directed)
    mFireRecord->packedDirections.Take(*mFireRecord->directions[0].mGrid,
                                       *mFireRecord->directions[1].mGrid,
                                       *mFireRecord->directions[2].mGrid);
}

void RayMarcher::PackMaps() {
  for (const auto& record : mLights) {
    record->packed.Take(*record->maps[0].mGrid, *record->maps[1].mGrid, *record->maps[2].mGrid);
    for (ScalarField& map : record->maps) map.mGrid.reset();
  }
}

void RayMarcher::Finish() {
  mLook.filters.ForEach([&](FilterList& list) { list.Finish(this); });
  mLook = {};
  for (RenderField* field : {&mSmoke, &mFire, &mThird}) field->Clear();
  for (auto& grid : mSmokeColour.mGrids) grid.reset();
  mHasSmokeColour = false;
  mPackedColour.Clear();
  mOccupancy.Clear();
  mLights.clear();
  mFireRecord.reset();
  mMultiple = {};
  mDisplacer.Set(nullptr, nullptr);
  mState = 0;
}

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
