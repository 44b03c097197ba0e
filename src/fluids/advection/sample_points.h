// Samples of moved fields at the ends of paths.
#pragma once
#include "fluids/advection/row_sampling.h"
#include "fluids/flow/thin_faces.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// How advection samples its target between samples.
enum class AdvectionSampling : i32 { Linear = 0, BSpline = 1, Monotonic = 2 };

/// Points (cells) at which fields of one shape are sampled, with the samples round them.
struct SamplePoints {
  const RowVectors* points;
  i32 n;
  i32 kind;
  RowCorners corners;
  u8 reach[kRowChunk];  ///< which corners count, where thin walls may lie between them
  bool isParted = false;

  /// Looks round `count` points, in fields of the kind and the size of `shape`; without thin walls
  /// `thin` is null.
  void Find(const Grid<double>& shape, const ThinFaces* thin, const RowVectors& at, i32 count);
  bool IsParted(i32 i) const { return isParted && reach[i] != 0xff; }
};

/// Samples `g` at the points by an `AdvectionSampling`; a B-spline's coefficients are `spline`.
void SampleRow(i32 sampling, const Grid<double>& g, const Grid<double>* spline,
               const SamplePoints& at, double* out);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
