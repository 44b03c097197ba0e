// What a surface round particles can be told.
#include "fluids/surfaces/surface_reconstructor.h"
#include "framework/node_kind.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& SurfaceReconstructor::Kind() {
  static const NodeKind kind = {
      .id = 1300032,
      .type = "surface_reconstruction",
      .label = "Surface Reconstructor",
      .className = "SurfaceReconstructor",
      .typeId = kTypeSurfaceReconstructor,
      .list = kListGeometry,
      .categories = kCategoryParticle,
      .flags = "SV",
      .stages = {kReconstruction},
      .priority = 6,
      .menu = {"Bodies"},
      .purpose = "finds the surface of what particles fill, for a mesher",
      .example =
          {{example::kBall},
           {R"({ "type": "particlegroup", "name": "water" })", example::kBallMesh,
            example::kBallVolume, R"({ "type": "particlemesh_emission_setting", "name": "full" })",
            R"({ "type": "particlegridemitter", "name": "fill", "parameters": { "group": "water", "volume": "ball volume", "settings": "full" } })",
            R"({ "type": "particle_advection", "name": "move", "parameters": { "group": "water", "motion": "ballistic" } })",
            R"({ "type": "surface_reconstruction", "name": "surface", "parameters": { "source": "water" } })",
            R"({ "type": "mesher", "name": "skin", "parameters": { "source": "surface" } })"}},
      .rows = Parameters,
      .make = MakeNode<SurfaceReconstructor>,
  };
  return kind;
}

namespace {

constexpr i32 kBlobs = SurfaceShape::kBlobs, kAveraged = SurfaceShape::kAveragedPosition;

}  // namespace

const ParameterTable& SurfaceReconstructor::Parameters() {
  static const ParameterTable table = {
      BoolRow(kHostRow, "host_particles", false,
              "takes the points of an object of the document, not a group's particles")
          .To(&SurfaceReconstructor::mUsesHost),
      LinkRow(kSourceRow, "source",
              "the particles: a group; with 'host_particles' an object, whose points count",
              {ParticleGroup::kNodeType, kPointsObject, kMeshObject})
          .To(&SurfaceReconstructor::mGroup)
          .To(&SurfaceReconstructor::mPointsObject)
          .To(&SurfaceReconstructor::mPolygonObject)
          .Required(),
      LongRow(kKindRow, "kind", kLiquid, "", "which particles of a group count")
          .Choices(ParticleKindChoices())
          .OnlyWith(kHostRow, {0})
          .To(&SurfaceReconstructor::mKind),
      LinkRow(1003, "kernel", "how the weight of a particle falls off; without one smoothly",
              {Kernel::kNodeType})
          .To(&SurfaceReconstructor::mKernel),
      RealRow(kShiftRow, "radius_shift", 0.0, "cells",
              "moves the surface outwards; less than 0, inwards")
          .To(&SurfaceReconstructor::mShift),
      LongRow(kModeRow, "method", kAveraged, "",
              "averaged: where the mean of the particles about a place is some way off, which "
              "gives smooth water; blobs: where their weights add up to enough")
          .Missing(kBlobs)
          .Choices({{kBlobs, "blobs"}, {kAveraged, "averaged"}})
          .OrNumbers()
          .To(&SurfaceReconstructor::mMode),
      LongRow(kLeastRow, "least_neighbours", 1, "",
              "with fewer particles in reach the nearest one alone makes the surface")
          .Range(0, 1000)
          .To(&SurfaceReconstructor::mLeastNeighbours),
      LongRow(1007, "most_neighbours", 100, "", "kept with the scene; all in reach count").Kept(),
      RealRow(kSearchRow, "search", 1.0, "none",
              "how far particles count, times 'radius': more is smoother")
          .Range(0.01, 100)
          .To(&SurfaceReconstructor::mSearch),
      RealRow(kRadiusRow, "radius", 1.25, "cells",
              "how far off the particles' mean the surface lies; with 'fit', how far they count")
          .Missing(3.0)
          .Range(0.01, 100)
          .To(&SurfaceReconstructor::mRadius),
      RealRow(kThresholdRow, "density_threshold", 0.0, "none",
              "below 1, particles whose 'density' is lower are left out, those above 1 never")
          .OnlyWith(kFilterRow, {1})
          .To(&SurfaceReconstructor::mThreshold),
      LinkRow(kBoundaryRow, "boundary", "a volume into which the surface doesn't go")
          .AcceptsAny({kListGeometry, kCategoryVolume})
          .To(&SurfaceReconstructor::mBoundary),
      BoolRow(kMassRow, "use_mass", true,
              "blobs weigh as the 'mass' of their particles over their 'kernel_sum'")
          .OnlyWith(kFitRow, {0})
          .To(&SurfaceReconstructor::mUsesMass),
      BoolRow(kFilterRow, "filter", false,
              "leaves out particles by their density, by 'limit' and by 'constraints'")
          .OnlyWith(kHostRow, {0})
          .To(&SurfaceReconstructor::mFilters),
      RealRow(1014, "filter_strength", 4.0, "none", "kept with the scene").Kept(),
      LongRow(1015, "filter_operation", 0, "", "kept with the scene").Kept(),
      RealRow(1016, "weight_scale", 1.0, "none", "kept with the scene").Kept(),
      RealRow(kResolutionRow, "resolution", 1.0, "none",
              "cells of the surface for one of the scene, along an axis")
          .Range(0.1, 16)
          .To(&SurfaceReconstructor::mResolution),
      RealRow(1018, "filter_radius", 4.0, "cells", "kept with the scene").Kept(),
      LinkRow(kLimitRow, "limit",
              "a volume or a field of distances: particles more than a cell inside are left out")
          .AcceptsAny({kListGeometry, kCategoryVolume})
          .AcceptsAny({kListChannels, kCategoryScalar})
          .OnlyWith(kFilterRow, {1})
          .To(&SurfaceReconstructor::mLimitVolume)
          .To(&SurfaceReconstructor::mLimitField),
      BoolRow(kCorrectRow, "correct", false,
              "draws the surface closer round particles that have few neighbours")
          .Missing(true)
          .OnlyWith(kModeRow, {kAveraged})
          .To(&SurfaceReconstructor::mCorrects),
      RealRow(1022, "correct_low", 0.0, "none", "how full a place is whose particles vanish")
          .OnlyWith(kCorrectRow, {1})
          .To(&SurfaceReconstructor::mCorrectLow),
      RealRow(1023, "correct_high", 1.05, "none", "from how full on nothing is drawn closer")
          .OnlyWith(kCorrectRow, {1})
          .To(&SurfaceReconstructor::mCorrectHigh),
      LongRow(kPositionRow, "position", kPositionItself, "",
              "where a particle counts; one without that place counts where it is")
          .Choices({{kPositionItself, "position"},
                    {kEllipsoidCentre, "ellipsoid_centre"},
                    {kDeformedPosition, "deformed"}})
          .To(&SurfaceReconstructor::mPosition),
      BoolRow(kFitRow, "fit", true,
              "the surface lies where that of the liquid does, however far particles count; "
              "otherwise at 'radius'")
          .Missing(false)
          .To(&SurfaceReconstructor::mFits),
      RealRow(kPerCellRow, "particles_per_cell", 8.0, "none",
              "how many fill a cell of the scene, of particles that are played one of the scene "
              "that recorded them")
          .Range(0.01, 1000)
          .OnlyWith(kFitRow, {1})
          .To(&SurfaceReconstructor::mPerCell),
      LongRow(
          kSmoothingRow, "smoothing", 2, "",
          "steps that take bumps off the surface; then each place of it moves to where it holds "
          "what it did, with 'fit' what its particles fill; at 0 small drops vanish")
          .Missing(0)
          .Range(0, 1000)
          .To(&SurfaceReconstructor::mSmoothing),
      RealRow(kEllipsoidRow, "ellipsoid_radius", 0.0, "cells",
              "above 0, particles are ellipsoids along the sheets and threads that others this far "
              "off make with them: flatter, thinner, and slower")
          .Range(0, 100)
          .To(&SurfaceReconstructor::mEllipsoidRadius),
  };
  return table;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
