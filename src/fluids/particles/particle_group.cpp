#include "fluids/particles/particle_group.h"

#include <algorithm>
#include <deque>

#include "framework/node_kind.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {

/// Counts the memory of a group with that of its node.
class GroupMemory : public ScenePart {
 public:
  explicit GroupMemory(const ParticleSet& particles) : mParticles(particles) {}
  double Memory() const override { return static_cast<double>(mParticles.Bytes()); }

 private:
  const ParticleSet& mParticles;
};

/// How a viewport draws a kind: ids of the rows, and the defaults that differ. 0: no such row.
struct DisplayRows {
  std::string_view kind;
  i32 draw, colour, channel, scale, size, shape, inFront, asLines, lines;
  Vec3d colourValue;
  i32 shapeValue;
};

/// Names of rows are views, so they stand in memory that lasts.
std::string_view Kept(std::string text) {
  static std::deque<std::string> names;
  return names.emplace_back(std::move(text));
}

void AddDisplayRows(ParameterTable& table, const DisplayRows& d) {
  const auto name = [&](const char* what) { return Kept(std::string(d.kind) + "_" + what); };
  const auto add = [&](ParameterRow row) { table.push_back(std::move(row.Kept())); };
  add(BoolRow(d.draw, name("draw"), true, "these particles are shown"));
  add(VectorRow(d.colour, name("color"), d.colourValue, "none", "what they look like"));
  if (d.channel)
    add(LinkRow(d.channel, name("color_by"), "a field or property that colours them instead"));
  add(RealRow(d.scale, name("point_scale"), 0.0, "none",
              "0 shows all alike, 1 each as large as its radius"));
  add(RealRow(d.size, name("point_size"), 20.0, "none",
              "how large each is shown, hundredths of a cell"));
  add(LongRow(d.shape, name("shape"), d.shapeValue, "", "0 for flat dots, 1 for lit balls"));
  add(BoolRow(d.inFront, name("depth_test"), true, "what stands before a point hides it"));
  if (d.asLines) {
    add(BoolRow(d.asLines, name("velocity_color"), false, "fast ones look brighter"));
    add(BoolRow(d.lines, name("own_color"), true,
                "each looks as its property says, where it has one"));
  }
}

}  // namespace

ParticleGroup::ParticleGroup(BaseNode* node, Scene* scene) : iBase(node, scene) {
  mParts.Add(std::make_unique<GroupMemory>(*this));
  if (node && scene) ParticleGroup::Reset();
}

const NodeKind& ParticleGroup::Kind() {
  static const NodeKind kind = {
      .id = kNodeType,
      .type = "particlegroup",
      .label = "Particle Group",
      .className = "ParticleGroup",
      .typeId = kTypeParticleGroup,
      .list = kListParticles,
      .flags = "R*",
      .menu = {"Particles"},
      .purpose =
          "holds particles of up to four kinds: what emitters make, and all else moves and "
          "changes",
      .example = {{example::kBall}, {R"({ "type": "particlegroup", "name": "sparks" })"}},
      .rows = Parameters,
      .make = MakeNode<ParticleGroup>,
  };
  return kind;
}

const ParameterTable& ParticleGroup::Parameters() {
  static const ParameterTable table = [] {
    ParameterTable rows = {
        BoolRow(8001, "draw", true, "a viewport shows any of these particles").Kept(),
        RealRow(1062, "value_low", 0.0, "none", "what color_by shows darkest").Kept(),
        RealRow(1063, "value_high", 0.0, "none", "what color_by shows brightest").Kept(),
    };
    const DisplayRows kinds[] = {
        {"passive", 1027, 1000, 1064, 1031, 1071, 1087, 1077, 1081, 1082, {0.54, 0.58, 0.47}, 0},
        {"vorticity", 1028, 1013, 1066, 1032, 1072, 1088, 1078, 1083, 1084, {0.95, 0.08, 0.07}, 1},
        {"liquid", 1029, 1004, 1065, 1033, 1073, 1089, 1079, 1085, 1086, {0.12, 0.18, 0.5}, 1},
        {"diffuse", 1030, 1017, 0, 1034, 1050, 1090, 1080, 0, 0, {0.95, 0.95, 0.95}, 0},
    };
    for (const DisplayRows& kind : kinds) AddDisplayRows(rows, kind);
    return rows;
  }();
  return table;
}

bool ParticleGroup::ResetsOnChange() const {
  const FrameClock& clock = mScene->mClock;
  if (clock.lastFrame > clock.startFrame) return true;
  if (clock.frame > clock.startFrame) return false;
  return mTime->elapsed == 0;
}

void ParticleGroup::Reset() {
  GridLayout unit;
  unit.Set({1, 1, 1}, {1, 1, 1}, 1, {});
  for (i32 kind = 0; kind < kParticleKinds; ++kind)
    if (!IsCached(kind)) Store(kind).Reset(mScene ? GetDomain() : unit);
  for (i32 kind = 0; kind < kParticleKinds; ++kind) MarkTreeStale(kind);
  if (mScene) MarkDirty(false);
}

void ParticleGroup::Release(bool full) {
  iBase::Release(full);
  for (i32 kind = 0; kind < kParticleKinds; ++kind) MarkTreeStale(kind);
  if (!full) return;
  for (ParticleStore& store : mStores) store.Reset(store.Layout());
  for (PointTree& tree : mTrees) tree.Clear();
}

void ParticleGroup::CheckDirty() {
  iBase::CheckDirty();
  if (mScene->mFlags & Scene::kTimeChanged) MarkDirty(false);
}

void ParticleGroup::ExpandBounds(Vec3d& min, Vec3d& max) {
  for (const ParticleStore& store : mStores) {
    min = Min(min, store.GetBounds().box.min);
    max = Max(max, store.GetBounds().box.max);
  }
}

void ParticleGroup::ExpandBoundsWithin(const Vec3d& low, const Vec3d& high, Vec3d& min,
                                       Vec3d& max) {
  const i32 threads = mScene ? mScene->mThreadCount : 1;
  for (const ParticleStore& store : mStores) {
    const Bounds box = store.BoundsWithin(low, high, threads).box;
    min = Min(min, box.min);
    max = Max(max, box.max);
  }
}

bool ParticleGroup::KeepsOrder(i32 kind) const {
  if (kind != kLiquid || !mScene) return false;
  // A sheet numbers the particles of the liquid by their rows.
  const auto& operators = mScene->List(kListOperators);
  return std::any_of(operators.begin(), operators.end(), [](const auto& entry) {
    return entry.second->Has(FLAG_ENABLED) && entry.second->GetTypeId() == kTypeParticleSheet;
  });
}

void ParticleGroup::CommitStep() {
  for (i32 kind = 0; kind < kParticleKinds; ++kind) {
    if (Store(kind).RemoveDead(KeepsOrder(kind)) > 0) MarkTreeStale(kind);
    Store(kind).EndBirths(mScene ? mScene->mThreadCount : 1);
  }
  UpdateRange();
}

void ParticleGroup::UpdateRange() { UpdateBounds(mScene ? mScene->mThreadCount : 1); }

void ParticleGroup::Persist(StateArchive& archive) {
  iBase::Persist(archive);
  ParticleSet::Persist(archive);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
