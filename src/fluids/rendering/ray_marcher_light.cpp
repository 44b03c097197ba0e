// The light that arrives in the smoke, cell by cell.
#include "fluids/rendering/hash_random.h"
#include "fluids/rendering/ray_marcher.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

using namespace MELDO_SULVA;

namespace {

double Luminance(const Vec3d& c) { return 0.299 * c.x + 0.587 * c.y + 0.114 * c.z; }

/// Calls f(world, cell) for the cells of a worker's layers; layers are dealt out in turn, because
/// the smoke is seldom spread evenly.
template <class F>
void ForEachCellOf(const EGrid<double>& grid, const EvaluationThreadData& data, F&& f) {
  const GridLayout& layout = grid.mLayout;
  for (i32 z = data.index; z < grid.mNz; z += data.count) {
    if (data.TestBreak()) return;
    for (i32 y = 0; y < grid.mNy; ++y)
      for (i32 x = 0; x < grid.mNx; ++x)
        f(layout.worldOrigin + (ToReal({x, y, z}) + Vec3d{0.5, 0.5, 0.5}) * layout.worldCell,
          grid.Index(x, y, z));
  }
}

}  // namespace

void RayMarcher::Begin() {
  if (!mMultiple.on) return;
  const EGrid<double>& smoke = *mSmoke.channel.mGrid;
  double sum = 0;
  for (i32 i = 0; i < smoke.mCount; ++i) sum += smoke[i];
  mMultiple.meanDensity = sum / smoke.mCount;
  for (size_t i = 0; i < mLights.size(); ++i) {
    const Vec3d colour = mLights[i]->light->Colour();
    const double luminance = Luminance(colour);
    if (luminance > 0) mMultiple.records[i].hue = colour / luminance;
  }
}

void RayMarcher::Evaluate(const EvaluationThreadData& data) {
  const EGrid<double>* maps = !mLights.empty() ? mLights.front()->maps[0].mGrid.get()
                              : mFireLightOn   ? mFireRecord->reach.mGrid.get()
                                               : nullptr;
  if (maps)
    ForEachCellOf(*maps, data, [&](const Vec3d& world, i32 cell) {
      MediumSample sample;
      if (!SampleSmoke(world, sample) && !HasSmokeAround(world, maps->mLayout.worldCell)) return;
      LightCell(world, cell);
      if (mFireLightOn) FireCell(world, cell);
    });
  if (!mMultiple.records.empty())
    ForEachCellOf(*mMultiple.records.front().source, data, [&](const Vec3d& world, i32 cell) {
      MediumSample sample;
      if (SampleSmoke(world, sample)) ScatterCell(world, cell, data.index);
    });
}

bool RayMarcher::HasSmokeAround(const Vec3d& world, const Vec3d& extent) const {
  const EGrid<double>& smoke = *mSmoke.channel.mGrid;
  Vec3d at, unused;
  Displaced(world, at, unused);
  const Vec3d c = mSmoke.view.map(at) + Vec3d{0.5, 0.5, 0.5};
  const Vec3d reach = (extent * mSmoke.view.map.scale + Vec3d{1, 1, 1}) * 0.5;
  CellBox box;
  for (int a = 0; a < 3; ++a) {
    const double n = smoke.Dims()[a];
    box.min[a] = static_cast<i32>(std::clamp(c[a] - reach[a], 0.0, n));
    box.max[a] = static_cast<i32>(std::ceil(std::clamp(c[a] + reach[a], 0.0, n)));
  }
  for (i32 z = box.min.z; z < box.max.z; ++z)
    for (i32 y = box.min.y; y < box.max.y; ++y) {
      const double* row = smoke.mData + smoke.Index(0, y, z);
      for (i32 x = box.min.x; x < box.max.x; ++x)
        if (row[x] != 0) return true;
    }
  return false;
}

Vec3d RayMarcher::ToBounds(const Vec3d& world, const Vec3d& direction, double length) const {
  double near, far;
  if (!mBounds.Clip(world, direction, length, near, far)) return world;
  return world + direction * far;
}

void RayMarcher::LightCell(const Vec3d& world, i32 cell) {
  for (size_t i = 0; i < mLights.size(); ++i) {
    LightRecord& record = *mLights[i];
    const auto light = record.light->Illuminate(world, mLook.objectShadow.inSmoke);
    Vec3d colour = light.colour * record.scale;
    if (colour != Vec3d{} && !mShadow.IsOff()) {
      const VolumeRay ray(world, ToBounds(world, -light.direction, light.distance));
      ShadowRay(colour, ray, mShadow, HashUnit(cell, i));
    }
    for (i32 a = 0; a < 3; ++a) (*record.maps[a].mGrid)[cell] = colour[a];
  }
}

Vec3d RayMarcher::AwayFromFire(const Vec3d& place) const {
  const EGrid<double>& levelSet = *mFireRecord->levelSet.mGrid;
  const Vec3d c = mFireRecord->levelSetView.map(place);
  return Normalised(SampleGradient(levelSet, c, levelSet.mLayout.cellSize));
}

Vec3d RayMarcher::NearestFire(const Vec3d& place) const {
  // Distances of the level set are counted in steps between neighbours and come out short along
  // diagonals: several moves reach what one would miss.
  constexpr i32 kMoves = 8;
  const FieldView& view = mFireRecord->levelSetView;
  const GridLayout& layout = view.grid->mLayout;
  Vec3d p = place;
  for (i32 i = 0; i < kMoves; ++i) {
    const double distance = view(p);
    if (!(distance > 0)) break;
    p -= AwayFromFire(p) * (distance + layout.halfCell) * layout.simToWorld;
  }
  return p;
}

void RayMarcher::FireCell(const Vec3d& world, i32 cell) {
  constexpr u64 kPurpose = 1000;
  FireLightRecord& record = *mFireRecord;
  Vec3d smokePlace, place;
  Displaced(world, smokePlace, place);
  const Vec3d surface = NearestFire(place);
  const Vec3d way = surface - place;
  const double distance = Length(way);
  double temperature;
  if (!SampleFire(surface, temperature)) temperature = 0;
  double reach = 1;
  if (distance > 0) {
    reach = 1 - std::min(distance / mFireReach, 1.0);
    if (!mShadow.IsOff() && reach > 0) {
      Vec3d passed{1, 1, 1};
      const VolumeRay ray(world, ToBounds(world, way / distance, distance));
      ShadowRay(passed, ray, mShadow, HashUnit(cell, kPurpose));
      reach *= passed.x;
    }
  }
  (*record.reach.mGrid)[cell] = reach;
  (*record.strength.mGrid)[cell] = temperature * mLook.fireLight.scale;
  if (!mLook.fireLight.directed) return;
  const Vec3d away = distance > 0 ? way / -distance : AwayFromFire(place);
  for (i32 a = 0; a < 3; ++a) (*record.directions[a].mGrid)[cell] = away[a];
}

void RayMarcher::ScatterCell(const Vec3d& world, i32 cell, i32 worker) {
  constexpr u64 kPurpose = 2000;
  for (size_t i = 0; i < mLights.size(); ++i) {
    ScatterRecord& record = mMultiple.records[i];
    const auto light = mLights[i]->light->Illuminate(world, mLook.objectShadow.inSmoke);
    const VolumeRay ray(world, ToBounds(world, -light.direction, light.distance));
    const ScatterDepths depths = ScatterMarch(ray, HashUnit(cell, kPurpose + i), worker);
    (*record.depth)[cell] = depths.scattering;
    (*record.distance)[cell] = depths.distance;
    (*record.source)[cell] = Luminance(light.colour) * mLights[i]->scale *
                             std::exp(-(mMultiple.scattering + mMultiple.absorption) *
                                      (depths.absorption + depths.scattering));
  }
}

RayMarcher::ScatterDepths RayMarcher::ScatterMarch(VolumeRay ray, double u, i32 worker) const {
  const MultipleScattering& m = mMultiple;
  ScatterDepths depths;
  if (m.uniform) {
    depths.distance = m.distanceScale * ray.tMax;
    const double x = m.meanDensity * mLook.smoke.density * ray.tMax * m.density;
    depths.absorption = x * m.absorption;
    depths.scattering = x * m.scattering;
    return depths;
  }
  MediumSample sample;
  Walk(
      ray, m.steps, u, mOccupancy, [&](const Vec3d& p) { return SampleSmoke(p, sample); },
      [&](const Vec3d& p, double ds) {
        AddDepth(sample.smoke, p, ds, worker, depths);
        depths.distance = m.distanceScale * ray.t;
        return false;
      },
      [&](double ds) { AddDepth(0, ray.Here(), ds, worker, depths); });
  return depths;
}

void RayMarcher::AddDepth(double smoke, const Vec3d& place, double ds, i32 worker,
                          ScatterDepths& depths) const {
  const MultipleScattering& m = mMultiple;
  double rate = m.scattering, weight = m.density;
  const FilterSettings& filters = mLook.filters;
  if (!filters.multipleRate.IsEmpty())
    rate = std::clamp(Filtered(filters.multipleRate, place, worker, rate), 0.001, 2.0);
  if (!filters.multipleDensity.IsEmpty())
    weight = std::clamp(Filtered(filters.multipleDensity, place, worker, weight), 0.0001, 1.0);
  const double density = smoke * mLook.smoke.density * weight;
  const double before = mLook.view.trapezoid && !depths.fresh ? depths.density : density;
  depths.density = density;
  depths.fresh = false;
  const double amount = (before + density) * 0.5 * ds;
  depths.scattering += amount * rate;
  depths.absorption += amount * m.absorption;
}

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
