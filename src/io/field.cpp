#include "io/field.h"

#include "fluids/fields/channel.h"
#include "fluids/fields/field_unit.h"
#include "fluids/flow/ifluid_solver.h"
#include "fluids/volume/volume_base.h"
#include "nodes/catalogue.h"

namespace MELDO_GLOBAL::app {

using namespace MELDO_SULVA;

namespace {

using ScalarChannel = ChannelBase_Scalar<double, EGrid<double>>;
using VectorChannel = ChannelBase_Vector<Vec3d, EGrid<double>>;

Field FieldOfScalar(const ScalarChannel& channel) {
  Field field;
  field.kind =
      channel.GetTypeId() == kTypeLevelsetChannel ? Field::Kind::LevelSet : Field::Kind::Scalar;
  field.grids[0] = channel.GetGrid(0);
  field.valueMax = channel.mValueMax;
  field.isHeat =
      channel.GetTypeId() == kTypeTemperatureChannel || channel.GetTypeId() == kTypeFireChannel;
  return field;
}

Field FieldOfVector(const VectorChannel& channel, Field::Kind kind) {
  Field field;
  field.kind = kind;
  for (i32 i = 0; i < 3; ++i) field.grids[i] = channel.GetGrid(i);
  field.valueMax = std::max({channel.mValueMax.x, channel.mValueMax.y, channel.mValueMax.z});
  return field;
}

Field FieldOfVolume(iVolume& volume) {
  Field field;
  field.kind = Field::Kind::LevelSet;
  std::vector<VolumeBase*> members;
  volume.CollectMembers(members);
  for (const VolumeBase* member : members) {
    if (!member->HasGridData()) continue;
    if (field.grids[0]) {
      field.others.push_back(member->GetGrid());
    } else {
      field.grids[0] = member->GetGrid();
    }
  }
  return field;
}

}  // namespace

std::optional<Field> FieldOf(iBase& object) {
  std::optional<Field> field;
  if (const auto* solver = dynamic_cast<const iFluidSolver*>(&object)) {
    field = FieldOfVector(solver->GetFlow().mVelocity, Field::Kind::Velocity);
  } else if (const auto* vector = dynamic_cast<const VectorChannel*>(&object)) {
    field = FieldOfVector(*vector, Field::Kind::Vector);
  } else if (const auto* scalar = dynamic_cast<const ScalarChannel*>(&object)) {
    field = FieldOfScalar(*scalar);
  } else if (auto* volume = dynamic_cast<iVolume*>(&object)) {
    field = FieldOfVolume(*volume);
  }
  if (field) {
    field->unit = UnitOfField(object.GetTypeId(), object.GetListIndex());
    field->cellSize = object.GetDomain().cellSize;
  }
  return field;
}

std::optional<Field> EmptyFieldOf(const host::BaseNode& node, f32 cellSize) {
  const NodeKind* kind = FindKind(node.Type());
  if (!kind) return {};
  Field field;
  field.unit = UnitOf(node);
  field.cellSize = cellSize;
  switch (kind->list) {
    case kListChannels:
      field.kind = kind->categories & kCategoryVector ? Field::Kind::Vector : Field::Kind::Scalar;
      return field;
    case kListSolvers: field.kind = Field::Kind::Velocity; return field;
    case kListGeometry: field.kind = Field::Kind::LevelSet; return field;
    default: return {};
  }
}

const char* UnitOf(const host::BaseNode& node) {
  const NodeKind* kind = FindKind(node.Type());
  return kind ? UnitOfField(kind->typeId, kind->list) : "";
}

}  // namespace MELDO_GLOBAL::app
