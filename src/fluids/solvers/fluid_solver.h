// The gas solver: owns a flow and drives what happens to it inside a step.
#pragma once
#include <vector>

#include "fluids/flow/grid_extrapolation.h"
#include "fluids/flow/ifluid_solver.h"
#include "fluids/flow/velocity_constrain.h"
#include "fluids/forces/velocity_grid_emitter.h"
#include "fluids/pressure/grid_incompressibility.h"
#include "fluids/pressure/grid_viscosity.h"
#include "fluids/pressure/outer_level.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// What a gas node says of itself and of the parts of its solver, which know no node.
struct GasSettings {
  i32 paddingCells = 5;
  Vec3d boxSize{500, 500, 500};  ///< host units
  Vec3d boxOffset{};
  i32 wallLowX = 1, wallHighX = 1;  ///< 0 is open
  i32 wallLowY = 1, wallHighY = 1;
  i32 wallLowZ = 1, wallHighZ = 1;
  i32 containerSides = 0;  ///< 1: sides inside of the box are walls or open as those of the box
  i32 extrapolationRounds = 3;
  double viscosity = 0;  ///< dynamic, Pa s
  double solidBlend = 1.0;
  bool followObstacles = true;
  bool useBodyVelocities = false;
  double density = 1.23;  ///< kg/m^3
  i32 linearSolver = 2;
  i32 maxIterations = 200;
  double accuracy = 0.5;
  double minDiagonalRatio = 0.25;
  double modification = 0.97;
  i32 viscosityIterations = 100;
  double viscosityTolerance = 0.2;  ///< thousandths
  ScalarField* densityChannel = nullptr;
  ScalarField* viscosityChannel = nullptr;
  Duration* projectionDuration = nullptr;
  std::vector<Force*> forces;
};

/// Smoke and fire: a staggered velocity field in a box that follows the content.
class FluidSolver : public iFluidSolver, public GasSettings {
 public:
  FluidSolver(host::BaseNode* node, Scene* scene);

  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kForcesRow = 1008, kDensityChannelRow = 1000, kBoxSizeRow = 1010,
                       kBoxOffsetRow = 1028, kLinearSolverRow = 1020, kPaddingRow = 1009,
                       kSidesRow = 1310;
  /// Cells of padding inside of free sides: what moves a cell in a step stays in.
  static constexpr i32 kLeastPadding = 2;
  static constexpr i32 kDensityRow = 1001, kViscosityRow = 1019, kViscosityChannelRow = 1300,
                       kViscosityIterationsRow = 1301, kViscosityToleranceRow = 1302;
  static constexpr i32 kWallRows[] = {1011, 1012, 1013, 1014, 1015, 1016};
  /// Why it rests where nothing is in its box.
  static constexpr const char* kDryReason =
      "no emitter fills anything in its box; it begins at its position, its lowest corner, and its "
      "box_size is in host units";
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ClearLinks() override;
  void CheckDirty() override;
  void Reset() override;
  void Release(bool full) override;
  void UpdateRange() override;
  void ExpandBounds(Vec3d& min, Vec3d& max) override;
  bool ApplyBounds(const Vec3d& min, const Vec3d& max) override;
  void Prepare() override;
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override;
  void Persist(StateArchive& archive) override;
  /// The user's box and a cell around it.
  bool GetReach(Vec3d& low, Vec3d& high) const override;
  double GetMaxSpeedSq() const override { return mMaxSpeedSq; }
  /// Two velocities of three components, the scratch of forces and constraints (6), level set,
  /// divergence source and fractions (4), the linear system (13), a share for the encoding of
  /// exports and the grids of volumes (9), the surroundings of a container that follows (3), and
  /// the system of a viscous one.
  double MemoryPerCell() const override {
    return (6 + 6 + 4 + 13 + 9 + (containerSides == 0 ? 3 : 0) + ViscousMemory()) * sizeof(double);
  }

  using iFluidSolver::GetFlow;
  Flow& GetFlow() override { return mFlow; }
  /// The box of a recorded velocity.
  bool TakeCachedPlace(const GridLayout& layout, i32 kind) override;

  /// What went wrong in solves and wasn't taken yet, see `Grid_Incompressibility`.
  std::vector<std::string> TakeWarnings() override;

  /// The projection that the solver runs.
  virtual Grid_Incompressibility& Projection() { return mPressure; }
  /// By how much the cells below its surface are more than its matter fills, in full cells.
  virtual double SurfaceSurplus() const { return 0; }

  virtual bool ApplyGridForces();
  virtual bool SolvePressure();
  /// Lets viscosity act on the velocity; false where there is none.
  bool ApplyViscosity();
  /// Continues the velocity of what flows into solids, and beyond a liquid's surface.
  virtual void ContinueVelocity();
  bool IsViscous() const { return viscosity > 0 || viscosityChannel; }

  /// The user's box in simulation units, snapped inwards to whole cells; at least a cell wide.
  void GetUserBox(Vec3d& min, Vec3d& max) const;

  Flow mFlow;
  VelocityGridEmitter mForces;
  VelocityConstrain mConstrain;
  GridExtrapolation mExtrapolation;
  Grid_Incompressibility mPressure;
  Grid_Viscosity mViscosity;
  OuterLevel mOuter;
  double mMaxSpeedSq = 0.001;

 protected:
  /// Vectors, coefficients and volumes of a viscous system, numbers by cell.
  double ViscousMemory() const { return IsViscous() ? 32 : 0; }
  /// How far viscosity reaches in a step, squared, in cells: nu dt / h^2, of what is thick the
  /// mean.
  double ViscousReach() const { return mViscousReach; }
  /// Cells that what it carries needs before the sides of a container that follows it.
  struct Room {
    Vec3d low{}, high{};
  };
  virtual Room RoomAhead() const { return {}; }
  /// Beyond sides inside of the user's box more of the fluid goes on, not air without pressure.
  virtual bool HasSurroundings() const { return containerSides == 0; }

 private:
  /// The user's box in whole cells of the domain, snapped inwards.
  void UserBox(Vec3d& lo, Vec3d& hi) const;
  /// The sides of the container that lie inside of the user's box, where these end in the open.
  u8 FreeSides() const override;
  /// Tells the flow which of its sides are walls, and what is beyond the others.
  void PlaceSides();

  void FindViscousReach();

  double mViscousReach = 0;
  u8 mUserWalls = 0;  ///< bits of `WallBit`
  bool mHasStoredBox = false;
  GridLayout mStoredLayout;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
