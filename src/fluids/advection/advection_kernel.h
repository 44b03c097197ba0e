// Semi-Lagrangian advection of grids.
#pragma once
#include <span>

#include "fluids/fields/trace_path.h"
#include "fluids/flow/grid_boundary.h"
#include "grids/for_each_cell.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// How advection samples its target between samples.
enum class AdvectionSampling : i32 { Linear = 0, BSpline = 1, Monotonic = 2 };

/// A field that is moved, and where to.
struct AdvectedField {
  const EGrid<double>* source = nullptr;
  EGrid<double>* destination = nullptr;  ///< of the source's kind
  Grid<double>* predicted = nullptr;     ///< of the source's shape, for the corrected scheme
  double strength = 1.0;                 ///< of the correction
};

/// What the workers see. All grids stand on the same layout. Fields of one kind can be moved
/// together: their samples lie at the same places, so that one path serves them all.
struct AdvectionData {
  StaggeredVelocity velocity;
  std::span<const AdvectedField> fields;  ///< one or more, of one kind
  const GridBoundary* boundary = nullptr;
  const Grid<u8>* solidCells = nullptr;  ///< flags of `SolidCells`; null asks the boundary
  /// Open fractions of the fields' faces: a face is solid when none of it is open. Null goes by the
  /// boundary at the samples.
  const Grid<float>* open = nullptr;
  double step = 0;   ///< length of the time step, seconds
  i32 order = 0;     ///< of the path, see `TracePath`
  i32 sampling = 0;  ///< `AdvectionSampling`; other numbers write nothing

  /// Shape and kind of all fields.
  const EGrid<double>& Shape() const { return *fields.front().source; }
};

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
/// Rossignac 2008, section 3.)
void Correct(const AdvectionData& data, const CellBox& box);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
