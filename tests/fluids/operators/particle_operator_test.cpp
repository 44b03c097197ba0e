#include "fluids/operators/particle_operator.h"

#include "fluids/operators/grid_to_particles.h"
#include "fluids/operators/group_operator_rig.h"
#include "fluids/operators/particle_converter.h"
#include "fluids/operators/particle_forces.h"
#include "fluids/operators/pop_deform.h"
#include "fluids/operators/pop_flock.h"
#include "fluids/operators/pop_follow_spline.h"
#include "fluids/operators/pop_geometry.h"
#include "fluids/operators/pop_property.h"
#include "framework/rest.h"
#include "host/deformer.h"
#include "host/shapes.h"
#include "nodes/catalogue.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

/// One of each operator, ready to work on the passive particles of a group.
struct OperatorsRig : GroupRig {
  Duration& window = Add<Duration>("duration", "window");
  std::vector<ParticleOperator*> all;

  OperatorsRig() {
    for (i32 i = 0; i < 5; ++i) Put({0.1 * i, 0.5, 0});
    Property<Vec3d>& motion = Add<Property<Vec3d>>("property_vector", "motion");
    Set(motion, iProperty::kPropertyRow, i32{property_id::kVelocity});
    auto& shape = AddField();
    auto& forces = Make<ParticleForces>("particle_forces", 0);
    Links(forces, ParticleForces::kForcesRow, {&Add<iBase>("force_gravity", "pull")});
    auto& read = Make<GridToParticles>("particle_gridtoparticles", 0);
    Link(read, GridToParticles::kSourceRow, shape);
    Link(read, GridToParticles::kTargetRow, motion);
    auto& change = Make<POP_Property>("pop_property", POP_Property::kKindRow);
    Link(change, POP_Property::kTargetRow, motion);
    Make<POP_Flock>("pop_flock", POP_Flock::kKindRow);
    auto& way = document.Create<host::SplineObject>(host::kSplineObject, "way", nullptr);
    way.points = {{0, 0, 0}, {0, 100, 0}};
    auto& lead = Make<Pop_FollowSpline>("pop_followspline", Pop_FollowSpline::kKindRow);
    lead.Node()->Set(Pop_FollowSpline::kSplinesRow, host::InExcludeData{{{way.Id(), 0}}});
    auto& bend = document.Create<host::BaseNode>(host::kDeformerObject, "bend", nullptr);
    bend.SetTable(&host::DeformerParameters());
    auto& deform = Make<POP_Deform>("particle_deform", POP_Deform::kKindRow);
    deform.Node()->Set(POP_Deform::kDeformersRow, host::InExcludeData{{{bend.Id(), 0}}});
    auto& leaf = document.Create<host::PolygonObject>(host::kMeshObject, "leaf", nullptr);
    leaf.SetGeometry(host::MakeIcosphere(0, 1));
    auto& copies = Make<POP_Geometry>("pop_geometry", POP_Geometry::kKindRow);
    copies.Node()->Set(POP_Geometry::kObjectRow, host::Link{leaf.Id()});
    auto& seeds = document.Create<host::PointsObject>(host::kPointsObject, "seeds", nullptr);
    seeds.points = {{1, 2, 3}};
    auto& sow = Add<ParticleConverter>("particle_converter", "sow");
    sow.Node()->Set(ParticleConverter::kSourceRow, host::Link{seeds.Id()});
    Link(sow, ParticleConverter::kTargetRow, group);
    Set(sow, ParticleConverter::kRemoveRow, false);
    Set(sow, ParticleConverter::kOnceRow, true);
    all.push_back(&sow);
  }
  iBase& AddField() {
    auto& wind = Add<VectorField>("channel_vector", "wind");
    SetUp();
    EXPECT_TRUE(wind.ApplyBounds({0, 0, 0}, {1, 1, 1}));
    return wind;
  }
  template <class T>
  T& Make(const char* type, i32 kindRow) {
    T& made = Add<T>(type, type);
    Link(made, ParticleOperator::kGroupRow, group);
    if (kindRow)
      Set(made, kindRow, i32{kPassive});
    else
      Links(made, ParticleOperator::kGroupRow, {&group});
    all.push_back(&made);
    return made;
  }
  static bool Shows(const ParticleOperator& node) {
    return dynamic_cast<const POP_Deform*>(&node) || dynamic_cast<const POP_Geometry*>(&node);
  }
  /// Whether it works now; `why` else.
  bool Works(ParticleOperator& node, std::string_view why) {
    node.mInactiveReason = nullptr;
    node.Prepare();
    const bool works = node.Has(FLAG_ACTIVE);
    EXPECT_EQ(works ? "" : node.mInactiveReason, works ? "" : why) << node.mName;
    node.Finish();
    EXPECT_FALSE(node.Has(FLAG_ACTIVE)) << node.mName;
    return works;
  }
};

}  // namespace

TEST(ParticleOperator, EachWorksInsideOfItsWindowAlone) {
  OperatorsRig rig;
  TestScene::Set(rig.window, Duration::kStartRow, 1.0);
  TestScene::Set(rig.window, 1000, 0.5);
  for (ParticleOperator* node : rig.all) {
    const auto row = std::find_if(node->Rows()->begin(), node->Rows()->end(),
                                  [](const auto& r) { return r.name == "duration"; });
    ASSERT_NE(row, node->Rows()->end()) << node->mName;
    TestScene::Link(*node, row->id, rig.window);
  }
  rig.SetUp();
  for (ParticleOperator* node : rig.all) {
    for (const double time : {0.5, 1.25, 1.75}) {
      rig.scene->mTime.elapsed = time;
      EXPECT_EQ(rig.Works(*node, kClosedReason), time == 1.25) << node->mName << " at " << time;
    }
    EXPECT_EQ(node->mRuns, 0u) << "the pipeline counts runs, and nobody else: " << node->mName;
  }
}

TEST(ParticleOperator, ThoseThatShowWorkWithoutAStepAndOnWhatIsPlayed) {
  OperatorsRig rig;
  rig.SetUp();
  rig.group.SetCached(kPassive, 0.1);
  for (ParticleOperator* node : rig.all) {
    const bool isList = dynamic_cast<ParticleForces*>(node) || dynamic_cast<GridToParticles*>(node);
    EXPECT_EQ(rig.Works(*node, isList ? kNoParticlesReason : kPlayedParticlesReason),
              rig.Shows(*node))
        << node->mName;
  }
  rig.group.ClearCached(kPassive);
  rig.scene->mTime.stepDuration = 0;
  for (ParticleOperator* node : rig.all)
    EXPECT_EQ(rig.Works(*node, kNoStepReason), rig.Shows(*node)) << node->mName;
}
