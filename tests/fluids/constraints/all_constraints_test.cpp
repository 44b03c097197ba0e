#include <gtest/gtest.h>

#include "fluids/constraints/constraint_rig.h"
#include "fluids/fields/plain_grid_channel.h"
#include "fluids/particles/particle_group.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

using Rig = ConstraintRig;

std::vector<const NodeKind*> ConstraintKinds() {
  std::vector<const NodeKind*> kinds;
  for (const NodeKind& kind : Catalogue())
    if (kind.make && (kind.categories & kCategoryConstraint)) kinds.push_back(&kind);
  return kinds;
}

TEST(AllConstraints, LetEverythingPassWithoutWhatTheyMeasure) {
  Rig rig;
  for (const NodeKind* kind : ConstraintKinds()) {
    const bool hasLink = std::any_of(kind->rows().begin(), kind->rows().end(),
                                     [](const host::ParameterRow& row) { return row.required; });
    if (!hasLink) continue;
    Constraint& c = rig.Add<Constraint>(std::string(kind->type).c_str(), "alone");
    rig.Begin();
    Rig::Opened(c);
    ParticleColumns particles;
    particles.SetCount(1);
    EXPECT_EQ(Rig::At(c, {0.3, 0.2, 0.1}), 1) << kind->type;
    EXPECT_EQ(Rig::OfParticle(c, particles, 0), 1) << kind->type;
    EXPECT_NE(c.mInactiveReason, nullptr) << kind->type;
  }
}

/// Constraints that each measure something, of particles too.
struct Working : Rig {
  PlainField& smoke = Add<PlainField>("channel_scalar", "smoke");
  VectorField& wind = Add<VectorField>("channel_vector", "wind");
  ParticleGroup& group = Add<ParticleGroup>("particlegroup", "water");
  iBase& age = Add<iBase>("property_scalar", "age");
  host::SplineObject& line =
      document.Create<host::SplineObject>(host::kSplineObject, "line", nullptr);
  std::vector<Constraint*> all;

  Working() {
    line.points = {{0, 0, 0}, {50, 80, 20}};
    const auto add = [&](const char* type, host::NodeId link) {
      Constraint& c = Add<Constraint>(type, type);
      if (link) c.Node()->Set(1000, host::Link{link});
      all.push_back(&c);
    };
    add("constraint_gridvalue", smoke.Node()->Id());
    add("constraint_gridaverage", smoke.Node()->Id());
    add("constraint_strain", wind.Node()->Id());
    add("constraint_rotation", wind.Node()->Id());
    add("constraint_particledistance", group.Node()->Id());
    add("constraint_particlecount", group.Node()->Id());
    add("constraint_particle_property", age.Node()->Id());
    add("constraint_particle_collision", 0);
    add("constraint_voxeldistance", line.Id());
    add("constraint_noise", 0);
    add("constraint_quadratic", 0);
    add("constraint_gradient", 0);
    Set(*all.back(), 1000, host::Gradient{{{0, {1, 1, 1}}, {1, {0, 0, 0}}}});
    Begin();
    for (iBase* field : {static_cast<iBase*>(&smoke), static_cast<iBase*>(&wind)})
      EXPECT_TRUE(field->ApplyBounds({0, 0, 0}, {1, 1, 1}));
    Fill(*smoke.mGrid, [](const Vec3d& p) { return p.x * p.y; });
    for (i32 a = 0; a < 3; ++a)
      Fill(*wind.mGrids[a], [&](const Vec3d& p) { return p[a] * p[(a + 1) % 3]; });
    ForEachPoint(150, 0, 1, [&](const Vec3d& p) {
      ParticleTemplate particle;
      particle.flags |= PF_KIND_LIQUID;
      if (p.x < 0.3) particle.flags |= PF_COLLIDED;
      particle.position = p;
      group.Store(kLiquid).Create(particle);
    });
    scene->SetStage(kOperators);
    for (Constraint* c : all) Opened(*c);
  }
};

TEST(AllConstraints, RowsGiveTheBitsOfPoints) {
  Working rig;
  const ParticleStore& store = rig.group.Store(kLiquid);
  const std::span<const Vec3d> positions = store.Positions();
  for (Constraint* c : rig.all) {
    EXPECT_TRUE(c->Has(FLAG_ACTIVE)) << c->mName;
    for (const bool areParticles : {false, true}) {
      std::vector<double> weights, wanted;
      for (i32 i = 0; i < store.Count(); ++i) {
        weights.push_back(i % 7 == 0 ? 0.0 : 0.5 + i);
        ConstraintUse use;
        if (areParticles) use.particles = &store, use.particle = i;
        double w = weights.back();
        if (w != 0) c->Test(positions[static_cast<std::size_t>(i)], w, use);
        wanted.push_back(w);
      }
      const ConstraintRow row{positions, weights, areParticles ? &store : nullptr, 0};
      c->TestRow(row, {});
      EXPECT_EQ(weights, wanted) << c->mName;
    }
  }
}

/// Counts how often it is opened.
class Doorman : public MeasuredConstraint<Doorman> {
 public:
  using MeasuredConstraint::MeasuredConstraint;
  double Measure(const Vec3d& p, const ConstraintUse&) const { return p.x; }
  bool Open() override { return ++opened < 4 || Deactivate("enough"); }
  i32 opened = 0;
};

TEST(AllConstraints, AreOpenedOncePerRunOfAStageForAllHolders) {
  Rig rig;
  Doorman& door = rig.AddOwn<Doorman>("duration", "door");
  const host::LinkTarget target{door.Node(), &door, 0};
  ConstraintList first, second;
  rig.Begin();
  first.Connect({&target, 1});
  second.Connect({&target, 1});
  const auto prepare = [&] {
    first.Prepare(nullptr);
    second.Prepare(nullptr);
  };
  prepare();
  prepare();
  EXPECT_EQ(door.opened, 1);
  rig.scene->SetStage(kEmitters);
  prepare();
  EXPECT_EQ(door.opened, 2) << "the same stage of the next substep";
  rig.SetUp();
  prepare();
  EXPECT_EQ(door.opened, 3) << "links were fetched anew";
  double w = 1;
  EXPECT_TRUE(first.Test({0.25, 0, 0}, w, nullptr, 0));
  EXPECT_EQ(w, 0.25);
  EXPECT_FALSE(first.Test({-1, 0, 0}, w, nullptr, 0));
  EXPECT_EQ(w, 0);
  rig.scene->SetStage(kOperators);
  prepare();
  w = 3;
  EXPECT_TRUE(first.Test({-1, 0, 0}, w, nullptr, 0));
  EXPECT_EQ(w, 3) << "what isn't there holds nothing back";
}

TEST(ConstraintList, AsksInRunsForThoseThatAreLeft) {
  Rig rig;
  Doorman& door = rig.AddOwn<Doorman>("duration", "door");
  const host::LinkTarget target{door.Node(), &door, 0};
  ConstraintList list;
  rig.Begin();
  for (const bool isEmpty : {true, false}) {
    if (!isEmpty) list.Connect({&target, 1});
    list.Prepare(nullptr);
    std::vector<std::pair<i32, double>> taken, wanted;
    const auto place = [](i32 i) { return Vec3d{i % 5 == 0 ? -1.0 : 0.5, 0, 0}; };
    list.ForEachWeighed(
        {3, 200, nullptr, 0}, place, [](i32 i) { return i % 3 == 0 ? 0.0 : double(i); },
        [&](i32 i, double w) {
          taken.push_back({i, w});
        });
    for (i32 i = 3; i < 200; ++i)
      if (i % 3 != 0 && (isEmpty || i % 5 != 0)) wanted.push_back({i, isEmpty ? i : 0.5 * i});
    EXPECT_EQ(taken, wanted);
  }
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
