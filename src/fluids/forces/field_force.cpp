#include "fluids/forces/field_force.h"

#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

void FieldForce::AddTo(const Run& run) const {
  const std::size_t n = run.positions.size();
  for (double& weight : run.weights) weight = weight == 0 ? 0.0 : Scale(weight);
  if (WeighsByConstraints() && !mConstraints.IsEmpty())
    mConstraints.TestRow({run.positions, run.weights, run.particles, run.first}, this, run.worker);
  Vec3d positions[kRun], changes[kRun];
  double weights[kRun];
  i32 rows[kRun];
  std::size_t count = 0;
  for (std::size_t i = 0; i < n; ++i) {
    if (run.weights[i] == 0) continue;
    positions[count] = run.positions[i];
    weights[count] = run.weights[i];
    changes[count] = run.changes[i];
    rows[count++] = run.first + static_cast<i32>(i);
  }
  if (count == 0) return;
  AddField({run.worker,
            {positions, count},
            {weights, count},
            run.particles,
            {rows, count},
            {changes, count}});
  for (std::size_t k = 0; k < count; ++k) run.changes[rows[k] - run.first] = changes[k];
}

void FieldForce::Evaluate(ForceSample& sample) {
  if (!Has(FLAG_ACTIVE)) return;
  double weight = sample.weight;
  AddTo({sample.worker,
         {&sample.position, 1},
         {&weight, 1},
         sample.particles,
         sample.particle,
         {&sample.force, 1}});
}

void FieldForce::EvaluateRow(const ForceRow& row) {
  if (!Has(FLAG_ACTIVE)) return;
  Vec3d positions[kRun], changes[kRun];
  double weights[kRun];
  for (i32 first = 0; first < row.count; first += kRun) {
    const i32 n = std::min(static_cast<i32>(kRun), row.count - first);
    for (i32 i = 0; i < n; ++i) {
      const i32 x = first + i;
      positions[i] = row.PositionOf(x);
      weights[i] = row.open[x] ? row.weight : 0.0;
      for (int a = 0; a < 3; ++a) changes[i][a] = row.force[a][x];
    }
    const auto count = static_cast<std::size_t>(n);
    AddTo({row.worker, {positions, count}, {weights, count}, nullptr, 0, {changes, count}});
    for (i32 i = 0; i < n; ++i)
      for (int a = 0; a < 3; ++a) row.force[a][first + i] = changes[i][a];
  }
}

void FieldForce::EvaluateParticles(const ForceParticles& run) {
  if (!Has(FLAG_ACTIVE)) return;
  double weights[kRun];
  for (std::size_t first = 0; first < run.positions.size(); first += kRun) {
    const std::size_t n = std::min(kRun, run.positions.size() - first);
    std::copy_n(run.weights.begin() + first, n, weights);
    AddTo({run.worker,
           run.positions.subspan(first, n),
           {weights, n},
           run.particles,
           run.first + static_cast<i32>(first),
           run.forces.subspan(first, n)});
  }
}

Vec3d FieldForce::ToHost(const Vec3d& p) const { return p * GetDomain().simToWorld; }
Vec3d FieldForce::ToSim(const Vec3d& p) const { return p * GetDomain().worldToSim; }

}  // namespace MELDO_GLOBAL::MELDO_SULVA
