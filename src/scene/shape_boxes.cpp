#include "scene/shape_boxes.h"

#include <algorithm>

#include "exchange/particles_object.h"
#include "fluids/emission/object_grid_emitter.h"
#include "fluids/mesh/multi_mesh.h"
#include "fluids/operators/mesh_smoothing_operator.h"
#include "fluids/solvers/fluid_solver.h"
#include "fluids/volume/multi_volume.h"
#include "framework/server_rows.h"

namespace MELDO_GLOBAL::app {

using namespace host;
using namespace MELDO_SULVA;

double ShapeBoxes::CellOf(const BaseNode& server) {
  return Number(server, server_row::kCellSize) * Number(server, server_row::kHostUnits) /
         Number(server, server_row::kSimulationUnits);
}

bool ShapeBoxes::IsVolume(const BaseNode& node) {
  return IsA<VolumeMesh>(node) || IsA<MultiVolume>(node);
}

bool ShapeBoxes::IsMesh(const BaseNode& node) { return IsA<Mesh>(node) || IsA<MultiMesh>(node); }

void ShapeBoxes::AddBox(const PolygonObject& object, Vec3d& low, Vec3d& high) {
  AddPoints(object.GetGeometry().points, object.GlobalMatrix(), low, high);
}

void ShapeBoxes::AddPoints(const std::vector<Vec3d>& points, const Matrix& place, Vec3d& low,
                           Vec3d& high) {
  for (const Vec3d& point : points) {
    const Vec3d p = place * point;
    low = Min(low, p);
    high = Max(high, p);
  }
}

bool ShapeBoxes::StillBox(const BaseNode& node, Vec3d& low, Vec3d& high, int depth) const {
  constexpr int kDeepest = 16;
  if (depth > kDeepest || mPlaces.IsMoved(node) ||
      (IsVolume(node) && Whole(node, VolumeMesh::kInvertedRow)))
    return false;
  if (const auto* object = dynamic_cast<const PolygonObject*>(&node)) {
    if (!object->FramePattern().empty() || object->GetGeometry().points.empty()) return false;
    AddBox(*object, low, high);
    return true;
  }
  if (const auto* loose = dynamic_cast<const PointsObject*>(&node)) {
    const auto* particles = dynamic_cast<const exchange::ParticlesObject*>(loose);
    const bool isMoving =
        !loose->track.keys.empty() || (particles && !particles->FramePattern().empty());
    if (loose->points.empty() || isMoving) return false;
    AddPoints(loose->points, loose->GlobalMatrix(), low, high);
    return true;
  }
  std::set<NodeId> linked;
  AddLinks(node, linked);
  bool any = false;
  for (const NodeId id : linked) {
    const BaseNode* target = mScene.document->Find(id);
    const bool isShape =
        target && (IsVolume(*target) || IsMesh(*target) || target->Type() == kMeshObject);
    if (!isShape) continue;
    if (!StillBox(*target, low, high, depth + 1)) return false;
    any = true;
  }
  return any;
}

void ShapeBoxes::ForEachStillEmitter(const EmitterVisit& f) const {
  ForEachStill(ObjectGridEmitter::Kind(), ObjectGridEmitter::kVolumeRow, f);
}

void ShapeBoxes::ForEachStill(const NodeKind& kind, i32 row, const EmitterVisit& f) const {
  const auto deforms = [](const BaseNode* node) { return IsA<MeshSmoothingOperator>(*node); };
  if (std::any_of(mNodes.begin(), mNodes.end(), deforms)) return;
  for (const BaseNode* emitter : mNodes) {
    if (emitter->Type() != kind.id) continue;
    const BaseNode* shape = Linked(*emitter, row);
    Vec3d low{kFar, kFar, kFar}, high{-kFar, -kFar, -kFar};
    if (shape && shape->IsEnabled() && StillBox(*shape, low, high)) f(*emitter, *shape, low, high);
  }
}

ShapeBoxes::Box ShapeBoxes::BoxOf(const BaseNode& fluid) {
  const Vec3d size = *Get<Vec3d>(fluid, FluidSolver::kBoxSizeRow);
  const Vec3d* offset = Get<Vec3d>(fluid, FluidSolver::kBoxOffsetRow);
  const Vec3d from = fluid.GlobalMatrix().offset - size * (offset ? *offset : Vec3d{});
  return {from, from + size};
}

bool ShapeBoxes::MayMeet(const BaseNode& fluid, const Vec3d& low, const Vec3d& high) const {
  if (mPlaces.IsMoved(fluid) || !fluid.Tracks().empty() ||
      !Get<Vec3d>(fluid, FluidSolver::kBoxSizeRow))
    return true;
  const Box box = BoxOf(fluid);
  for (int a = 0; a < 3; ++a)
    if (low[a] > box.high[a] || high[a] < box.low[a]) return false;
  return true;
}

bool ShapeBoxes::LiesOutside(const Vec3d& low, const Vec3d& high) const {
  bool any = false;
  for (const BaseNode* fluid : mNodes) {
    if (!IsA<FluidSolver>(*fluid)) continue;
    if (MayMeet(*fluid, low, high)) return false;
    any = true;
  }
  return any;
}

}  // namespace MELDO_GLOBAL::app
