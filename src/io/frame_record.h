// What is told of a simulated frame.
#pragma once
#include <array>
#include <optional>
#include <string>
#include <vector>

#include "fluids/fields/field_ledger.h"
#include "fluids/particles/particle_flags.h"
#include "fluids/pressure/grid_incompressibility.h"
#include "fluids/pressure/grid_viscosity.h"
#include "framework/pipeline.h"
#include "host/vector.h"

namespace MELDO_GLOBAL::app {

/// A channel at the end of a frame. Without a grid the dims are 0 and so are the values.
struct ChannelRecord {
  std::string name;
  VecInt3D dims{};
  Vec3d origin{};      ///< lower corner of the grid, simulation units
  f32 cellSize = 0;    ///< simulation units
  int components = 1;  ///< 1 or 3
  /// Per component, over all samples of the grid.
  Vec3d min{}, max{}, sum{};
  /// Of this frame: of scalars that hold an amount, and don't play from a cache.
  std::optional<MELDO_SULVA::FieldLedger> ledger;
};

/// A solver at the end of a frame. Without grids the dims are 0.
struct SolverRecord {
  std::string name;
  VecInt3D dims{};
  double maxSpeed = 0;       ///< largest component over open faces, simulation units per second
  double kineticEnergy = 0;  ///< joules; see `MeasureSolver`
  double divergenceMax = 0;  ///< 1/s
  std::vector<MELDO_SULVA::ProjectionReport> pressure;    ///< of this frame's substeps, in order
  std::vector<MELDO_SULVA::ViscosityReport> viscosity{};  ///< the same, where it is viscous
  std::optional<MELDO_SULVA::VolumeLedger> volume;        ///< of this frame; none from a cache
  std::optional<double> liquid;                           ///< its volume, cubed simulation units
};

/// The particles of a group at the end of a frame, of all kinds together but for the counts. A
/// group without particles tells zeros.
struct ParticlesRecord {
  std::string name;
  std::array<i64, MELDO_SULVA::kParticleKinds> counts{};  ///< by kind
  i64 born = 0, died = 0;                                 ///< in this frame
  Vec3d centroid{};                                       ///< simulation units
  Vec3d meanVelocity{};                                   ///< simulation units per second
  double kineticEnergy = 0;  ///< half the mean square of speed, per unit of mass
  Vec3d min{}, max{};        ///< box of the positions, simulation units
};

/// A mesh that the simulation makes, at the end of a frame. Simulation units.
struct MeshRecord {
  std::string name;
  i64 points = 0, polygons = 0;
  double area = 0;
  double volume = 0;  ///< that it encloses
};

/// A rigid body that moves or could, at the end of a frame. Simulation units.
struct BodyRecord {
  std::string name;                            ///< of the object that it moves
  double mass = 0;                             ///< kg; 0 where keys move it
  Vec3d position{};                            ///< of its centre of mass
  std::array<double, 4> rotation{0, 0, 0, 1};  ///< x y z w, of the object's axes
  Vec3d linearVelocity{}, angularVelocity{};   ///< per second
  Vec3d fluidForce{}, fluidTorque{};  ///< of the last step, N and N m, about the centre of mass
  i64 contacts = 0;                   ///< places at which it touches others
  bool isAsleep = false;
};

struct FrameRecord {
  i32 frame = 0;
  double elapsed = 0;         ///< simulated seconds
  std::vector<double> steps;  ///< seconds
  double wallSeconds = 0;
  u64 peakMemory = 0;  ///< of the process, bytes
  /// CFL number reached: the most cells that a flow could cross in a substep, by its speed when
  /// that began (the root of the summed squares of its axes' largest components).
  double cfl = 0;
  bool simulated = false;
  std::array<double, MELDO_SULVA::kStageCount> stageSeconds{};
  std::vector<ChannelRecord> channels;
  std::vector<SolverRecord> solvers;
  std::vector<ParticlesRecord> particles;
  std::vector<MeshRecord> meshes;
  std::vector<BodyRecord> bodies;
  std::vector<std::string> warnings;  ///< what began in this frame and most likely isn't meant

  /// Cells of the largest grid.
  i64 Cells() const;
  /// Particles of all groups.
  i64 Particles() const;
};

/// A clause that names what holds a value that is not finite, or an empty text. Fields beyond the
/// range of single precision count too: volume files couldn't hold them.
std::string FindNonFinite(const FrameRecord& record);

}  // namespace MELDO_GLOBAL::app
