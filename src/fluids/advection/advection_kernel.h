// Semi-Lagrangian advection of grids.
#pragma once
#include <array>
#include <span>

#include "fluids/advection/sample_points.h"
#include "fluids/fields/trace_path.h"
#include "fluids/flow/scalar_walls.h"
#include "grids/for_each_cell.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Sums of what a MacCormack step adds to its prediction, over some samples, as thin as it gets.
struct Correction {
  double whole = 0;         ///< before it is limited
  double up = 0, down = 0;  ///< what the limits leave of it, above and below 0
  double lost = 0;          ///< what the prediction lacks of what there was
};

/// A field that is moved, and where to.
struct AdvectedField {
  const EGrid<double>* source = nullptr;
  EGrid<double>* destination = nullptr;  ///< of the source's kind
  Grid<double>* predicted = nullptr;     ///< of the source's shape, for the corrected scheme
  /// The coefficients of a B-spline through what the pass samples, which is the source, or in
  /// `Correct` what was predicted.
  const Grid<double>* spline = nullptr;
  double strength = 1.0;  ///< of the correction
  /// By layer of samples, where the limits may not change the total of the field; may be null.
  Correction* corrections = nullptr;
  double up = 1, down = 1;      ///< what `Balance` leaves of the correction, by its sign
  ScalarWalls::Values walls{};  ///< of a scalar
  bool isAmount = false;        ///< by the flags of its `NodeKind`
  bool keepsTotal = false;      ///< nothing enters or leaves it in the step
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
  Grid<double>* thinning = nullptr;  ///< where there is outflow: `Correct` leaves factors here

  /// Shape and kind of all fields.
  const EGrid<double>& Shape() const { return *fields.front().source; }
};

/// Outflow per volume and second of the inner cells, 1/s, through the open parts of their faces
/// (null: all are open). The outermost layer gets 0.
void FindOutflow(const StaggeredVelocity& velocity, const std::array<const EGrid<float>*, 3>& open,
                 i32 threads, Grid<double>& outflow);

/// Plain semi-Lagrangian step over the samples of `box` (inner samples only): every sample that
/// isn't solid takes the source's value at the start of its path, solid samples that of the source
/// at their place.
void AdvectBackward(const AdvectionData& data, const CellBox& box);

/// The first half of a MacCormack step: as `AdvectBackward` into `predicted`, which takes the
/// source's value at solid samples and everywhere else in its outermost layer.
void Predict(const AdvectionData& data, const CellBox& box);

/// The second half, once all of `predicted` is there: adds half of the error that a trace forward
/// again shows, times the strength, and limits the result to the eight source samples round the
/// start of the path. Where a solid bent the path the prediction stands. (Selle, Fedkiw, Kim, Liu,
/// Rossignac 2008, section 3.) What outflow thins waits for `Balance`.
void Correct(const AdvectionData& data, const CellBox& box);

/// How much of a field's correction may stay, from the sums over all of its layers. Limits cut off
/// more beside edges than they cut off peaks, so that they make a tenth of a field's total in a
/// second. The correction as a whole hardly changes it, or brings back what the prediction has lost
/// where the total is known and that isn't much: the side that is favoured is scaled down until the
/// sum is right, which leaves all values inside of the limits.
void FindBalance(AdvectedField& field, i32 layers);

/// Scales the correction by that, and thins the fields.
void Balance(const AdvectionData& data, const CellBox& box);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
