#include "fluids/constraints/volume_constraint.h"

#include <algorithm>

#include "fluids/constraints/limited_example.h"
#include "fluids/fields/channel_kinds.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& VolumeConstraint::Kind() {
  static const NodeKind kind = {
      .id = 1300019,
      .type = "constraint_volume",
      .label = "CS::Volume",
      .className = "VolumeConstraint",
      .typeId = kTypeId,
      .list = kListAuxiliary,
      .categories = kCategoryConstraint,
      .menu = {"Constraints"},
      .purpose = "lets others work inside of a shape or of a liquid, or, turned round, outside",
      .example =
          {{example::kBall,
            R"({ "name": "box", "type": "box", "size": [40, 200, 200], "position": [0, 60, 0] })"},
           {example::kSmoke, example::kBallMesh, example::kBallVolume, example::kRate,
            example::kPair,
            R"({ "type": "mesh", "name": "box mesh", "parameters": { "object": "box" } })",
            R"({ "type": "volume", "name": "slice", "parameters": { "mesh": "box mesh" } })",
            R"({ "type": "constraint_volume", "name": "where", "parameters": { "volume": "slice" } })",
            example::kLimitedEmitter}},
      .rows = Parameters,
      .make = MakeNode<VolumeConstraint>,
  };
  return kind;
}

const ParameterTable& VolumeConstraint::Parameters() {
  static const ParameterTable table = WithRange({
      LinkRow(kVolumeRow, "volume",
              "the shape, or the liquid of this solver, whose inside lets others work")
          .AcceptsAny({kListGeometry, kCategoryVolume})
          .AcceptsAny(kSolvers)
          .To(&VolumeConstraint::mVolume)
          .To(&VolumeConstraint::mSolver)
          .Required(),
      BoolRow(
          1001, "use_depth", false,
          "measures how deep inside of a shape, from 0 at its surface to 1 at its deepest place")
          .To(&VolumeConstraint::mUsesDepth),
      CurveRow(1002, "depth_curve", "kept with the node; nothing reads it").Kept(),
      RealRow(1004, "offset", 0.0, "cells",
              "widens the shape (above 0) or narrows it (below 0) by so much")
          .To(&VolumeConstraint::mOffsetCells),
  });
  return table;
}

bool VolumeConstraint::Fetch() {
  mOffset = mOffsetCells * GetDomain().cellSize;
  mMembers.clear();
  mSurface = nullptr;
  if (mVolume) {
    mVolume->CollectMembers(mMembers);
    std::erase_if(mMembers, [](const VolumeBase* member) { return !member->HasGridData(); });
    return !mMembers.empty() || Deactivate("its volume has no grid");
  }
  if (!mSolver) return Deactivate("it has no volume; name one under 'volume'");
  mSurface = mSolver->GetFlow().mSurface;
  return (mSurface && mSurface->mData) ||
         Deactivate("its solver has no liquid surface; name a liquid or a shape under 'volume'");
}

/// Beyond its grid, which ends a few cells off the surface, a point is as much farther away as it
/// is from the grid.
bool VolumeConstraint::Holds(const VolumeBase& member, const Vec3d& position) const {
  const GridLayout& box = member.GetGrid()->mLayout;
  const Vec3d q = Max(box.simOrigin, Min(position, box.simMax)), beyond = position - q;
  double distance = member.DistanceAtWorld(q);
  if (!member.mInverted) distance += std::sqrt(Dot(beyond, beyond));
  return distance - mOffset < 0;
}

double VolumeConstraint::Measure(const Vec3d& position, const ConstraintUse&) const {
  if (mSurface)
    return SampleLinear(*mSurface, mSurface->ToSamples(position)) - mOffset < 0 ? 1.0 : 0.0;
  for (const VolumeBase* member : mMembers)
    if (Holds(*member, position)) {
      if (!mUsesDepth) return 1;
      return member->DistanceAtWorld(position) < 0 ? member->DepthWorld(position) : 0.0;
    }
  return 0;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
