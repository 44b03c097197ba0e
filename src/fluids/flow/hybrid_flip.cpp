#include "fluids/flow/hybrid_flip.h"

#include <algorithm>
#include <cmath>

#include "fluids/flow/face_stencil.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

using Faces = std::array<double*, 3>;

Faces FacesOf(Flow& flow) {
  Faces faces;
  for (i32 axis = 0; axis < 3; ++axis) faces[axis] = flow.mVelocity.GetGridForWrite(axis)->mData;
  return faces;
}

bool HasBuffers(const Flow& flow) {
  if (!flow.HasVelocity()) return false;
  for (i32 axis = 0; axis < 3; ++axis) {
    const EGrid<double>* old = flow.mVelocity.mPrevious[axis].get();
    if (!old || !old->mData || old->Dims() != flow.mVelocity.GetGrid(axis)->Dims()) return false;
  }
  return true;
}

/// What the particles of a group carry of the flow.
struct Carried {
  std::span<Vec3d> velocities;
  std::array<Vec3d*, 3> slopes{};  ///< of each component; null where no particle has one
};

constexpr property_id::Id kSlopes[3] = {property_id::kSlopeU, property_id::kSlopeV,
                                        property_id::kSlopeW};

std::vector<Carried> CarriedBy(const ParticleSort& sort) {
  std::vector<Carried> all;
  for (ParticleGroup* group : sort.Groups()) {
    ParticleStore& store = group->Store(sort.Kind());
    Carried& own = all.emplace_back(Carried{.velocities = store.Velocities()});
    for (i32 axis = 0; axis < 3; ++axis)
      if (auto* column = store.Find<Vec3d>(kSlopes[axis])) own.slopes[axis] = column->Values();
  }
  return all;
}

/// Gives all sorted particles slopes, 0 at first.
void RequireSlopes(const ParticleSort& sort) {
  for (ParticleGroup* group : sort.Groups())
    for (const property_id::Id slope : kSlopes) {
      PropertyColumn<Vec3d>& column = group->Store(sort.Kind()).Require<Vec3d>(slope);
      if (column.IsEverywhere()) continue;
      for (i32 row = 0; row < column.Count(); ++row)
        if (!column.Has(row)) column.Set(row, Vec3d{});
    }
}

/// Calls f(entry, its group) for all sorted particles, a layer of cells to a worker.
template <class F>
void ForEachParticle(const ParticleSort& sort, const Flow& flow, F&& f) {
  std::vector<Carried> groups = CarriedBy(sort);
  const VecInt3D n = sort.Layout().dims;
  ForEachBlock(n.z, flow.Threads(), [&](i32 z) {
    sort.ForEachInBox({0, 0, z}, {n.x, n.y, z + 1},
                      [&](const ParticleSort::Entry& entry) { f(entry, groups[entry.group]); });
  });
}

/// Calls f(axis, first sample, samples) for every layer of the three face grids.
template <class F>
void ForEachFaceLayer(const Flow& flow, F&& f) {
  for (i32 axis = 0; axis < 3; ++axis) {
    const EGrid<double>& grid = *flow.mVelocity.GetGrid(axis);
    ForEachBlock(grid.mNz, flow.Threads(), [&](i32 z) { f(axis, z * grid.mSlice, grid.mSlice); });
  }
}

}  // namespace

bool HybridFlip::ToGrid(const ParticleSort& sort, Flow& flow) {
  if (!HasBuffers(flow)) return false;
  const Faces faces = FacesOf(flow);
  ForEachFaceLayer(flow,
                   [&](i32 axis, i32 first, i32 n) { std::fill_n(faces[axis] + first, n, 0.0); });
  if (sort.Count() == 0) return false;
  if (mGathers)
    Gather(sort, flow);
  else if (!Scatter(sort, flow))
    return false;
  ForEachFaceLayer(flow, [&](i32 axis, i32 first, i32 n) {
    std::copy_n(faces[axis] + first, n, flow.mVelocity.mPrevious[axis]->mData + first);
  });
  return true;
}

bool HybridFlip::Scatter(const ParticleSort& sort, Flow& flow) const {
  const GridLayout& layout = *flow.GetLayout();
  const Faces faces = FacesOf(flow);
  Faces weights;
  for (i32 axis = 0; axis < 3; ++axis) {
    Grid<double>* grid = flow.mScratch.Get(axis, layout.dims, axis);
    if (!grid) return false;
    weights[axis] = grid->mData;
  }
  ForEachFaceLayer(flow,
                   [&](i32 axis, i32 first, i32 n) { std::fill_n(weights[axis] + first, n, 0.0); });
  const FaceStencils stencils(layout);
  const std::vector<Carried> groups = CarriedBy(sort);
  const double h = layout.cellSize;
  sort.ForEachBySlab(flow.Threads(), [&](const ParticleSort::Entry& entry) {
    const Carried& own = groups[entry.group];
    const Vec3d p = layout.ToCells(entry.position), &v = own.velocities[entry.row];
    for (i32 axis = 0; axis < 3; ++axis) {
      const FaceStencil::Place place = stencils[axis].At(p);
      if (const Vec3d* slopes = mIsAffine ? own.slopes[axis] : nullptr)
        place.AddSloped(v[axis], slopes[entry.row] * h, faces[axis], weights[axis]);
      else
        place.Add(v[axis], faces[axis], weights[axis]);
    }
  });
  ForEachFaceLayer(flow, [&](i32 axis, i32 first, i32 n) {
    double* u = faces[axis] + first;
    const double* w = weights[axis] + first;
    for (i32 i = 0; i < n; ++i) u[i] = w[i] > 0 ? u[i] / w[i] : 0.0;
  });
  return true;
}

namespace {

/// The velocity of a face, the mean of those of particles near it by weight times mass, and of what
/// `slopes` makes of them on the way there.
template <class Weight>
double GatherFace(const ParticleSort& sort, const VecInt3D& cell, i32 axis, i32 reach, bool slopes,
                  Weight&& weight) {
  const Vec3d face = ToReal(cell) + OffsetOf(axis);
  const VecInt3D wide{reach, reach, reach};
  const double h = sort.Layout().cellSize;
  double sum = 0, all = 0;
  sort.ForEachInBox(
      cell - wide, cell + wide + VecInt3D{1, 1, 1}, [&](const ParticleSort::Entry& entry) {
        ParticleStore& store = sort.Groups()[entry.group]->Store(sort.Kind());
        const Vec3d d = sort.Layout().ToCells(entry.position) - face;
        const auto* mass = std::as_const(store).Find<double>(property_id::kMass);
        const double w = weight(Dot(d, d)) * (mass ? mass->Get(entry.row, 1.0) : 1.0);
        if (!(w > 0)) return;
        const auto* slope = slopes ? std::as_const(store).Find<Vec3d>(kSlopes[axis]) : nullptr;
        const double way = slope ? Dot(slope->Values()[entry.row], d) * h : 0.0;
        sum += (store.Velocities()[entry.row][axis] - way) * w;
        all += w;
      });
  return all > 0 ? sum / all : 0.0;
}

}  // namespace

void HybridFlip::Gather(const ParticleSort& sort, Flow& flow) const {
  const i32 reach = static_cast<i32>(mKernelRadius);
  const double r = mKernelRadius, r2 = r * r, r3 = r2 * r;
  const auto weight = [&](double d2) {
    if (!(d2 < r2)) return 0.0;
    return mKernel ? mKernel->EvaluateSquared(d2, r2, r3)
                   : KernelWeight<KernelType::kSharp>(d2, r2, r3, 1);
  };
  for (i32 axis = 0; axis < 3; ++axis) {
    EGrid<double>& grid = *flow.mVelocity.GetGridForWrite(axis);
    ForEachBlock(grid.mNz, flow.Threads(), [&](i32 z) {
      ForEachCell({{0, 0, z}, {grid.mNx, grid.mNy, z + 1}}, [&](i32 x, i32 y, i32 layer) {
        grid(x, y, layer) = GatherFace(sort, {x, y, layer}, axis, reach, mIsAffine, weight);
      });
    });
  }
}

void HybridFlip::ToParticles(const ParticleSort& sort, Flow& flow) const {
  if (!HasBuffers(flow) || sort.Count() == 0) return;
  if (mIsAffine)
    TakeSlopes(sort, flow);
  else if (mRatio > 0)
    TakeChange(sort, flow);
  else
    TakeFlow(sort, flow);
}

void HybridFlip::TakeChange(const ParticleSort& sort, Flow& flow) const {
  const Faces faces = FacesOf(flow);
  Faces changes;
  for (i32 axis = 0; axis < 3; ++axis) changes[axis] = flow.mVelocity.mPrevious[axis]->mData;
  ForEachFaceLayer(flow, [&](i32 axis, i32 first, i32 n) {
    double* old = changes[axis] + first;
    const double* u = faces[axis] + first;
    for (i32 i = 0; i < n; ++i) old[i] = u[i] - old[i];
  });
  const GridLayout& layout = *flow.GetLayout();
  const FaceStencils stencils(layout);
  const double kept = std::min(mRatio, 1.0), taken = 1 - kept;
  ForEachParticle(sort, flow, [&](const ParticleSort::Entry& entry, Carried& own) {
    const Vec3d p = layout.ToCells(entry.position);
    Vec3d& v = own.velocities[entry.row];
    for (i32 axis = 0; axis < 3; ++axis) {
      const FaceStencil::Place place = stencils[axis].At(p);
      const double moved = v[axis] + place.Sample(changes[axis]);
      v[axis] = taken > 0 ? moved * kept + place.Sample(faces[axis]) * taken : moved;
    }
  });
}

void HybridFlip::TakeSlopes(const ParticleSort& sort, Flow& flow) {
  RequireSlopes(sort);
  const Faces faces = FacesOf(flow);
  const GridLayout& layout = *flow.GetLayout();
  const FaceStencils stencils(layout);
  const double perCell = 1 / double{layout.cellSize};
  ForEachParticle(sort, flow, [&](const ParticleSort::Entry& entry, Carried& own) {
    const Vec3d p = layout.ToCells(entry.position);
    for (i32 axis = 0; axis < 3; ++axis) {
      const FaceStencil::Place place = stencils[axis].At(p);
      own.velocities[entry.row][axis] = place.Sample(faces[axis]);
      own.slopes[axis][entry.row] = place.Slope(faces[axis]) * perCell;
    }
  });
}

void HybridFlip::TakeFlow(const ParticleSort& sort, Flow& flow) {
  if (!flow.HasVelocity() || sort.Count() == 0) return;
  const Faces faces = FacesOf(flow);
  const GridLayout& layout = *flow.GetLayout();
  const FaceStencils stencils(layout);
  ForEachParticle(sort, flow, [&](const ParticleSort::Entry& entry, Carried& own) {
    const Vec3d p = layout.ToCells(entry.position);
    Vec3d& v = own.velocities[entry.row];
    for (i32 axis = 0; axis < 3; ++axis) v[axis] = stencils[axis].At(p).Sample(faces[axis]);
  });
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
