#include <gtest/gtest.h>
#include <png.h>

#include <cmath>
#include <cstring>
#include <filesystem>

#include "fluids/emission/object_particle_grid_emitter.h"
#include "fluids/emission/object_particle_mesh_emitter.h"
#include "fluids/emission/sphere_volume.h"
#include "fluids/mesh/mesh_rig.h"
#include "fluids/volume/multi_volume.h"
#include "grids/grid_memory.h"
#include "host/shapes.h"
#include "threads.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

/// A mesh in a scene that an emitter makes passive particles on, run by whole frames.
struct MeshSource {
  host::Document document;
  host::BaseNode* server;
  host::PolygonObject* object;
  host::BaseNode *meshNode, *groupNode, *settingsNode, *emitterNode;
  std::unique_ptr<SulvaScene> scene;

  explicit MeshSource(host::Geometry geometry = host::MakeBox({}), i32 amount = 1000) {
    server = &Make("server", nullptr);
    server->Set(1002, 0.05);
    server->Set(1003, i32{1});
    server->Set(1005, i32{0});
    object = &document.Create<host::PolygonObject>(host::kMeshObject, "object", nullptr);
    object->SetGeometry(std::move(geometry));
    meshNode = &Make("mesh", server);
    meshNode->Set(Mesh::kObjectRow, host::Link{object->Id()});
    groupNode = &Make("particlegroup", server);
    settingsNode = &Make("particlemesh_emission_setting", server);
    settingsNode->Set(ParticleEmissionSettings::kAmountRow, amount);
    emitterNode = &Make("particlemeshemitter", server);
    emitterNode->Set(ParticleEmitter::kGroupRow, host::Link{groupNode->Id()});
    emitterNode->Set(ParticleEmitter::kKindRow, i32{kPassive});
    emitterNode->Set(ObjectParticleMeshEmitter::kSourceRow, host::Link{meshNode->Id()});
    emitterNode->Set(1004, host::Link{settingsNode->Id()});
    emitterNode->Set(1022, 0.0);
  }
  host::BaseNode& Make(const char* kind, host::BaseNode* parent) {
    return CreateNode(document, *FindKind(kind), kind, parent);
  }
  void Frame(i32 frame) {
    if (!scene) scene = CreateScene(*server);
    document.SetFrame(frame);
    scene->Execute(nullptr, false);
  }
  template <class T>
  T& Object(const host::BaseNode& node) const {
    return *dynamic_cast<T*>(scene->FindObject(&node, kListAll));
  }
  ParticleStore& Store(i32 kind = kPassive) const {
    return Object<ParticleGroup>(*groupNode).Store(kind);
  }
  const char* WhyIdle() const { return Object<iBase>(*emitterNode).mInactiveReason; }
};

TEST(ParticleEmitters, TellOfSourcesWithinSolids) {
  const Threads one(1);
  MeshSource source(host::MakeBox({.size = {30, 30, 30}}));
  auto& block = source.document.Create<host::PolygonObject>(host::kMeshObject, "block", nullptr);
  block.SetGeometry(host::MakeBox({.size = {60, 60, 60}}));
  host::BaseNode& mesh = source.Make("mesh", source.server);
  mesh.Set(Mesh::kObjectRow, host::Link{block.Id()});
  host::BaseNode& solid = source.Make("volume", source.server);
  solid.Set(VolumeMesh::kMeshRow, host::Link{mesh.Id()});
  solid.AddTag(host::kObstacleTag);
  const auto told = [&](i32 frame) {
    source.Frame(frame);
    return source.Object<iBase>(*source.emitterNode).TakeWarnings().size();
  };
  block.SetPlacement({30, 0, 0}, {}, {1, 1, 1});
  EXPECT_EQ(told(0) + told(1), 0u) << "half of them have room";
  block.SetPlacement({}, {}, {1, 1, 1});
  EXPECT_EQ(told(2), 1u);
  EXPECT_EQ(told(3), 0u) << "once";
}

TEST(ParticleRates, AreTheSameHoweverASecondIsCut) {
  const Threads one(1);
  for (const i32 fps : {24, 25, 30})
    for (i32 extra = 0; extra < 4; ++extra)
      for (const i32 amount : {7, 1000}) {
        MeshSource source(host::MakeBox({}), amount);
        source.document.fps = fps;
        source.server->Set(1005, extra);
        i32 before = 0;
        for (i32 frame = 0; frame <= 2 * fps; ++frame) {
          source.Frame(frame);
          const i32 count = source.Store().Count();
          const double due = double(amount) * frame / fps;
          ASSERT_LE(std::abs(count - due), 1) << fps << " " << extra << " " << frame;
          before = count;
        }
        EXPECT_EQ(before, amount * 2) << fps << " " << extra;
      }
}

TEST(ParticleRates, FollowPerStepAndRateNodes) {
  MeshSource source(host::MakeBox({}), 5);
  source.settingsNode->Set(1000, i32{1});
  source.server->Set(1005, i32{2});
  source.Frame(0);
  source.Frame(1);
  EXPECT_EQ(source.Store().Count(), 3 * 5);
  MeshSource shared(host::MakeBox({}), 5);
  host::BaseNode& rate = shared.Make("rate", shared.server);
  rate.Set(EmissionRate::kWholeRow, i32{275});
  shared.settingsNode->Set(ParticleEmissionSettings::kRateRow, host::Link{rate.Id()});
  shared.Frame(0);
  shared.Frame(1);
  EXPECT_EQ(shared.Store().Count(), 11);
}

TEST(ParticleRates, GiveABurstOnce) {
  for (const i32 startFrame : {0, 3}) {
    MeshSource source(host::MakeBox({}), 500);
    source.settingsNode->Set(1000, i32{1});
    host::BaseNode& window = source.Make("duration", source.server);
    window.Set(1000, 0.04);
    window.Set(1001, startFrame * 0.04);
    source.settingsNode->Set(1002, host::Link{window.Id()});
    for (i32 frame = 0; frame < 8; ++frame) source.Frame(frame);
    EXPECT_EQ(source.Store().Count(), 500) << startFrame;
  }
}

/// Pearson's statistic of counts against expected ones.
double ChiSquare(const std::vector<double>& counts, const std::vector<double>& expected) {
  double sum = 0;
  for (std::size_t i = 0; i < counts.size(); ++i)
    sum += (counts[i] - expected[i]) * (counts[i] - expected[i]) / expected[i];
  return sum;
}
/// What it stays below with a chance of 0.9999, for so many degrees of freedom (Wilson, Hilferty).
double ChiLimit(double freedom) {
  const double a = 2.0 / (9.0 * freedom);
  return freedom * std::pow(1 - a + 3.719 * std::sqrt(a), 3);
}

TEST(ParticlesOnAMesh, AreEvenByAreaAndNeverRepeat) {
  // A plane of two quads, one 15 times as wide as the other.
  host::Geometry plane;
  plane.points = {{0, 0, 0}, {10, 0, 0}, {160, 0, 0}, {0, 0, 100}, {10, 0, 100}, {160, 0, 100}};
  plane.polygons = {{0, 3, 4, 1}, {1, 4, 5, 2}};
  MeshSource source(plane, 200000);
  source.server->Set(1005, i32{3});
  for (i32 frame = 0; frame <= 3; ++frame) source.Frame(frame);
  const auto positions = std::as_const(source).Store().Positions();
  ASSERT_EQ(positions.size(), 24000u);
  std::vector<double> counts(16 * 10);
  std::vector<std::array<double, 3>> sorted;
  for (const Vec3d& p : positions) {
    EXPECT_EQ(p.y, 0);
    counts[std::min(15, static_cast<i32>(p.x * 10)) * 10 +
           std::min(9, static_cast<i32>(p.z * 10))]++;
    sorted.push_back({p.x, p.y, p.z});
  }
  EXPECT_LT(ChiSquare(counts, std::vector<double>(160, 150.0)), ChiLimit(159));
  // Streams of steps, frames and shares have nothing in common.
  std::sort(sorted.begin(), sorted.end());
  EXPECT_EQ(std::adjacent_find(sorted.begin(), sorted.end()), sorted.end());
}

TEST(ParticlesOnAMesh, HaveWhatTheSwitchesSay) {
  MeshSource source(host::MakeBox({}), 2500);
  host::BaseNode& life = source.Make("property_scalar", source.server);
  life.Set(iProperty::kPropertyRow, i32{property_id::kAge});
  life.Set(iProperty::kValueRow, 40.0);
  host::BaseNode& speed = source.Make("property_vector", source.server);
  speed.Set(iProperty::kPropertyRow, i32{property_id::kVelocity});
  speed.Set(iProperty::kValueRow, Vec3d{1, 2, 3});
  source.emitterNode->Set(1005, host::InExcludeData{{{life.Id(), 0}, {speed.Id(), 0}}});
  source.emitterNode->Set(1013, i32{1});
  source.settingsNode->Set(1010, 0.5);
  for (i32 frame = 0; frame < 2; ++frame) source.Frame(frame);
  ASSERT_EQ(source.Store().Count(), 100);
  double least = 100, most = 0;
  for (i32 i = 0; i < 100; ++i) {
    const Particle particle = source.Store().At(i);
    const Vec3d p = particle.Position(), n = particle.GetVector(property_id::kNormal, {});
    // Of the box's side that the point lies on.
    EXPECT_NEAR(Dot(p, n), Largest(Max(p, -p)), 1e-12);
    EXPECT_EQ(particle.Velocity(), (Vec3d{1, 2, 3}));
    EXPECT_EQ(particle.GetVector(property_id::kOldPosition, {}), p);
    EXPECT_EQ(particle.GetAge(), particle.GetLifeSpan());
    EXPECT_EQ(particle.Flags(), kBornFlags | PF_KIND_PASSIVE);
    least = std::min(least, particle.GetAge());
    most = std::max(most, particle.GetAge());
  }
  EXPECT_GE(least, 20);
  EXPECT_LT(least, 23);
  EXPECT_LE(most, 40);
  EXPECT_GT(most, 37);
}

TEST(ParticlesOnAMesh, StandAtEveryVertexAndKeepTheirDistance) {
  MeshSource source(host::MakeBox({}), 1);
  source.emitterNode->Set(1024, i32{1});
  source.emitterNode->Set(1026, i32{1});
  source.emitterNode->Set(1022, 0.25);
  for (i32 frame = 0; frame < 2; ++frame) source.Frame(frame);
  const i32 vertices = source.Object<Mesh>(*source.meshNode).mMesh.GetVertexCount();
  EXPECT_EQ(source.Store().Count(), vertices);
  source.Frame(2);
  EXPECT_EQ(source.Store().Count(), vertices) << "each place is taken";
  EXPECT_EQ(source.Store().Positions()[3],
            source.Object<Mesh>(*source.meshNode).mMesh.GetVertices()[3]);
}

TEST(ParticlesOnAMesh, RepeatKeepsClearOfTheRoundsBefore) {
  MeshSource source(host::MakeBox({}), 25000);
  source.emitterNode->Set(1022, 1.0);
  for (i32 frame = 0; frame < 2; ++frame) source.Frame(frame);
  const i32 once = source.Store().Count();
  MeshSource again(host::MakeBox({}), 25000);
  again.emitterNode->Set(1022, 1.0);
  again.emitterNode->Set(common_row::kClassOption, i32{4});
  for (i32 frame = 0; frame < 2; ++frame) again.Frame(frame);
  EXPECT_EQ(once, 1000);
  EXPECT_GT(again.Store().Count(), once);
  EXPECT_LT(again.Store().Count(), 5 * once * 0.9) << "the later rounds find places taken";
}

TEST(ParticlesOnAMesh, FollowImages) {
  // The left half of the picture is black, its right half orange.
  const std::filesystem::path file = testing::TempDir() + "/half.png";
  const u8 pixels[] = {0, 0, 0, 0, 0, 0, 255, 128, 0, 255, 128, 0};
  png_image header{};
  header.version = PNG_IMAGE_VERSION;
  header.width = 4;
  header.height = 1;
  header.format = PNG_FORMAT_RGB;
  ASSERT_TRUE(png_image_write_to_file(&header, file.c_str(), 0, pixels, 0, nullptr));
  host::Geometry plane;
  plane.points = {{-50, 0, -50}, {50, 0, -50}, {50, 0, 50}, {-50, 0, 50}};
  plane.polygons = {{0, 3, 2, 1}};
  MeshSource source(plane, 25000);
  auto& image = source.document.Create<host::ImageObject>(host::kImageObject, "half", nullptr);
  image.SetTable(&host::ImageParameters());
  image.picture = host::LoadImage(file);
  image.Set(host::kImageColour, Vec3d{1, 1, 0.5});
  image.SetPlacement({0, 0, 0}, {90, 0, 0}, {1, 1, 1});
  source.emitterNode->Set(1016, host::Link{image.Id()});
  source.emitterNode->Set(1017, 0.5);
  source.emitterNode->Set(1015, host::Link{image.Id()});
  source.emitterNode->Set(1018, i32{1});
  for (i32 frame = 0; frame < 2; ++frame) source.Frame(frame);
  EXPECT_NEAR(source.Store().Count(), 500, 90);
  const double green = std::pow((128 / 255.0 + 0.055) / 1.055, 2.4);
  for (i32 i = 0; i < source.Store().Count(); ++i) {
    const Particle particle = source.Store().At(i);
    ASSERT_GE(particle.Position().x, -1e-9);
    const Vec3d colour = particle.GetVector(property_id::kColor, {});
    if (std::abs(particle.Position().x - 0.25) > 0.1) continue;  // off the seams
    EXPECT_NEAR(colour.x, 1, 1e-3);
    EXPECT_NEAR(colour.y, green, 5e-3);
    EXPECT_EQ(colour.z, 0);
  }
  EXPECT_THROW(host::LoadImage(testing::TempDir() + "/none.png"), host::ImageFileError);
}

TEST(ParticlesOfParticles, StandAtTheLivingOnesAndTakeWhatTheyHandOn) {
  MeshSource source(host::MakeBox({}), 1);
  host::BaseNode& old = source.Make("particlegroup", source.server);
  host::BaseNode& heat = source.Make("property_scalar", source.server);
  heat.Set(iProperty::kPropertyRow, i32{property_id::kTemperature});
  heat.Set(iProperty::kValueRow, 300.0);
  host::BaseNode& speed = source.Make("property_vector", source.server);
  speed.Set(iProperty::kPropertyRow, i32{property_id::kVelocity});
  source.emitterNode->Set(ObjectParticleMeshEmitter::kSourceRow, host::Link{old.Id()});
  source.emitterNode->Set(1026, i32{1});
  source.emitterNode->Set(1027, host::InExcludeData{{{heat.Id(), 0}, {speed.Id(), 0}}});
  source.Frame(0);
  ParticleStore& from = source.Object<ParticleGroup>(old).Store(kPassive);
  for (i32 i = 0; i < 4; ++i) {
    ParticleTemplate particle;
    particle.position = {double(i), 0, 0};
    particle.velocity = {0, double(i), 0};
    if (i != 2) particle.Set(property_id::kTemperature, 1000.0 + i);
    from.Create(particle);
  }
  from.Flags()[1] &= static_cast<u16>(~PF_ALIVE);
  source.Frame(1);
  ASSERT_EQ(source.Store().Count(), 3);
  const i32 rows[] = {0, 2, 3};
  for (i32 i = 0; i < 3; ++i) {
    const Particle particle = source.Store().At(i);
    EXPECT_EQ(particle.Position(), (Vec3d{double(rows[i]), 0, 0}));
    EXPECT_EQ(particle.Velocity(), (Vec3d{0, double(rows[i]), 0}));
    EXPECT_EQ(particle.GetScalar(property_id::kTemperature, 0),
              rows[i] == 2 ? 300 : 1000.0 + rows[i]);
  }
}

TEST(ParticlesOfParticles, HaveTheirNormalsAndCurvature) {
  MeshSource source(host::MakeBox({}), 1);
  host::BaseNode& old = source.Make("particlegroup", source.server);
  source.emitterNode->Set(ObjectParticleMeshEmitter::kSourceRow, host::Link{old.Id()});
  source.emitterNode->Set(1026, i32{1});
  source.emitterNode->Set(1013, i32{1});
  source.emitterNode->Set(1014, i32{1});
  source.emitterNode->Set(1021, 0.02);
  source.Frame(0);
  ParticleStore& from = source.Object<ParticleGroup>(old).Store(kPassive);
  for (i32 i = 0; i < 3; ++i) {
    ParticleTemplate particle;
    particle.position = {double(i), 0, 0};
    particle.Set(property_id::kNormal, Vec3d{0, 0, 1});
    particle.Set(property_id::kUv, Vec3d{0.25, 0.5 * i, 0});
    if (i > 0) particle.Set(property_id::kCurvature, 3.0 * i);
    from.Create(particle);
  }
  source.Frame(1);
  // Those that are bent by less than 2 are left out, and so is the one without a curvature.
  ASSERT_EQ(source.Store().Count(), 2);
  for (i32 i = 0; i < 2; ++i) {
    const Particle particle = source.Store().At(i);
    EXPECT_EQ(particle.GetVector(property_id::kNormal, {}), (Vec3d{0, 0, 1}));
    EXPECT_EQ(particle.GetVector(property_id::kUv, {}), (Vec3d{0.25, 0.5 * (i + 1), 0}));
  }
}

TEST(WhirlsOnAMesh, AreAlignedByTheMeshAndOthersAreNot) {
  MeshSource source(host::MakeBox({}), 2500);
  source.object->SetPlacement({300, 0, 0}, {}, {1, 1, 1});
  host::BaseNode& alignment = source.Make("alignment", source.server);
  source.settingsNode->Set(1005, host::Link{alignment.Id()});
  source.emitterNode->Set(ParticleEmitter::kKindRow, i32{kVortex});
  const Vec3d middle{3, 0, 0};
  const auto run = [&](i32 mode) -> ParticleStore& {
    alignment.Set(AlignmentVector3D::kModeRow, mode);
    source.scene.reset();
    for (i32 frame = 0; frame < 2; ++frame) source.Frame(frame);
    EXPECT_EQ(source.Store(kVortex).Count(), 100);
    return source.Store(kVortex);
  };
  ParticleStore& off = run(AlignmentVector3D::kNormal);
  for (i32 i = 0; i < off.Count(); ++i) {
    const Vec3d n = off.At(i).GetVector(property_id::kVorticity, {});
    const Vec3d p = off.Positions()[i] - middle;
    ASSERT_NEAR(Dot(p, n), Largest(Max(p, -p)), 1e-9) << "the normal of the side that it lies on";
  }
  ParticleStore& away = run(AlignmentVector3D::kRadial);
  for (i32 i = 0; i < away.Count(); ++i)
    EXPECT_VEC(away.At(i).GetVector(property_id::kVorticity, {}),
               Normalised(away.Positions()[i] - middle), 1e-6);
  // Whoever else asks gets the node's own centre.
  Vec3d out;
  source.Object<AlignmentVector3D>(alignment).GetDirection(out, {0, 2, 0}, 0);
  EXPECT_VEC(out, (Vec3d{0, 1, 0}), 1e-12);
}

TEST(ParticlesOnAMesh, AreTheSameForAnyNumberOfThreads) {
  std::vector<Vec3d> first;
  for (const i32 threads : {1, 2, 3}) {
    const Threads set(threads);
    MeshSource source(host::MakeBox({}), 50000);
    source.emitterNode->Set(1022, 0.4);
    for (i32 frame = 0; frame < 3; ++frame) source.Frame(frame);
    const auto positions = std::as_const(source).Store().Positions();
    if (threads == 1) first.assign(positions.begin(), positions.end());
    ASSERT_EQ(positions.size(), first.size());
    EXPECT_EQ(std::memcmp(positions.data(), first.data(), first.size() * sizeof(Vec3d)), 0);
  }
}

TEST(MeshEmittersThatMakeNothing, SayWhy) {
  host::Geometry flat;
  flat.points = {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}};
  flat.polygons = {{0, 1, 2, 2}};
  MeshSource source(flat);
  source.Frame(0);
  EXPECT_STREQ(source.WhyIdle(), "the triangles of its mesh have no area");
  MeshSource empty(host::Geometry{});
  empty.Frame(0);
  EXPECT_STREQ(empty.WhyIdle(), "the mesh of its source has no triangles");
  MeshSource none;
  none.emitterNode->Set(ObjectParticleMeshEmitter::kSourceRow, host::Link{});
  none.Frame(0);
  EXPECT_STREQ(none.WhyIdle(), "it has no source; name one under 'source'");
  // 2e9 a second, a thousand and one rounds a frame.
  MeshSource many(host::MakeBox({}), 2000000000);
  many.settingsNode->Set(1000, i32{1});
  many.emitterNode->Set(common_row::kClassOption, i32{1000});
  SetGridMemoryLimit(u64{1} << 30);
  for (i32 frame = 0; frame < 2; ++frame) many.Frame(frame);
  EXPECT_NEAR(RefusedParticles().count, 2.002e12, 1);
  SetGridMemoryLimit(0);
  EXPECT_STREQ(many.WhyIdle(), "there is no memory for its particles");
  EXPECT_EQ(many.Store().Count(), 0);
}

/// A ball that is filled with passive particles.
class FilledBall : public testing::Test {
 protected:
  FilledBall()
      : ball(s.AddOwn<SphereVolume>("volume", "ball")),
        group(s.Add<ParticleGroup>("particlegroup", "group")),
        settings(s.Add<ParticleEmissionSettings>("particlemesh_emission_setting", "settings")),
        emitter(s.Add<ObjectParticleGridEmitter>("particlegridemitter", "source")) {
    TestScene::Link(emitter, ParticleEmitter::kGroupRow, group);
    TestScene::Set(emitter, ParticleEmitter::kKindRow, i32{kPassive});
    TestScene::Link(emitter, 1003, settings);
    TestScene::Link(emitter, ObjectParticleGridEmitter::kVolumeRow, ball);
    TestScene::Set(emitter, 1015, -1000.0);
    ball.Make(kMiddle, kRadius, {20, 20, 20}, {});
  }
  void Run(i32 threads = 1) {
    s.SetUp();
    TestScene::Run(emitter, threads);
  }
  std::span<Vec3d> Positions() { return group.Store(kPassive).Positions(); }

  static constexpr Vec3d kMiddle{1.01, 0.97, 1.02};
  static constexpr double kRadius = 0.72;
  TestScene s;
  SphereVolume& ball;
  ParticleGroup& group;
  ParticleEmissionSettings& settings;
  ObjectParticleGridEmitter& emitter;
};

TEST_F(FilledBall, IsEvenAndStaysFull) {
  const double volume = 4.0 / 3 * 3.14159265 * std::pow(kRadius, 3);
  for (const i32 subdivision : {0, 1, 2}) {
    SCOPED_TRACE(subdivision);
    group.Reset();
    TestScene::Set(emitter, 1016, subdivision);
    Run();
    const i32 full = group.Count(kPassive);
    const double wanted = volume / 1e-3 * std::pow(8, subdivision);
    EXPECT_NEAR(full / wanted, 1, 0.03);
    for (const Vec3d& p : Positions()) ASSERT_LE(Length(p - kMiddle), kRadius + 0.01);
    Run();
    EXPECT_NEAR(group.Count(kPassive), full, 0.02 * full) << "a full volume takes hardly any more";
    if (subdivision == 0) continue;
    // Slices of equal volume through a ball, and octants, hold equal numbers.
    std::vector<double> octants(8);
    for (const Vec3d& p : Positions())
      ++octants[(p.x > kMiddle.x) + 2 * (p.y > kMiddle.y) + 4 * (p.z > kMiddle.z)];
    const double share = group.Count(kPassive) / 8.0;
    EXPECT_LT(ChiSquare(octants, std::vector<double>(8, share)), ChiLimit(7));
  }
}

TEST_F(FilledBall, IsFilledByTheStartFrameAndNotOnceMoreByAStepFromThere) {
  auto& window = s.Add<Duration>("duration", "window");
  TestScene::Link(settings, 1002, window);
  SceneTime& time = s.scene->mTime;
  time.elapsed = 0;
  time.stepDuration = 0.04;
  for (const double length : {0.001, 0.1}) {
    TestScene::Set(window, 1000, length);
    for (const i32 frame : {0, 1}) {
      time.frameIndex = frame;
      group.Reset();
      Run();
      EXPECT_EQ(group.Count(kPassive) > 0, frame == 0 || length > 0.04) << length << " " << frame;
    }
  }
}

TEST_F(FilledBall, TopsUpWhereParticlesHaveGone) {
  TestScene::Set(settings, 1006, 0.0);
  Run();
  const i32 full = group.Count(kPassive);
  ParticleStore& store = group.Store(kPassive);
  i32 gone = 0;
  for (i32 i = 0; i < store.Count(); ++i)
    if (store.Positions()[i].x > kMiddle.x) {
      store.Flags()[i] &= static_cast<u16>(~PF_ALIVE);
      ++gone;
    }
  group.CommitStep();
  group.MarkTreeStale(kPassive);
  ASSERT_EQ(group.Count(kPassive), full - gone);
  Run();
  EXPECT_EQ(group.Count(kPassive), full);
  for (i32 i = full - gone; i < full; ++i) EXPECT_GT(Positions()[i].x, kMiddle.x - 1e-9);
}

TEST_F(FilledBall, KeepsToItsLimitsAndIsTheSameForAnyNumberOfThreads) {
  TestScene::Set(emitter, 1013, 0.5);
  TestScene::Set(emitter, 1014, -0.25);
  std::vector<Vec3d> first;
  for (const i32 threads : {1, 2, 3}) {
    group.Reset();
    Run(threads);
    ASSERT_GT(group.Count(kPassive), 100);
    for (const Vec3d& p : Positions()) {
      const double d = Length(p - kMiddle) - kRadius;
      EXPECT_GT(d, -0.5 * kRadius - 0.01);
      EXPECT_LT(d, -0.25 * kRadius + 0.01);
    }
    if (threads == 1) first.assign(Positions().begin(), Positions().end());
    ASSERT_EQ(Positions().size(), first.size());
    EXPECT_EQ(std::memcmp(Positions().data(), first.data(), first.size() * sizeof(Vec3d)), 0);
  }
}

/// A ball and another one as a group of volumes.
class Pair : public MultiVolume {
 public:
  using MultiVolume::MultiVolume;
  bool ReadParameters() override { return true; }
  bool ResolveLinks() override { return true; }
  bool AfterLinks() override { return true; }
  void CheckDirty() override {}
  bool IsDirty() const override { return false; }
  void CollectMembers(std::vector<VolumeBase*>& out) override { out = members; }
  std::vector<VolumeBase*> members;
};

TEST_F(FilledBall, FillsWhatTwoVolumesShareOnce) {
  auto& other = s.AddOwn<SphereVolume>("volume", "other");
  const Vec3d middle = kMiddle + Vec3d{0.4, 0, 0};
  other.Make(middle, kRadius, {24, 20, 20}, {});
  auto& pair = s.AddOwn<Pair>("volume_multi", "pair");
  pair.members = {&ball, &other};
  TestScene::Link(emitter, ObjectParticleGridEmitter::kVolumeRow, pair);
  TestScene::Set(settings, 1006, 0.0);
  Run();
  const i32 full = group.Count(kPassive);
  i32 wanted = 0;
  ForEachCell({{0, 0, 0}, {60, 60, 60}}, [&](i32 x, i32 y, i32 z) {
    const Vec3d p = (ToReal({x, y, z}) + Vec3d{0.5, 0.5, 0.5}) * 0.05;
    wanted += Length(p - kMiddle) < kRadius || Length(p - middle) < kRadius;
  });
  EXPECT_NEAR(full, wanted, 0.01 * wanted);
  Run();
  EXPECT_EQ(group.Count(kPassive), full);
  // What is gone from either comes back, and no more.
  ParticleStore& store = group.Store(kPassive);
  for (i32 i = 0; i < store.Count(); i += 3) store.Flags()[i] &= static_cast<u16>(~PF_ALIVE);
  group.CommitStep();
  group.MarkTreeStale(kPassive);
  Run();
  EXPECT_EQ(group.Count(kPassive), full);
}

TEST_F(FilledBall, AsksForRoomForWhatItsLimitsLeave) {
  TestScene::Set(emitter, 1016, i32{7});
  TestScene::Set(emitter, 1013, 0.1);
  SetGridMemoryLimit(u64{1} << 30);
  Run();
  const double asked = RefusedParticles().count;
  SetGridMemoryLimit(0);
  // A shell of a tenth, and of a cell more.
  const double core = std::pow(0.9 - 0.1 / kRadius, 3);
  EXPECT_NEAR(asked / (1563 * std::pow(128, 3) * (1 - core)), 1, 0.1);
}

TEST_F(FilledBall, RefusesWhatMemoryDoesNotHold) {
  TestScene::Set(emitter, 1016, i32{8});
  SetGridMemoryLimit(u64{1} << 30);
  Run();
  // Some 1560 cells of 256^3 places each.
  EXPECT_NEAR(RefusedParticles().count, 1563 * std::pow(256, 3), 1e9);
  SetGridMemoryLimit(0);
  EXPECT_EQ(group.Count(kPassive), 0);
  EXPECT_STREQ(emitter.mInactiveReason, "there is no memory for its particles");
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
