// Fluid under bodies that touch others.
#include <gtest/gtest.h>

#include <cmath>

#include "free_body.h"
#include "projection_box.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;
using projection::Box;

namespace {

constexpr f32 kSeepCell = 0.1f;
constexpr double kWater = 1000;

/// The distance to a box, cells.
double BoxDistance(const Vec3d& p, const Vec3d& low, const Vec3d& high) {
  const Vec3d out = Max(low - p, p - high), beyond = Max(out, Vec3d{});
  return Length(beyond) + std::min(0.0, std::max({out.x, out.y, out.z}));
}

/// Boxes of the density of water, given in cells, in a closed box of 20 cells of still water, whose
/// sides stand at 1 and 19. Bodies as heavy as mountains feel its weight alone.
struct Boxes {
  struct Place {
    Vec3d low, high;
  };
  static constexpr i32 kCells = 20;

  std::vector<Place> places;
  std::vector<std::unique_ptr<projection::FormulaVolume>> volumes;
  std::vector<FreeBody> bodies;

  explicit Boxes(std::vector<Place> all) : places(std::move(all)), bodies(places.size()) {
    for (const auto& [low, high] : places)
      volumes.push_back(std::make_unique<projection::FormulaVolume>(
          projection::MakeLayout({kCells, kCells, kCells}, kSeepCell), [&](const Vec3d& p) {
            return BoxDistance(p / double{kSeepCell}, low, high) * double{kSeepCell};
          }));
  }
  Vec3d Size(std::size_t i) const { return (places[i].high - places[i].low) * double{kSeepCell}; }
  double Weight(std::size_t i) const { return Size(i).x * Size(i).y * Size(i).z * kWater; }
  /// Projects water that has begun to fall at `fall`.
  void Project(const Vec3d& fall, double heavy) {
    std::vector<VolumeBase*> obstacles;
    for (const auto& volume : volumes) obstacles.push_back(volume.get());
    Box box({kCells, kCells, kCells}, kSeepCell, kWallsAll, obstacles);
    box.projection.mDensity = kWater;
    box.projection.mLinearSolver = 2;
    box.projection.mMultigrid.mAccuracy.tolerance = 1e-11;
    for (i32 axis = 0; axis < 3; ++axis) box.velocity[axis]->Fill(fall[axis]);
    for (std::size_t i = 0; i < places.size(); ++i) {
      bodies[i].mass = Weight(i) * heavy;
      bodies[i].density = kWater * heavy;
      bodies[i].inertia = bodies[i].mass;
      bodies[i].linear = heavy == 1 ? fall : Vec3d{};
      box.projection.moving.push_back({volumes[i].get(),
                                       (places[i].low + places[i].high) * 0.5 * double{kSeepCell},
                                       bodies[i].linear,
                                       {},
                                       0,
                                       &bodies[i]});
    }
    box.Project();
    EXPECT_LT(box.projection.DivergenceMax(), 1e-6);
  }
};

}  // namespace

// Wherever a body lies, against the floor, in a corner, on lattice planes or between them, it gets
// the weight of what it displaces, and no twist.
TEST(Seepage, WhatLiesOnTheFloorFloatsUpAsItWouldElsewhere) {
  for (const Boxes::Place& place :
       {Boxes::Place{{7, 1, 6}, {12, 5, 12}}, Boxes::Place{{7.3, 1, 6.4}, {12.6, 5.2, 11.9}},
        Boxes::Place{{1, 1, 6}, {6, 5, 12}}, Boxes::Place{{1, 1, 1}, {6, 5, 7}}})
    for (const Vec3d& fall : {Vec3d{0, -0.4, 0}, Vec3d{0.3, -0.2, 0.1}}) {
      Boxes boxes(std::vector<Boxes::Place>{place});
      boxes.Project(fall, 1e9);
      const Vec3d weight = fall * -boxes.Weight(0);
      const FreeBody& body = boxes.bodies[0];
      EXPECT_LT(Length(body.impulse - weight), 0.01 * Length(weight))
          << place.low.x << " " << fall.x;
      EXPECT_LT(Length(body.turn), 0.01 * Length(weight)) << place.low.x;
    }
}

// Two that lie on each other get their own weights: the film between them presses on both alike.
TEST(Seepage, AFilmPressesOnBothSidesAlike) {
  const Vec3d fall{0, -0.4, 0};
  Boxes boxes(std::vector<Boxes::Place>{{{6, 1, 6}, {14, 5, 14}}, {{7, 5, 8}, {12, 9, 12}}});
  boxes.Project(fall, 1e9);
  for (std::size_t i = 0; i < 2; ++i) {
    const Vec3d weight = fall * -boxes.Weight(i);
    EXPECT_LT(Length(boxes.bodies[i].impulse - weight), 0.01 * Length(weight)) << i;
  }
}

// What is as heavy as the water lets it rest when both fall onto the floor.
TEST(Seepage, WhatIsAsHeavyAsTheWaterStaysWithIt) {
  const Vec3d fall{0, -0.4, 0};
  Boxes boxes(std::vector<Boxes::Place>{{{7.3, 1, 6.4}, {12.6, 5.2, 11.9}}});
  boxes.Project(fall, 1);
  EXPECT_LT(Length(boxes.bodies[0].impulse / boxes.bodies[0].mass + fall), 0.01 * Length(fall));
}
