#include "io/measure.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "fluids/mesh/multi_mesh.h"
#include "grids/fixed_blocks.h"
#include "io/body_animation.h"
#include "io/field.h"
#include "io/mesh_table.h"
#include "rigid/rigid_body_variational.h"

namespace MELDO_GLOBAL::app {

using namespace MELDO_SULVA;

namespace {

struct Range {
  double min = std::numeric_limits<double>::infinity();
  double max = -std::numeric_limits<double>::infinity();
  double sum = 0;
};

Range RangeOfLayer(const Grid<double>& grid, i32 z) {
  Range range;
  const double* values = grid.mData + i64{z} * grid.mSlice;
  // Four running values each, combined in order at the end: wide enough to stream, and fixed.
  constexpr int kLanes = 4;
  double min[kLanes], max[kLanes], sum[kLanes];
  for (int l = 0; l < kLanes; ++l) min[l] = range.min, max[l] = range.max, sum[l] = 0;
  i32 i = 0;
  for (; i + kLanes <= grid.mSlice; i += kLanes)
    for (int l = 0; l < kLanes; ++l) {
      const double v = values[i + l];
      min[l] = v < min[l] ? v : min[l];
      max[l] = v > max[l] ? v : max[l];
      sum[l] += v;
    }
  for (; i < grid.mSlice; ++i) {
    min[0] = std::min(min[0], values[i]);
    max[0] = std::max(max[0], values[i]);
    sum[0] += values[i];
  }
  for (int l = 0; l < kLanes; ++l) {
    range.min = std::min(range.min, min[l]);
    range.max = std::max(range.max, max[l]);
    range.sum += sum[l];
  }
  return range;
}

Range RangeOf(const Grid<double>& grid, i32 threads) {
  return ReduceBlocks(
      grid.mNz, threads, Range{}, [&](i32 z) { return RangeOfLayer(grid, z); },
      [](const Range& a, const Range& b) {
        return Range{std::min(a.min, b.min), std::max(a.max, b.max), a.sum + b.sum};
      });
}

/// Largest component and energy of the faces of one axis.
struct FaceSums {
  double largest = 0;
  double energy = 0;  ///< sum of weight * u^2
  bool isFinite = true;
};

/// What `n` faces side by side add, each with the same weight; `open` may be null.
void MeasureFaces(const double* velocity, const float* open, i32 n, double weight, FaceSums& sums) {
  // Four running values each, as in `RangeOfLayer`.
  constexpr int kLanes = 4;
  constexpr double kMost = std::numeric_limits<double>::max();
  double largest[kLanes] = {}, energy[kLanes] = {};
  i64 wild[kLanes] = {};
  const auto add = [&](i32 i, int l) {
    const double u = velocity[i], fraction = open ? double{open[i]} : 1.0, speed = std::abs(u);
    wild[l] |= !(speed <= kMost);
    const double counted = fraction > 0 ? speed : 0.0, part = fraction > 0 ? fraction : 0.0;
    largest[l] = counted > largest[l] ? counted : largest[l];
    energy[l] += part * counted * counted;
  };
  i32 i = 0;
  for (; i + kLanes <= n; i += kLanes)
    for (int l = 0; l < kLanes; ++l) add(i + l, l);
  for (; i < n; ++i) add(i, 0);
  for (int l = 0; l < kLanes; ++l) {
    sums.largest = std::max(sums.largest, largest[l]);
    sums.isFinite = sums.isFinite && wild[l] == 0;
  }
  sums.energy += weight * ((energy[0] + energy[1]) + (energy[2] + energy[3]));
}

/// One z layer of faces. `cells` are the cells of the layout.
FaceSums MeasureLayer(const EGrid<double>& velocity, const EGrid<float>* open,
                      const EGrid<double>* surface, int axis, i32 z) {
  FaceSums sums;
  const VecInt3D cells = velocity.mLayout.dims;
  // Of a liquid only what is in its cells counts.
  const VecInt3D back = ExtraOf(axis);
  const auto wet = [&](i32 x, i32 y) {
    const auto isIn = [&](i32 i, i32 j, i32 k) {
      return i >= 0 && j >= 0 && k >= 0 && i < cells.x && j < cells.y && k < cells.z &&
             (*surface)(i, j, k) < 0;
    };
    return 0.5 * isIn(x, y, z) + 0.5 * isIn(x - back.x, y - back.y, z - back.z);
  };
  // Half a face for each of the cells 1 to n - 2 beside it.
  const auto halves = [&](int a, i32 i) {
    if (a != axis) return i >= 1 && i <= cells[a] - 2 ? 1.0 : 0.0;
    const double low = i - 1 >= 1 && i - 1 <= cells[a] - 2 ? 0.5 : 0.0;
    const double high = i >= 1 && i <= cells[a] - 2 ? 0.5 : 0.0;
    return low + high;
  };
  const double weightZ = halves(2, z);
  const i32 n = velocity.mNx;
  const i32 low = std::min(2, n);
  const IndexRange whole{low, std::max(low, n - 2)};  // of full weight along x
  for (i32 y = 0; y < velocity.mNy; ++y) {
    const double weightYZ = weightZ * halves(1, y);
    const i32 row = velocity.Index(0, y, z);
    const auto add = [&](i32 first, i32 last, double weight) {
      MeasureFaces(velocity.mData + row + first, open ? open->mData + row + first : nullptr,
                   last - first, weightYZ * weight, sums);
    };
    if (surface) {
      for (i32 x = 0; x < n; ++x)
        if (const double share = wet(x, y); share > 0) add(x, x + 1, share * halves(0, x));
      continue;
    }
    for (i32 x = 0; x < whole.first; ++x) add(x, x + 1, halves(0, x));
    if (!whole.IsEmpty()) add(whole.first, whole.last, 1.0);
    for (i32 x = whole.last; x < n; ++x) add(x, x + 1, halves(0, x));
  }
  return sums;
}

/// What of the cells is liquid, in cells: the open share of those inside, of those at the surface
/// as much as lies below it.
double LiquidCells(const Flow& flow, i32 threads) {
  const EGrid<double>& surface = *flow.mSurface;
  const EGrid<float>* open =
      flow.mFractions.HasField(0, 0) ? flow.mFractions.GetRead(0, 0) : nullptr;
  if (open && (!open->mData || open->Dims() != surface.Dims())) open = nullptr;
  const double perCell = 1 / double{surface.mLayout.cellSize};
  return SumBlocks(surface.mNz, 1, threads, [&](i64 first, i64 last) {
    double sum = 0;
    for (i64 i = first * surface.mSlice; i < last * surface.mSlice; ++i) {
      const double below = std::clamp(0.5 - surface.mData[i] * perCell, 0.0, 1.0);
      sum += open ? below * double{open->mData[i]} : below;
    }
    return sum;
  });
}

std::optional<FieldLedger> TakeLedger(iBase& channel) {
  auto* scalar = dynamic_cast<ScalarField*>(&channel);
  if (!scalar) return {};
  const FieldLedger ledger = scalar->mAccount.Take();
  if (!channel.Has(FLAG_CACHED))
    return scalar->IsAccounted() ? std::optional(ledger) : std::nullopt;
  // What a recording brings is known by the run that wrote it.
  scalar->mAccount.TakeGiven();
  return {};
}

}  // namespace

ChannelRecord MeasureChannel(iBase& channel, i32 threads) {
  ChannelRecord record;
  const std::optional<Field> field = FieldOf(channel);
  record.cellSize = channel.GetDomain().cellSize;
  if (!field) return record;
  record.ledger = TakeLedger(channel);
  record.components = field->kind == Field::Kind::Vector ? 3 : 1;
  if (!field->HasGrid()) return record;
  record.dims = field->grids[0]->Dims();
  record.origin = field->grids[0]->mLayout.simOrigin;
  for (int i = 0; i < record.components; ++i) {
    if (!field->grids[i] || !field->grids[i]->mData) continue;
    const Range range = RangeOf(*field->grids[i], threads);
    record.min[i] = range.min;
    record.max[i] = range.max;
    record.sum[i] = range.sum;
  }
  return record;
}

SolverRecord MeasureSolver(FluidSolver& solver, i32 threads) {
  SolverRecord record;
  Grid_Incompressibility& projection = solver.Projection();
  record.pressure = projection.TakeReports();
  record.viscosity = solver.mViscosity.TakeReports();
  const VolumeLedger volume = projection.TakeLedger();
  const Flow& flow = solver.GetFlow();
  // What goes through a liquid's surface has not left it.
  if (!solver.Has(FLAG_CACHED) && !flow.mSurface) record.volume = volume;
  const GridLayout* layout = flow.GetLayout();
  if (!layout) return record;
  record.divergenceMax = projection.DivergenceMax();
  record.dims = layout->dims;
  double sum = 0;
  for (int axis = 0; axis < 3; ++axis) {
    const EGrid<double>* velocity = flow.mVelocity.GetGrid(axis);
    if (!velocity || !velocity->mData) continue;
    const EGrid<float>* open = flow.GetOpenFaces(axis);
    const FaceSums sums = ReduceBlocks(
        velocity->mNz, threads, FaceSums{},
        [&](i32 z) { return MeasureLayer(*velocity, open, flow.mSurface, axis, z); },
        [](const FaceSums& a, const FaceSums& b) {
          return FaceSums{std::max(a.largest, b.largest), a.energy + b.energy,
                          a.isFinite && b.isFinite};
        });
    record.maxSpeed = std::max(record.maxSpeed, sums.largest);
    sum += sums.energy;
    if (!sums.isFinite) {
      record.maxSpeed = std::numeric_limits<double>::quiet_NaN();
      return record;
    }
  }
  const double h = layout->cellSize, cell = h * h * h;
  record.kineticEnergy = 0.5 * solver.density * sum * cell;
  if (flow.mSurface && flow.mSurface->mData)
    record.liquid = (LiquidCells(flow, threads) - solver.SurfaceSurplus()) * cell;
  return record;
}

namespace {

/// Sums over particles, and the box of their positions.
struct ParticleSums {
  Vec3d position{}, velocity{};
  double speedSquared = 0;
  Bounds box;

  void Add(const Vec3d& p, const Vec3d& v) {
    position += p;
    velocity += v;
    speedSquared += Dot(v, v);
    // Not a number goes on into the sums alone.
    box.min = Min(box.min, p);
    box.max = Max(box.max, p);
  }
  void Add(const ParticleSums& other) {
    position += other.position;
    velocity += other.velocity;
    speedSquared += other.speedSquared;
    box.Add(other.box);
  }
};

ParticleSums SumsOf(const ParticleColumns& particles, i32 threads) {
  constexpr i64 kBlock = 1 << 14;
  const auto positions = particles.Positions(), velocities = particles.Velocities();
  const i64 count = particles.Count();
  return ReduceBlocks(
      static_cast<i32>((count + kBlock - 1) / kBlock), threads, ParticleSums{},
      [&](i32 block) {
        ParticleSums own;
        const i64 last = std::min(count, (block + 1) * kBlock);
        for (i64 row = block * kBlock; row < last; ++row) own.Add(positions[row], velocities[row]);
        return own;
      },
      [](ParticleSums a, const ParticleSums& b) {
        a.Add(b);
        return a;
      });
}

}  // namespace

ParticlesRecord MeasureParticles(ParticleGroup& group, i32 threads) {
  ParticlesRecord record;
  ParticleSums sums;
  for (i32 kind = 0; kind < kParticleKinds; ++kind) {
    ParticleStore& store = group.Store(kind);
    record.counts[kind] = store.Count();
    record.born += std::exchange(store.mBorn, 0);
    record.died += std::exchange(store.mDied, 0);
    sums.Add(SumsOf(store, threads));
  }
  const double count = static_cast<double>(group.CountAll());
  if (count == 0) return record;
  record.centroid = sums.position / count;
  record.meanVelocity = sums.velocity / count;
  record.kineticEnergy = 0.5 * sums.speedSquared / count;
  record.min = sums.box.min;
  record.max = sums.box.max;
  return record;
}

MeshRecord MeasureMesh(const MeshTable& mesh) {
  const MeshMeasure measure = Measure(mesh);
  return {.name = {},
          .points = static_cast<i64>(mesh.points.size()),
          .polygons = static_cast<i64>(mesh.polygons.size()),
          .area = measure.area,
          .volume = measure.volume};
}

namespace {

void MeasureBodies(const Scene& scene, std::vector<BodyRecord>& bodies) {
  std::vector<Mesh*> meshes;
  for (const auto& [id, object] : scene.List(kListGeometry)) {
    meshes.clear();
    CollectMeshes(object.get(), meshes);
    for (const Mesh* mesh : meshes) {
      const auto* body = dynamic_cast<const RigidBody_Variational*>(mesh->GetBody());
      if (!body || body->IsStatic()) continue;
      bodies.push_back({.name = mesh->ObjectName(),
                        .mass = body->Mass(),
                        .position = body->Pose().centre,
                        .rotation = QuaternionOf(mesh->BodyRotation()),
                        .linearVelocity = body->LinearVelocity(),
                        .angularVelocity = body->AngularVelocity(),
                        .fluidForce = body->FluidForce(),
                        .fluidTorque = body->FluidTorque(),
                        .contacts = body->Touches(),
                        .isAsleep = body->IsAsleep()});
    }
  }
}

}  // namespace

void MeasureScene(const Scene& scene, const NodeNames& names, FrameRecord& record) {
  for (const auto& [id, channel] : scene.List(kListChannels)) {
    if (!channel->Has(FLAG_ENABLED)) continue;
    record.channels.push_back(MeasureChannel(*channel, scene.mThreadCount));
    record.channels.back().name = names.Of(id);
  }
  for (const auto& [id, object] : scene.List(kListSolvers)) {
    auto* solver = dynamic_cast<FluidSolver*>(object.get());
    if (!solver || !solver->Has(FLAG_ENABLED)) continue;
    record.solvers.push_back(MeasureSolver(*solver, scene.mThreadCount));
    // Before the first step nothing is known of where a liquid lies.
    if (!scene.mTime.IsUnderWay()) record.solvers.back().liquid.reset();
    record.solvers.back().name = names.Of(id);
  }
  for (const auto& [id, object] : scene.List(kListParticles)) {
    auto* group = dynamic_cast<ParticleGroup*>(object.get());
    if (!group || !group->Has(FLAG_ENABLED)) continue;
    record.particles.push_back(MeasureParticles(*group, scene.mThreadCount));
    record.particles.back().name = names.Of(id);
  }
  for (const i32 list : {kListGeometry, kListOperators})
    for (const auto& [id, object] : scene.List(list)) {
      const auto* mesh = dynamic_cast<const host::PolygonObject*>(object->Node());
      if (!mesh || !object->Has(FLAG_ENABLED)) continue;
      record.meshes.push_back(MeasureMesh(TableOf(*mesh, scene.mDomain.worldToSim)));
      record.meshes.back().name = names.Of(id);
    }
  MeasureBodies(scene, record.bodies);
}

}  // namespace MELDO_GLOBAL::app
