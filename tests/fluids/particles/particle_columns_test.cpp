// Columns hold what a plain list of particles holds, whatever is born and dies.
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "cache/state_file.h"
#include "fluids/particles/particle_group.h"
#include "fluids/particles/particle_property.h"
#include "fluids/test_scene.h"
#include "grids/grid_memory.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

constexpr PropertyKey kOwnScalar{80, 7}, kOtherScalar{80, 9}, kOwnFlag{81, 7};

/// A particle as an object of its own.
struct PlainParticle {
  i32 id = -1;
  Vec3d position{};
  bool alive = true;
  std::map<int, double> scalars;  ///< by property and owner, as `Slot`
  std::optional<Vec3d> color;
  std::optional<bool> flag;
};

PlainParticle Plain(ParticleStore& store, i32 row) {
  const Particle p = store.At(row);
  PlainParticle plain{p.Id(), p.Position(), (p.Flags() & PF_ALIVE) != 0, {}, {}, {}};
  int slot = 0;
  for (const PropertyKey& key : {PropertyKey(property_id::kAge), kOwnScalar, kOtherScalar}) {
    const auto* column = store.Find<double>(key);
    if (column && column->Has(row)) plain.scalars[slot] = column->Get(row, 0);
    ++slot;
  }
  if (p.HasProperty(property_id::kColor)) plain.color = p.GetVector(property_id::kColor, {});
  if (p.HasProperty(kOwnFlag)) plain.flag = p.GetBool(kOwnFlag, false);
  return plain;
}

/// The told removal: the last entry takes the place of one that dies, and is looked at again.
void RemoveDeadOf(std::vector<PlainParticle>& list, bool keepOrder) {
  if (keepOrder) {
    std::erase_if(list, [](const PlainParticle& p) { return !p.alive; });
    return;
  }
  for (std::size_t i = 0; i < list.size();) {
    if (list[i].alive) {
      ++i;
      continue;
    }
    if (i + 1 < list.size()) list[i] = list.back();
    list.pop_back();
  }
}

void ExpectEqual(ParticleStore& store, const std::vector<PlainParticle>& list) {
  ASSERT_EQ(store.Count(), static_cast<i32>(list.size()));
  for (i32 row = 0; row < store.Count(); ++row) {
    const PlainParticle found = Plain(store, row), &wanted = list[row];
    ASSERT_EQ(found.id, wanted.id);
    ASSERT_EQ(found.position, wanted.position);
    ASSERT_EQ(found.scalars, wanted.scalars);
    ASSERT_EQ(found.color, wanted.color);
    ASSERT_EQ(found.flag, wanted.flag);
  }
}

GridLayout UnitLayout() {
  GridLayout layout;
  layout.Set({1, 1, 1}, {1, 1, 1}, 0.1f, {});
  return layout;
}

}  // namespace

TEST(ParticleColumns, HoldWhatAPlainListHolds) {
  std::mt19937 random(1);
  const auto chance = [&](double share) { return random() < share * 4294967296.0; };
  ParticleStore store;
  store.Reset(UnitLayout());
  std::vector<PlainParticle> list;
  i32 nextId = 0;
  i64 events = 0;
  ParticleBirths births;
  for (int round = 0; events < 1'000'000; ++round) {
    // Births come in shares, and stand in the order of the shares.
    std::vector<std::vector<PlainParticle>> made(kShares);
    const i32 born = static_cast<i32>(random() % 3000);
    for (i32 i = 0; i < born; ++i) {
      const i32 share = static_cast<i32>(random() % kShares);
      ParticleTemplate particle;
      PlainParticle plain;
      particle.position = plain.position = {double(round), double(i), double(random())};
      const auto give = [&](int slot, const PropertyKey& key) {
        plain.scalars[slot] = double(random());
        particle.Set(key, plain.scalars[slot], "own");
      };
      if (chance(0.8)) give(0, property_id::kAge);
      if (chance(0.3)) give(1, kOwnScalar);
      if (chance(0.3)) give(2, kOtherScalar);
      if (chance(0.2)) {
        plain.color = Vec3d{1, double(i), 2};
        particle.Set(property_id::kColor, *plain.color);
      }
      if (chance(0.2)) {
        plain.flag = chance(0.5);
        particle.Set(kOwnFlag, *plain.flag);
      }
      births.Of(share).Append(particle);
      made[share].push_back(plain);
    }
    store.Take(births);
    EXPECT_EQ(births.Count(), 0);
    for (std::vector<PlainParticle>& share : made)
      for (PlainParticle& plain : share) {
        plain.id = nextId++;
        list.push_back(plain);
      }
    for (i32 row = 0; row < store.Count(); ++row) {
      if (!chance(0.25)) continue;
      store.Flags()[row] &= static_cast<u16>(~PF_ALIVE);
      list[row].alive = false;
      ++events;
    }
    const bool keepOrder = round % 3 == 0;
    const i32 before = store.Count();
    const i32 removed = store.RemoveDead(keepOrder);
    RemoveDeadOf(list, keepOrder);
    EXPECT_EQ(removed, before - static_cast<i32>(list.size()));
    events += born;
    if (round % 40 == 0) ExpectEqual(store, list);
    if (HasFatalFailure()) return;
  }
  ExpectEqual(store, list);
  EXPECT_EQ(store.mBorn, nextId);
  EXPECT_EQ(store.mDied, nextId - store.Count());
}

TEST(Particle, ReadsAndChangesPropertiesByNumber) {
  using namespace property_id;
  ParticleStore store;
  store.Reset(UnitLayout());
  const Particle p = store.At(store.Create({}));
  EXPECT_EQ(p.Flags(), 0x1003);
  EXPECT_EQ(p.GetScalar(kMass, 1.0), 1.0);
  EXPECT_FALSE(p.SetVector(kOldPosition, {1, 2, 3}));
  EXPECT_FALSE(p.HasProperty(kOldPosition));
  EXPECT_TRUE(p.AddVector(kOldPosition, {1, 2, 3}));
  EXPECT_TRUE(p.SetVector(kVelocity, {4, 5, 6}) && p.AddVector(kPosition, {7, 8, 9}));
  EXPECT_EQ(p.Velocity(), (Vec3d{4, 5, 6}));
  EXPECT_EQ(p.Position(), (Vec3d{7, 8, 9}));
  EXPECT_FALSE(p.AddVector(24, {}) || p.AddBool(49, true) || p.RemoveProperty(kPosition));
  EXPECT_TRUE(p.AddBool(50, true) && p.HasProperty(50));
  // Two nodes with one number; without a node the first of them answers.
  EXPECT_TRUE(p.AddScalar(kOwnScalar, 1, "a") && p.AddScalar(kOtherScalar, 2, "b"));
  EXPECT_EQ(p.GetScalar(kOtherScalar, 0), 2);
  EXPECT_EQ(p.GetScalar(80, 0), 1);
  EXPECT_TRUE(p.RemoveProperty(kOwnScalar) && !p.HasProperty(kOwnScalar));
  p.AddScalar(kAge, 25);
  p.AddScalar(kLifeSpan, 100);
  EXPECT_EQ(p.GetNormalizedLife(), 0.75);
  EXPECT_EQ(p.GetFrame().v2, (Vec3d{0, 1, 0}));
}

TEST(Particle, FindsItsOwnPropertyOfANumberThatTwoNodesHave) {
  ParticleColumns particles;
  ParticleTemplate one, other;
  one.Set(kOwnScalar, 1.0);
  other.Set(kOtherScalar, 2.0);
  particles.Append(one);
  particles.Append(other);
  const Particle second = particles.At(1);
  EXPECT_TRUE(second.HasProperty(80));
  EXPECT_EQ(second.GetScalar(80, 7), 2);
  EXPECT_EQ(second.GetScalar(kOwnScalar, 7), 7);
  EXPECT_TRUE(second.SetScalar(80, 5));
  EXPECT_EQ(second.GetScalar(kOtherScalar, 7), 5);
  EXPECT_TRUE(second.RemoveProperty(80));
  EXPECT_FALSE(second.HasProperty(80));
  EXPECT_EQ(particles.At(0).GetScalar(80, 7), 1);
}

TEST(ParticleStore, GivesEachKindWhatItIsBornWith) {
  ParticleStore store;
  store.Reset(UnitLayout());
  ParticleTemplate particle;
  particle.flags |= PF_KIND_DIFFUSE | PF_BALLISTIC | PF_KIND_VORTICITY;
  particle.Set(property_id::kAge, 5.0);
  particle.Set(property_id::kMass, 7.0);
  const Particle p = store.At(store.Create(particle));
  EXPECT_EQ(p.GetAge(), 100);
  EXPECT_EQ(p.GetLifeSpan(), 100);
  EXPECT_EQ(p.GetScalar(property_id::kMass, 0), 1);
  EXPECT_TRUE(p.HasProperty(property_id::kVorticity));
}

TEST(ParticleStore, HandsOnLinksOfTheDead) {
  ParticleStore store;
  store.Reset(UnitLayout());
  for (int i = 0; i < 4; ++i) store.Create({});
  store.At(0).AddLink({2.0f, 1});
  store.At(0).AddLink({3.0f, 2});
  store.At(1).AddLink({5.0f, 3});
  store.At(3).AddLink({1.0f, 0});
  store.Flags()[0] &= static_cast<u16>(~PF_ALIVE);
  store.RemoveDead(false);
  store.IndexIds();
  EXPECT_EQ(store.RowOf(0), -1);
  EXPECT_EQ(store.LinksOf(store.RowOf(1)).front().weight, 7.0f);
  EXPECT_TRUE(store.LinksOf(store.RowOf(2)).empty());
  EXPECT_EQ(store.LinksOf(store.RowOf(3)).front().weight, 1.0f);
}

TEST(ParticleStore, BoundsHoldParticlesWithTheirRadii) {
  ParticleStore store;
  store.Reset(UnitLayout());
  ParticleTemplate particle;
  particle.position = {1, 2, 3};
  store.Create(particle);
  particle.position = {-1, 5, 3};
  particle.Set(property_id::kRadius, 0.25);
  store.Create(particle);
  store.UpdateBounds(2);
  const ParticleBounds& bounds = store.GetBounds();
  EXPECT_NEAR(bounds.box.min.x, -1 - 0.25 - 0.05, 1e-7);
  EXPECT_NEAR(bounds.box.max.x, 1 + 0.05 + 0.05, 1e-7);
  EXPECT_NEAR(bounds.maxRadius, 0.25, 1e-12);
  EXPECT_NEAR(bounds.maxRadiusCells, 2.5, 1e-6);
  EXPECT_EQ(bounds.minCell.x, -11 - 2 - 1);
  EXPECT_NEAR(store.BoundsWithin({0, 0, 0}, {9, 9, 9}, 1).box.min.x, 1 - 0.1, 1e-7);
}

TEST(ParticleGroup, RemovesTheDeadAndGoesOnFromAState) {
  TestScene scene(0.1);
  auto& group = scene.Add<ParticleGroup>("particlegroup", "sparks");
  ParticleTemplate particle;
  particle.Set(property_id::kAge, 5.0);
  for (int i = 0; i < 100; ++i) {
    particle.position = {i * 0.01, 0, 0};
    group.Store(kPassive).Create(particle);
  }
  group.BuildTree(kPassive, 1);
  EXPECT_EQ(group.CountNeighbours(kPassive, {0.5, 0, 0}, 0.015), 3);
  for (int i = 0; i < 100; i += 2) group.Store(kPassive).Flags()[i] = 0;
  group.CommitStep();
  EXPECT_EQ(group.Count(kPassive), 50);
  // What ages is newborn until something ages it.
  EXPECT_TRUE(group.Store(kPassive).Flags()[0] & PF_NEWBORN);
  group.Store(kPassive).At(0).RemoveProperty(property_id::kAge);
  group.CommitStep();
  EXPECT_FALSE(group.Store(kPassive).Flags()[0] & PF_NEWBORN);
  EXPECT_TRUE(group.Store(kPassive).Flags()[1] & PF_NEWBORN);
  group.BuildTree(kPassive, 1);
  EXPECT_EQ(group.CountNeighbours(kPassive, {0.5, 0, 0}, 0.015), 2);
  // A group of a liquid keeps nothing of the others.
  EXPECT_EQ(group.Tree(kLiquid), nullptr);
  EXPECT_TRUE(group.GetNeighbours(kLiquid, {}, 1).empty());

  HyperFile written;
  written.StartMemory(kCacheIdent);
  StateWriter save(written, 1);
  group.Persist(save);
  const std::string bytes = written.TakeBytes();
  group.Release(true);
  EXPECT_EQ(group.CountAll(), 0);
  HyperFile read;
  ASSERT_TRUE(read.OpenMemory(kCacheIdent, bytes));
  StateReader load(read, 1);
  group.Persist(load);
  ASSERT_TRUE(load.IsGood()) << load.Problem();
  EXPECT_EQ(group.Count(kPassive), 50);
  EXPECT_EQ(group.Store(kPassive).At(49).GetAge(), 5.0);
  // Ids go on behind those that were given.
  const i32 row = group.Store(kPassive).Create(particle);
  EXPECT_EQ(group.Store(kPassive).Ids()[row], 100);
}

namespace {
/// Stands for an operator that numbers particles of the liquid by their rows.
struct Sheet : iObject {
  using iObject::iObject;
  i32 GetTypeId() const override { return kTypeParticleSheet; }
};

/// The ids of ten particles when the third and the last have died.
std::vector<i32> IdsOfTheRest(ParticleGroup& group, i32 kind) {
  ParticleStore& store = group.Store(kind);
  store.Reset(store.Layout());
  for (int i = 0; i < 10; ++i) store.Create({});
  store.Flags()[2] = store.Flags()[9] = 0;
  group.CommitStep();
  return {store.Ids().begin(), store.Ids().end()};
}
}  // namespace

TEST(ParticleGroup, KeepsTheOrderOfALiquidUnderASheet) {
  TestScene scene(0.1);
  auto& group = scene.Add<ParticleGroup>("particlegroup", "water");
  const std::vector<i32> swapped = {0, 1, 8, 3, 4, 5, 6, 7}, kept = {0, 1, 3, 4, 5, 6, 7, 8};
  EXPECT_EQ(IdsOfTheRest(group, kLiquid), swapped);
  scene.AddOwn<Sheet>("grid_cooling", "sheet");
  EXPECT_EQ(IdsOfTheRest(group, kLiquid), kept);
  EXPECT_EQ(IdsOfTheRest(group, kPassive), swapped);
}

TEST(ParticleSet, RefusesWhatMemoryDoesNotHold) {
  ParticleSet set;
  const ParticleTemplate particle;
  SetGridMemoryLimit(GridMemory() + 100'000'000);
  EXPECT_TRUE(set.HasRoom(kPassive, 1e5, particle));
  EXPECT_EQ(RefusedParticles().count, 0);
  EXPECT_FALSE(set.HasRoom(kPassive, 1e12, particle));
  EXPECT_EQ(RefusedParticles().count, 1e12);
  // What it holds counts as long as it lives.
  const u64 before = GridMemory();
  {
    ParticleStore store;
    for (int i = 0; i < 1000; ++i) store.Create(particle);
    EXPECT_GE(GridMemory() - before, 54'000u);
  }
  EXPECT_EQ(GridMemory(), before);
  SetGridMemoryLimit(0);
  EXPECT_FALSE(set.HasRoom(kPassive, 3e9, particle));
}

TEST(ParticleProperty, GivesItsValueToATemplate) {
  TestScene scene(0.1);
  auto& radius = scene.Add<Property<double>>("property_scalar", "size");
  auto& wind = scene.Add<Property<Vec3d>>("property_vector", "speed");
  auto& own = scene.Add<Property<double>>("property_scalar", "own");
  TestScene::Set(radius, iProperty::kPropertyRow, i32{property_id::kRadius});
  TestScene::Set(radius, iProperty::kValueRow, 0.5);
  TestScene::Set(wind, iProperty::kPropertyRow, i32{property_id::kVelocity});
  TestScene::Set(own, iProperty::kPropertyRow, 75);
  scene.SetUp();
  ParticleTemplate particle;
  for (const iProperty* property : {static_cast<iProperty*>(&radius),
                                    static_cast<iProperty*>(&wind), static_cast<iProperty*>(&own)})
    property->AddTo(particle);
  ASSERT_NE(particle.FindScalar(property_id::kRadius), nullptr);
  EXPECT_NEAR(*particle.FindScalar(property_id::kRadius), 0.05, 1e-8);
  EXPECT_EQ(particle.velocity, (Vec3d{0, 1, 0}));
  EXPECT_NE(particle.FindScalar(own.Key()), nullptr);
  EXPECT_EQ(particle.FindScalar({75, own.Key().owner + 1}), nullptr);
  EXPECT_TRUE(radius.HasCategory(kBitProperty) && wind.HasCategory(kBitVector));
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
