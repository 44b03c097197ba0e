// Semi-Lagrangian advection of grids.
#pragma once
#include <array>

#include "fluids/advection/advection_data.h"
#include "grids/for_each_cell.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Outflow per volume and second of the inner cells, 1/s, through the open parts of their faces
/// (null: all are open). The outermost layer gets 0.
void FindOutflow(const StaggeredVelocity& velocity, const std::array<const EGrid<float>*, 3>& open,
                 i32 threads, Grid<double>& outflow);

/// Plain semi-Lagrangian step over the samples of `box` (inner samples only): every sample that
/// isn't solid takes the source's value at the start of its path, solid samples that of the source
/// at their place.
void AdvectBackward(const AdvectionData& data, const CellBox& box);

/// The first half of a MacCormack step: as `AdvectBackward` into `predicted`, which takes the
/// source's value at solid samples and everywhere else in its outermost layer. Leaves `starts`,
/// `marks` and `thinning` for `Correct`.
void Predict(const AdvectionData& data, const CellBox& box);

/// The second half, once all of `predicted` is there: adds half of the error that a trace forward
/// again shows, times the strength, and limits the result to the eight source samples round the
/// start of the path, on both sides of a plane of samples that it lies on. Where a solid bent the
/// path the prediction stands. (Selle, Fedkiw, Kim, Liu, Rossignac 2008, section 3.) What outflow
/// thins waits for `Balance`.
void Correct(const AdvectionData& data, const CellBox& box);

/// Scales the correction of fields that have a `CorrectionBalance`, and thins all. Limits cut off
/// more beside edges than they cut off peaks, so that they make a tenth of a field's total in a
/// second; the correction as a whole hardly changes it.
void Balance(const AdvectionData& data, const CellBox& box);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
