// Forces: what velocity change does this step add at a point?
#pragma once
#include <algorithm>
#include <array>
#include <span>

#include "fluids/flow/flow.h"
#include "framework/constraint.h"
#include "framework/duration.h"
#include "framework/iobject.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class ParticleColumns;
class PointTree;

/// The particles about one, as they were before forces changed any of them.
struct ParticleSurroundings {
  const PointTree* tree = nullptr;    ///< of all particles of the store; null where none is in it
  std::span<const Vec3d> velocities;  ///< of all its rows
};

/// The record that a force reads and adds to; one serves a whole loop, refilled for every cell.
struct ForceSample {
  u32 worker = 0;                    ///< index of the calling worker
  i32 particleMode = 0;              ///< 0 for a grid cell, else a particle
  i32 cellIndex = 0;                 ///< linear index in a centred grid of the solver
  std::array<i32, 3> faceIndex{};    ///< index of the cell's low face in the u, v, w grids
  std::array<double, 3> fraction{};  ///< open fractions of the three low faces
  double weight = 1.0;
  Vec3d position{};      ///< cell centre, simulation units
  Vec3d force{};         ///< accumulator, a velocity change in simulation units per second
  Vec3d hostPosition{};  ///< cell centre, host units
  const ParticleColumns* particles = nullptr;    ///< of a particle: the columns that it is in
  i32 particle = 0;                              ///< its row
  const ParticleSurroundings* around = nullptr;  ///< of it, for forces that ask for neighbours
};

/// Particles in rows that follow one another, in the same terms.
struct ForceParticles {
  u32 worker = 0;
  const ParticleColumns* particles = nullptr;
  i32 first = 0;                     ///< the row of the first one
  std::span<const Vec3d> positions;  ///< simulation units
  std::span<const double> weights;   ///< of those that are left out 0
  Vec3d simToWorld{};
  std::span<Vec3d> forces;                       ///< accumulators
  const ParticleSurroundings* around = nullptr;  ///< for forces that ask for neighbours
};

/// A row of cells along x, in the same terms: arrays hold one entry per cell. What forces add to
/// cells that aren't open is dropped by the caller.
struct ForceRow {
  u32 worker = 0;
  i32 count = 0;
  VecInt3D cell{};                 ///< the first cell
  i32 cellIndex = 0;               ///< of the first cell
  std::array<i32, 3> faceIndex{};  ///< of the first cell
  std::array<const float*, 3> fraction{};
  const u8* open = nullptr;  ///< 1 where one of the six faces is open
  double weight = 1.0;
  Vec3d position{};  ///< centre of the first cell, simulation units
  double step = 0;   ///< from centre to centre, simulation units
  Vec3d simToWorld{};
  std::array<double*, 3> force{};  ///< accumulators

  Vec3d PositionOf(i32 x) const { return {position.x + x * step, position.y, position.z}; }
};

/// The frame of every force: links, time window, constraints. What a force adds is already a
/// velocity change: the step length is applied inside.
class Force : public iObject {
 public:
  using iObject::iObject;
  Force() = default;
  ConstraintList* Constraints() override { return &mConstraints; }
  bool ResolveLinks() override;
  void ClearLinks() override;
  /// Makes ready for a step on a flow, where the time window is open.
  void PrepareFor(Flow& flow);
  /// Makes ready for a step on what isn't a flow; inactive where the force needs one.
  void PrepareAlone();
  /// Makes ready for a step on particles; inactive where the force does nothing to them.
  void PrepareForParticles();
  void Finish() override;

  /// Whether it rests on the place alone, and so acts beyond the cells of the flow too.
  virtual bool ActsAnywhere() const { return false; }
  /// Whether it does something to particles.
  virtual bool ActsOnParticles() const { return ActsAnywhere(); }
  /// Whether what it does to a particle depends on those about it.
  virtual bool AsksNeighbours() const { return false; }
  /// Whether it does something to rigid bodies.
  virtual bool ActsOnBodies() const { return ActsAnywhere(); }

  using iObject::Evaluate;
  /// Adds to `sample.force`; nothing without `FLAG_ACTIVE`. Runs on all workers at once.
  virtual void Evaluate(ForceSample& sample) = 0;
  /// Adds to every open cell of the row what `Evaluate` adds at that cell, to the last bit.
  virtual void EvaluateRow(const ForceRow& row);
  /// Adds to every particle what `Evaluate` adds to it, to the last bit.
  virtual void EvaluateParticles(const ForceParticles& run);

 protected:
  /// Opens the force for a step, with `mFlow` or without one.
  virtual void Open();
  /// Class work of `Open`; false leaves the force inactive.
  virtual bool PrepareForce() { return true; }
  virtual void FinishForce() {}
  /// Calls f(sample) for every open cell of the row and keeps what
  /// it left in `sample.force`.
  template <class F>
  static void ForEachSample(const ForceRow& row, F&& f);
  /// A cell of a row, or a particle of a run, and what was added to it.
  static ForceSample SampleOf(const ForceRow& row, i32 x);
  static ForceSample SampleOf(const ForceParticles& run, i32 i);
  static void Store(const ForceSample& sample, const ForceRow& row, i32 x) {
    for (int a = 0; a < 3; ++a) row.force[a][x] = sample.force[a];
  }
  /// Adds the vector `along` times amount(index of the cell): to a cell, or to each of a row.
  template <class Amount>
  static void AddAlong(ForceSample& sample, const Vec3d& along, Amount&& amount) {
    sample.force += along * amount(sample.cellIndex);
  }
  template <class Amount>
  static void AddAlong(const ForceRow& row, const Vec3d& along, Amount&& amount);
  Flow* mFlow = nullptr;               ///< the one that it works on
  VelocityField* mVelocity = nullptr;  ///< of the flow
  ConstraintList mConstraints;
  Duration* mDuration = nullptr;
  double mWeight = 1.0;  ///< 1, or the window's weight in this step
};

inline ForceSample Force::SampleOf(const ForceRow& row, i32 x) {
  ForceSample sample;
  sample.worker = row.worker;
  sample.weight = row.weight;
  sample.cellIndex = row.cellIndex + x;
  for (int a = 0; a < 3; ++a) {
    sample.faceIndex[a] = row.faceIndex[a] + x;
    sample.fraction[a] = row.fraction[a][x];
    sample.force[a] = row.force[a][x];
  }
  sample.position = row.PositionOf(x);
  sample.hostPosition = sample.position * row.simToWorld;
  return sample;
}

inline ForceSample Force::SampleOf(const ForceParticles& run, i32 i) {
  ForceSample sample;
  sample.worker = run.worker;
  sample.particleMode = 1;
  sample.around = run.around;
  sample.particles = run.particles;
  sample.particle = run.first + i;
  sample.weight = run.weights[i];
  sample.position = run.positions[i];
  sample.hostPosition = sample.position * run.simToWorld;
  sample.force = run.forces[i];
  return sample;
}

template <class F>
void Force::ForEachSample(const ForceRow& row, F&& f) {
  for (i32 x = 0; x < row.count; ++x) {
    if (!row.open[x]) continue;
    ForceSample sample = SampleOf(row, x);
    f(sample);
    Store(sample, row, x);
  }
}

template <class Amount>
void Force::AddAlong(const ForceRow& row, const Vec3d& along, Amount&& amount) {
  constexpr i32 kChunk = 128;
  double amounts[kChunk];
  for (i32 first = 0; first < row.count; first += kChunk) {
    const i32 n = std::min(kChunk, row.count - first);
    for (i32 x = 0; x < n; ++x) amounts[x] = amount(row.cellIndex + first + x);
    for (int a = 0; a < 3; ++a) {
      if (along[a] == 0) continue;
      double* force = row.force[a] + first;
      for (i32 x = 0; x < n; ++x) force[x] += along[a] * amounts[x];
    }
  }
}

/// A force whose formula stands once for a cell and for a row of cells. The class `Law` itself has
/// `Push(place, s)`, a template that adds to a `ForceSample&` or to a `const ForceRow&` what the
/// force gives there by a weight of `s`, and may have the three below.
template <class Law>
class ForceOf : public Force {
 public:
  using Force::Force;
  ForceOf() = default;
  using Force::Evaluate;
  void Evaluate(ForceSample& sample) override {
    if (!Has(FLAG_ACTIVE) || !ThisLaw().ActsOn(sample)) return;
    double s = ThisLaw().Scale(sample.weight);
    if (mConstraints.Test(sample.position, s, this, sample.worker, sample.particles,
                          sample.particle))
      ThisLaw().Push(sample, s);
  }
  void EvaluateRow(const ForceRow& row) override {
    if (!mConstraints.IsEmpty()) return EvaluateConstrained(row);
    if (!ThisLaw().IsAlikeInRows()) return Force::EvaluateRow(row);
    if (const double s = ThisLaw().Scale(row.weight); s != 0) ThisLaw().Push(row, s);
  }
  void EvaluateParticles(const ForceParticles& run) override {
    if (mConstraints.IsEmpty()) return Force::EvaluateParticles(run);
    if (!Has(FLAG_ACTIVE)) return;
    const i32 count = static_cast<i32>(run.positions.size());
    const auto start = [&](i32 row) {
      const ForceSample sample = SampleOf(run, row - run.first);
      return sample.weight != 0 && ThisLaw().ActsOn(sample) ? ThisLaw().Scale(sample.weight) : 0.0;
    };
    const auto push = [&](i32 row, double s) {
      ForceSample sample = SampleOf(run, row - run.first);
      ThisLaw().Push(sample, s);
      run.forces[row - run.first] = sample.force;
    };
    mConstraints.ForEachWeighed(
        {run.first, run.first + count, this, run.worker, run.particles},
        [&](i32 row) { return run.positions[row - run.first]; }, start, push);
  }

  /// What a caller's weight comes to in this step.
  double Scale(double weight) const { return weight * mWeight; }
  /// False where the force gives nothing and no constraint has to be asked.
  bool ActsOn(const ForceSample& /*sample*/) const { return true; }
  /// Whether `Push` knows rows now.
  bool IsAlikeInRows() const { return true; }

 private:
  void EvaluateConstrained(const ForceRow& row) {
    if (!Has(FLAG_ACTIVE)) return;
    const double scale = ThisLaw().Scale(row.weight);
    const auto start = [&](i32 x) {
      return row.open[x] && ThisLaw().ActsOn(SampleOf(row, x)) ? scale : 0.0;
    };
    const auto push = [&](i32 x, double s) {
      ForceSample sample = SampleOf(row, x);
      ThisLaw().Push(sample, s);
      Store(sample, row, x);
    };
    mConstraints.ForEachWeighed(
        {0, row.count, this, row.worker}, [&](i32 x) { return row.PositionOf(x); }, start, push);
  }
  const Law& ThisLaw() const { return static_cast<const Law&>(*this); }
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
