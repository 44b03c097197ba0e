// What `ParticleToGridEmitter` finds round a row of cells, and gives to their fields.
#include <cmath>

#include "fluids/emission/particle_to_grid_emitter.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

void ParticleToGridEmitter::GatherRow(i32 y, i32 z, Row& row, u32 worker) const {
  row.positions.clear();
  row.weights.clear();
  row.carried.resize(mCarried.size());
  for (auto& values : row.carried) values.clear();
  const GridLayout& domain = GetDomain();
  const double h = domain.cellSize;
  for (i32 x = mRegion.min.x; x < mRegion.max.x; ++x) {
    const Vec3d p = domain.simOrigin + (ToReal({x, y, z}) + Vec3d{0.5, 0.5, 0.5}) * h;
    double weight;
    if (!(mGroup ? GatherParticles(p, weight, row, worker) : GatherCell(p, weight, row, worker)))
      continue;
    row.positions.push_back(p);
    row.weights.push_back(weight);
  }
}

bool ParticleToGridEmitter::WeighCell(const Vec3d& p, double& weight, u32 worker) const {
  weight = mPerSecond && mWeight != 0 ? mTime->stepDuration : 1.0;
  if (!mConstraints.IsEmpty() && mConstraintMode == 0) mConstraints.Test(p, weight, this, worker);
  return weight != 0;
}

bool ParticleToGridEmitter::WeighPoint(const Vec3d& point, double distanceSquared, double& weight,
                                       u32 worker, const ParticleStore* particles,
                                       i32 particle) const {
  // Where constraints weigh cells, those that look at particles still ask for each of these.
  const bool isForCells = mConstraintMode == 0;
  if (!mConstraints.IsEmpty() && (!isForCells || particles) &&
      !mConstraints.Test(point, weight, this, worker, particles, particle, isForCells))
    return false;
  // A vertex has a density of 1 and a radius of that of the search.
  weight *= mMassScale;
  weight *= mRadiusScale;
  if (mDistanceMode == kByGradient)
    weight *= mFalloffGradient->Evaluate(std::sqrt(distanceSquared) / mRadius).x;
  return true;
}

bool ParticleToGridEmitter::GatherCell(const Vec3d& p, double& weight, Row& row, u32 worker) const {
  mLookup.Find(p, kMostNeighbours, row.neighbours);
  double cellWeight;
  if (row.neighbours.empty() || !WeighCell(p, cellWeight, worker)) return false;
  double sum = 0;
  i32 count = 0;
  for (const PointNeighbour& neighbour : row.neighbours) {
    double w = cellWeight;
    if (!WeighPoint(mPoints[neighbour.index], neighbour.distanceSquared, w, worker)) continue;
    sum += w;
    ++count;
  }
  weight = count > 0 ? sum / count : 0;
  return count > 0;
}

bool ParticleToGridEmitter::GatherParticles(const Vec3d& p, double& weight, Row& row,
                                            u32 worker) const {
  mGroup->Tree(mParticleType)->FindNearest(p, mRadius, row.particles);
  double cellWeight;
  if (row.particles.Hits().empty() || !WeighCell(p, cellWeight, worker)) return false;
  const ParticleStore& store = mGroup->Store(mParticleType);
  for (auto& values : row.carried) values.push_back({});
  double sum = 0;
  i32 count = 0;
  for (const TreeHit& hit : row.particles.Hits()) {
    double w = cellWeight;
    if (!WeighPoint(store.Positions()[hit.index], hit.distanceSquared, w, worker, &store,
                    hit.index))
      continue;
    if (mMass) w *= mMass->Get(hit.index, 1);
    if (mRadii) w *= mRadii->Get(hit.index, mRadius) / mRadius;
    for (std::size_t i = 0; i < mCarried.size(); ++i)
      if (mCarried[i].IsOfEach()) row.carried[i].back() += mCarried[i].At(hit.index) * w;
    sum += w;
    ++count;
  }
  if (count == 0) {
    for (auto& values : row.carried) values.pop_back();
    return false;
  }
  for (auto& values : row.carried) values.back() *= 1.0 / count;
  weight = sum / count;
  return true;
}

void ParticleToGridEmitter::EmitRow(Row& row, bool owned, const LayerOwner& owner) const {
  const EmissionWrite write = mSettings.Write();
  const auto collect = [&](const EGrid<double>* grid, auto&& valueAt, auto& values) {
    values.clear();
    row.places.clear();
    if (!grid || !grid->mData) return;
    for (std::size_t i = 0; i < row.positions.size(); ++i) {
      if (!grid->mLayout.Contains(row.positions[i], true)) continue;
      mReach.NoteFilled(row.weights[i] != 0);
      values.push_back(valueAt(i));
      row.places.push_back(row.positions[i]);
    }
    mReach.NoteReached(!values.empty());
  };
  for (std::size_t index = 0; index < mValues.size(); ++index) {
    const ChannelValue* target = mValues[index];
    const bool isOfEach = mGroup && mCarried[index].IsOfEach();
    const auto emit = [&](auto* channel, auto&& valueAt, auto& values) {
      // What a cache feeds holds its emissions already.
      if (!channel || channel->Has(FLAG_CACHED) || !channel->mEmissionHandler) return;
      collect(channel->GetGrid(0), valueAt, values);
      channel->mEmissionHandler->EmitRow(values.data(), row.places.data(),
                                         static_cast<i32>(values.size()), write, owner);
    };
    if (target->mScalar) {
      const auto scalar = [&](std::size_t i) {
        return isOfEach ? row.carried[index][i].x : row.weights[i] * target->mValue;
      };
      if (owned) emit(target->mScalar, scalar, row.scalars);
    } else if (owned || dynamic_cast<VelocityField*>(target->mVectorChannel)) {
      const auto vector = [&](std::size_t i) {
        return isOfEach ? row.carried[index][i] : row.weights[i] * target->mVector;
      };
      emit(target->mVectorChannel, vector, row.vectors);
    }
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
