// Channels joined to what goes into them.
#pragma once
#include "fluids/emission/emission_settings.h"
#include "fluids/flow/ifluid_solver.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A field as a link names it: a channel node, or a field of a solver.
struct ChannelTarget {
  ScalarField* scalar = nullptr;
  VectorField* vector = nullptr;
  iFluidSolver* solver = nullptr;

  enum SolverField : i32 { kPressure = 0, kVelocity = 2 };
  /// Takes a scalar channel, a solver or a vector channel; of a solver the field is still to be
  /// chosen.
  void Connect(std::span<const host::LinkTarget> targets);
  /// The field of a linked solver that is meant.
  void ChooseField(i32 solverField);
  bool IsEmpty() const { return !scalar && !vector; }
};

/// Joins a channel to the settings of an emission into it.
class ChannelPair : public iBase {
 public:
  using iBase::iBase;
  ChannelPair() = default;

  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kChannelRow = 1000, kSettingsRow = 1001;
  bool ResolveLinks() override;
  void ClearLinks() override;

  ChannelTarget mTarget;
  ScalarField* mScalar = nullptr;
  VectorField* mVectorChannel = nullptr;  ///< read by forces and operators
  GridEmissionSettings* mSettings = nullptr;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
