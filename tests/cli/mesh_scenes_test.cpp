// What groups and mesh operators do to the small scenes that hold them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "fluids/fields/channel.h"
#include "fluids/volume/multi_volume.h"
#include "grids/sampling.h"
#include "nodes/catalogue.h"
#include "paths.h"
#include "scene/scene_file.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

struct SmallScene {
  explicit SmallScene(const std::string& name, i32 lastFrame = 1) {
    app::Diagnostics diagnostics;
    loaded = app::LoadScene(SourcePath("/tests/scenes/") + name + ".json", diagnostics);
    if (!loaded) throw std::runtime_error(testing::PrintToString(diagnostics.Lines()));
    scene = CreateScene(*loaded->server);
    for (i32 frame = 0; frame <= lastFrame; ++frame) {
      loaded->document->SetFrame(frame);
      EXPECT_TRUE(scene->Execute(&host::MainThread(), false));
    }
  }
  template <class T>
  T& Get(const std::string& name) const {
    return dynamic_cast<T&>(*scene->FindObject(loaded->document->FindByName(name), kListAll));
  }
  double SmokeAt(const Vec3d& p) const {
    const EGrid<double>* grid = Get<ScalarField>("smoke").GetGrid(0);
    return grid && grid->mLayout.Contains(p, false) ? SampleLinear(*grid, grid->ToSamples(p)) : 0;
  }

  std::optional<app::LoadedScene> loaded;
  std::unique_ptr<SulvaScene> scene;
};

TEST(MeshScenes, AGroupOfVolumesEmitsFromAllAndStandsInTheWayWithAll) {
  SmallScene s("volume_multi");
  for (const double x : {-0.5, 0.5}) {
    EXPECT_GT(s.SmokeAt({x, 0.4, 0}), 0.1) << x;
    EXPECT_TRUE(s.Get<MultiVolume>("shelves").IsInsideWorld({x, 1.2, 0})) << x;
  }
  EXPECT_LT(s.SmokeAt({0, 0.4, 0}), 0.05) << "between the balls";
  EXPECT_EQ(s.Get<MultiVolume>("shelves").GetMemberCount(), 2) << "one for each mesh of the group";
}

TEST(MeshScenes, AGroupOfMeshesIsASourceOfPoints) {
  SmallScene s("mesh_multi");
  EXPECT_GT(s.SmokeAt({-0.5, 0.6, 0.3}), 0.1) << "the ring that lies";
  EXPECT_GT(s.SmokeAt({0.5, 0.9, 0}), 0.1) << "the ring that stands";
  EXPECT_LT(s.SmokeAt({-0.5, 0.9, 0}), 0.05);
  EXPECT_LT(s.SmokeAt({0.5, 0.6, 0.3}), 0.05);
}

TEST(MeshScenes, SmoothingThinsTheSource) {
  SmallScene s("mop_smoothing");
  const double thin = s.Get<VolumeMesh>("ring volume").VoxelVolume();
  s.loaded->document->FindByName("smoother")->SetEnabled(false);
  for (const i32 frame : {2, 3}) {
    s.loaded->document->SetFrame(frame);
    EXPECT_TRUE(s.scene->Execute(&host::MainThread(), false));
  }
  const double whole = s.Get<VolumeMesh>("ring volume").VoxelVolume();
  // Twelve corners round the tube, 24 round the ring, in cells of 0.1.
  EXPECT_NEAR(whole, 3 * 0.25 * 0.25 * 2 * M_PI * 0.5, 0.1);
  EXPECT_LT(thin, 0.7 * whole);
  EXPECT_GT(thin, 0.02 * whole);
}

TEST(MeshScenes, CurvatureIsMeasuredThroughTheVolume) {
  SmallScene s("mop_curvature");
  const TriMeshSTL& mesh = s.Get<Mesh>("ball mesh").mMesh;
  const std::vector<double>& curvature = mesh.mColumns.curvature;
  ASSERT_EQ(curvature.size(), mesh.GetVertices().size());
  for (std::size_t i = 0; i < curvature.size(); ++i) {
    const double fromPole = 0.4 - std::abs(mesh.GetVertices()[i].y - 0.6);
    if (fromPole > 0.1) {
      EXPECT_NEAR(curvature[i], 2 / 0.4, 0.3) << i;
    }
  }
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
