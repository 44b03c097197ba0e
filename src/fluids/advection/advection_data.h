// What a pass over fields that move works on.
#pragma once
#include <span>

#include "fluids/advection/busy_blocks.h"
#include "fluids/advection/correction_balance.h"
#include "fluids/advection/sample_points.h"
#include "fluids/fields/trace_path.h"
#include "fluids/flow/scalar_walls.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A field that is moved, and where to.
struct AdvectedField {
  const EGrid<double>* source = nullptr;
  EGrid<double>* destination = nullptr;  ///< of the source's kind
  Grid<double>* predicted = nullptr;     ///< of the source's shape, for the corrected scheme
  /// The coefficients of a B-spline through what the pass samples, which is the source, or in
  /// `Correct` what was predicted.
  const Grid<double>* spline = nullptr;
  double strength = 1.0;  ///< of the correction
  /// Where the limits may not change the total of the field; may be null.
  CorrectionBalance* balance = nullptr;
  ScalarWalls::Values walls{};  ///< of a scalar
  bool isAmount = false;        ///< by the flags of its `NodeKind`
  bool isTotalKnown = false;    ///< behind the step it is what open cells hold, and `gain`
  double gain = 0;
};

/// What the workers see. All grids stand on the same layout. Fields of one kind can be moved
/// together: their samples lie at the same places, so that one path serves them all.
struct AdvectionData {
  StaggeredVelocity velocity;
  std::span<const AdvectedField> fields;  ///< one or more, of one kind
  const GridBoundary* boundary = nullptr;
  const Grid<u8>* solidCells = nullptr;  ///< flags of `SolidCells`; null asks the boundary
  /// Faces that thin walls close, which paths and samples don't cross; may be null.
  const ThinFaces* thin = nullptr;
  /// Open fractions of the fields' faces: a face is solid when none of it is open. Null goes by the
  /// boundary at the samples.
  const Grid<float>* open = nullptr;
  double step = 0;   ///< length of the time step, seconds
  i32 order = 0;     ///< of the path, see `TracePath`
  i32 sampling = 0;  ///< `AdvectionSampling`; other numbers write nothing
  /// `WallBits` of the sides at which paths end; beyond others lies what the outermost layer holds.
  u8 sides = kWallsAll;
  /// Outflow per volume and second of each cell, which thins the fields; they are centred then.
  /// Null: they keep their values.
  const Grid<double>* outflow = nullptr;
  Grid<double>* thinning = nullptr;  ///< where there is outflow: `Predict` leaves factors here
  /// For the corrected scheme, a number and a mark for each sample: `Predict` leaves there the
  /// lowest of the samples round the start of its path, and `CorrectedRow::Mark`s.
  Grid<i32>* starts = nullptr;
  Grid<u8>* marks = nullptr;
  /// Where the fields may change; elsewhere they hold nothing and go on with it. Null: everywhere.
  const BusyBlocks* busy = nullptr;

  /// Shape and kind of all fields.
  const EGrid<double>& Shape() const { return *fields.front().source; }
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
