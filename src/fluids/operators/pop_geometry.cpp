#include "fluids/operators/pop_geometry.h"

#include <limits>

#include "fluids/emission/stream_seeds.h"
#include "framework/node_kind.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& POP_Geometry::Kind() {
  static const NodeKind kind = {
      .id = kGeometryNode,
      .type = "pop_geometry",
      .label = "Particle Geometry",
      .className = "POP_Geometry",
      .typeId = 127,
      .list = kListOperators,
      .categories = kCategoryParticle,
      .flags = "VR",
      .stages = {kVisualPost},
      .priority = 20,
      .menu = {"Particles/Operators"},
      .purpose = "places a copy of an object at each particle, for pictures and files",
      .example =
          {{example::kBall, R"({ "name": "leaf", "type": "box", "size": [6, 1, 3] })"},
           {example::kBallMesh, R"({ "type": "particlegroup", "name": "sparks" })",
            R"({ "type": "particlemesh_emission_setting", "name": "spark rate" })",
            R"({ "type": "particlemeshemitter", "name": "born", "parameters": { "group": "sparks", "source": "ball mesh", "settings": "spark rate", "kind": "passive" } })",
            R"({ "type": "particle_advection", "name": "fall", "parameters": { "group": "sparks", "kind": "passive", "motion": "ballistic" } })",
            R"({ "type": "pop_geometry", "name": "leaves", "parameters": { "group": "sparks", "kind": "passive", "object": "leaf", "random_rotation": [360, 360, 360] } })"}},
      .rows = Parameters,
      .make = MakeNode<POP_Geometry>,
      .isPolygonObject = true,
  };
  return kind;
}

const ParameterTable& POP_Geometry::Parameters() {
  static const ParameterTable table = [] {
    using This = POP_Geometry;
    ParameterTable rows = {GroupRow("at whose particles copies stand"),
                           KindRow(kKindRow, kLiquid, "which particles of the group get a copy"),
                           DurationRow(kDurationRow, "shows copies only inside this time window")};
    const ParameterTable own = {
        LinkRow(kObjectRow, "object",
                "what is copied, in its own axes; where it stands itself doesn't count",
                {kMeshObject, kMesherNode})
            .To(&This::mObject)
            .Required(),
        LongRow(kSourceRow, "place", kFromPosition, "",
                "where a copy stands: at the particle, at the centre of its ellipsoid, or where "
                "deformers took it; particles without the latter two have theirs at themselves")
            .Choices({{kFromPosition, "position"},
                      {kFromEllipsoid, "ellipsoid_centre"},
                      {kFromDeformed, "deformed"}})
            .To(&This::mSource),
        VectorRow(kScaleRow, "scale", {1, 1, 1}, "none", "how large a copy is, axis by axis")
            .To(&This::mScale),
        BoolRow(kUniformRow, "uniform", true,
                "one draw of a particle counts for all axes, for its size and for its turn")
            .To(&This::mUniform),
        RealRow(kRandomXRow, "random_x", 0.0, "none",
                "how much smaller it may be along x, drawn once for the particle's life")
            .Range(0, 1)
            .To(&This::mRandomX),
        RealRow(kRandomYRow, "random_y", 0.0, "none", "how much smaller it may be along y")
            .Range(0, 1)
            .To(&This::mRandomY),
        RealRow(kRandomZRow, "random_z", 0.0, "none", "how much smaller it may be along z")
            .Range(0, 1)
            .To(&This::mRandomZ),
        VectorRow(kRotationRow, "rotation", {0, 0, 0}, "degrees", "how far a copy is turned")
            .To(&This::mRotation),
        VectorRow(kRandomRotationRow, "random_rotation", {0, 0, 0}, "degrees",
                  "how much less it may be turned about each axis, drawn once for the particle's "
                  "life")
            .To(&This::mRandomRotation),
        LinksRow(kScaledByRow, "scaled_by",
                 "constraints that make copies smaller instead of leaving them out")
            .AcceptsAny({kListAuxiliary, kCategoryConstraint})
            .To(&This::mScaledBy)};
    rows.insert(rows.end(), own.begin(), own.end());
    return rows;
  }();
  return table;
}

void POP_Geometry::Reset() {
  ParticleOperator::Reset();
  mScaledBy.Reset();
  mInstances.clear();
  Write({});
}

void POP_Geometry::Release(bool full) {
  mInstances.clear();
  Write({});
  ParticleOperator::Release(full);
}

void POP_Geometry::Persist(StateArchive& archive) {
  ParticleOperator::Persist(archive);
  if (mScene) mScaledBy.Persist(archive, *mScene);
}

bool POP_Geometry::PrepareOperator() {
  if (!FindParticles()) return false;
  if (!mObject || mObject->GetGeometry().polygons.empty())
    return Deactivate(mObject ? "its object has no polygons"
                              : "it has no object; name one under 'object'");
  ParticleStore& store = mGroup->Store(mKind);
  const Geometry& geometry = mObject->GetGeometry();
  const double count = store.Count();
  const double bytes =
      count * static_cast<double>(geometry.points.size() * 3 * sizeof(Vec3d) +
                                  geometry.polygons.size() * (sizeof(Polygon) + 8 * sizeof(Vec3d)));
  constexpr double kMost = std::numeric_limits<i32>::max();
  if (count * static_cast<double>(geometry.points.size()) > kMost || !HasMemoryFor(bytes))
    return Deactivate(
        "its copies don't fit into the memory; a simpler 'object' or fewer particles "
        "would");
  // Of the group: it is the same whichever node draws first.
  mSeed = NodeSeed(*mGroup);
  // Both first: a column that is made may move the others.
  store.Require<Vec3d>(property_id::kRandomScale);
  store.Require<Vec3d>(property_id::kRandomRotation);
  mScales = store.Find<Vec3d>(property_id::kRandomScale);
  mTurns = store.Find<Vec3d>(property_id::kRandomRotation);
  const i32 ids[] = {property_id::kPosition, property_id::kEllipsoidCentre, property_id::kDeformed};
  mPlaces = mSource == kFromPosition ? nullptr : store.Find<Vec3d>(ids[mSource]);
  mInstances.assign(static_cast<std::size_t>(store.Count()), {});
  mScaledBy.Prepare(this);
  return true;
}

Vec3d POP_Geometry::DrawInto(PropertyColumn<Vec3d>& column, i32 row, i32 id, u64 purpose) const {
  if (column.Has(row)) return column.Get(row, {});
  Vec3d draw;
  for (i32 a = 0; a < 3; ++a) draw[a] = ParticleDraw(mSeed, id, 3 * purpose + (mUniform ? 0 : a));
  column.Set(row, draw);
  return draw;
}

void POP_Geometry::Evaluate(const EvaluationThreadData& data) {
  ForEachChosen(
      data, [&](ParticleStore& store, i32 row, double, u32 worker) { Place(store, row, worker); });
}

void POP_Geometry::Place(ParticleStore& store, i32 row, u32 worker) {
  const i32 id = store.Ids()[row];
  const Vec3d position = std::as_const(store).Positions()[row];
  const Vec3d smaller = DrawInto(*mScales, row, id, 0) * Vec3d{mRandomX, mRandomY, mRandomZ};
  const Vec3d back = DrawInto(*mTurns, row, id, 1) * mRandomRotation;
  double left = 1;
  if (!mScaledBy.Test(position, left, this, worker, &store, row)) return;
  const Vec3d place = mPlaces ? mPlaces->Get(row, position) : position;
  mInstances[static_cast<std::size_t>(row)] = {
      Placement(place * GetDomain().simToWorld, mRotation - back,
                mScale * (Vec3d{1, 1, 1} - smaller) * left),
      id};
}

Geometry POP_Geometry::Copies() const {
  const Geometry& object = mObject->GetGeometry();
  const ParticleStore& store = mGroup->Store(mKind);
  const auto* colours = store.Find<Vec3d>(property_id::kColor);
  const Vec3d scale = GetDomain().simToWorld;
  const Matrix toOwn = Inverse(Node()->GlobalMatrix());
  Geometry all;
  for (std::size_t row = 0; row < mInstances.size(); ++row) {
    if (mInstances[row].id < 0) continue;
    const Matrix place = toOwn * mInstances[row].place;
    const auto first = static_cast<i32>(all.points.size());
    for (const Vec3d& p : object.points) all.points.push_back(place * p);
    for (const Polygon& p : object.polygons)
      all.polygons.push_back({p.a + first, p.b + first, p.c + first, p.d + first});
    all.uvs.insert(all.uvs.end(), object.uvs.begin(), object.uvs.end());
    // Normals go with the cofactors of what points go with.
    const Vec3d n1 = Cross(place.v2, place.v3), n2 = Cross(place.v3, place.v1),
                n3 = Cross(place.v1, place.v2);
    for (const std::array<Vec3d, 4>& corners : object.normals) {
      std::array<Vec3d, 4>& turned = all.normals.emplace_back();
      for (std::size_t c = 0; c < 4; ++c)
        turned[c] = Normalised(n1 * corners[c].x + n2 * corners[c].y + n3 * corners[c].z);
    }
    const auto particle = static_cast<i32>(row);
    all.velocities.resize(all.points.size(), toOwn.Rotate(store.Velocities()[particle] * scale));
    if (colours)
      all.colours.resize(all.points.size(), colours->Get(particle, {1, 1, 1}));
    else
      all.colours.insert(all.colours.end(), object.colours.begin(), object.colours.end());
  }
  return all;
}

void POP_Geometry::Write(Geometry geometry) {
  auto* output = dynamic_cast<PolygonObject*>(Node());
  if (!output || (geometry.polygons.empty() && output->GetGeometry().polygons.empty())) return;
  const auto bytesOf = [](const auto& list) { return list.size() * sizeof(list[0]); };
  mHeld.Set(bytesOf(geometry.points) + bytesOf(geometry.polygons) + bytesOf(geometry.uvs) +
            bytesOf(geometry.normals) + bytesOf(geometry.velocities) + bytesOf(geometry.colours));
  output->WriteOutput(std::move(geometry));
}

void POP_Geometry::FinishOperator() {
  mScaledBy.Finish(this);
  Write(Copies());
}

void POP_Geometry::Finish() {
  if (!Has(FLAG_ACTIVE)) {
    mInstances.clear();
    Write({});
  }
  ParticleOperator::Finish();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
