// How much of faces, edges and cells a distance field fills.
#pragma once
#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "grids/egrid.h"
#include "grids/for_each_cell.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

enum class FractionMethod : i32 { Sampled = 0, Analytic = 1, Tetrahedra = 2 };

enum FractionKind : u32 {
  kFractionCell = 1,         ///< key (0, 0)
  kFractionFaces = 2,        ///< keys (axis, 1): area fractions
  kFractionEdges = 4,        ///< keys (axis, 2): control volumes of edges
  kFractionFaceVolumes = 8,  ///< keys (axis, 3): control volumes of faces
};

/// The least opening of a face in a flow: what a moving solid presses through a hair would be as
/// fast as the hair is thin. Faces open by less than half of it are closed, others open so far.
constexpr double kLeastOpening = 0.05;

/// Fractions of faces, edges and cells inside (or with `mInvert` outside) the zero surface of a
/// signed distance field; values 0 to 1, single precision, over the cells of the field's layout.
///
/// Faces with `FractionMethod::Analytic` have all their layers; the other methods leave the last
/// layer of a face grid at 0. With `kFractionEdges` and `kFractionFaceVolumes` together all is
/// measured by control-volume sampling, which knows no inversion. `Measure` makes the fractions of
/// a step; their memory is kept for the next one.
class Grid_VolumeFractions {
 public:
  /// Measures the source by the settings, on `threads` workers; the result doesn't depend on their
  /// number. False without a source or memory. Without a grid, all fractions are 0, but those of
  /// control volumes, which are whole.
  bool Measure(i32 threads);
  /// All fractions become 0.
  void Reset();
  void Release() { mFields.clear(); }

  /// The grid of a field; null when it couldn't be allocated. A key that isn't there is a
  /// programming error: std::out_of_range "invalid map<K, T> key".
  EGrid<float>* GetRead(i32 axis, i32 kind) const;
  EGrid<float>* GetWrite(i32 axis, i32 kind) const { return GetRead(axis, kind); }
  bool HasField(i32 axis, i32 kind) const { return mFields.contains({axis, kind}); }
  bool HasFields() const { return !mFields.empty(); }
  /// Zeroes the face fractions of `axis` in the layers at closed walls (bits of `WallBit`): the
  /// outermost layer, and along the faces' own axis the one inside it as well.
  void ZeroWallFaces(i32 axis, u8 walls);

  /// Where the distance field comes from: the grid, or when there is none its layout.
  struct Source {
    const EGrid<double>* grid = nullptr;
    const GridLayout* layout = nullptr;
  };
  Source mSource;
  FractionMethod mMethod = FractionMethod::Sampled;
  u32 mKinds = 0;
  i32 mSamples = 2;  ///< per axis; sub-cells of control volumes are 2^mSamples per axis
  bool mInvert = false;
  double mLeast = 0;  ///< analytic fractions of faces: 0, or at least so much; rounded below
  /// A fraction by that rule.
  float Least(float part) const {
    const float least = static_cast<float>(mLeast);
    return part >= least ? part : part < 0.5F * least ? 0.0F : least;
  }

 private:
  /// Samples inside, for each octant of a cell: bit 0 upper half in x, bit 1 in y, bit 2 in z.
  using Octants = std::array<u16, 8>;

  const GridLayout* SourceLayout() const;
  bool Allocate();
  bool SetField(i32 axis, i32 kind, i32 gridKind, bool wanted, const GridLayout& layout);
  bool IsControlVolume() const {
    return (mKinds & kFractionEdges) && (mKinds & kFractionFaceVolumes);
  }
  void MeasureField(EGrid<float>& field, const CellBox& box, bool analytic) const;
  float Stored(double fraction) const {
    return static_cast<float>(std::clamp(mInvert ? 1 - fraction : fraction, 0.0, 1.0));
  }
  void AnalyticFaces(EGrid<float>& field, const CellBox& box) const;
  void NodalCells(EGrid<float>& field, const CellBox& box) const;
  void Tetrahedra(EGrid<float>& field, const CellBox& box) const;
  void SampledCount(EGrid<float>& field, const CellBox& box) const;
  void ControlVolumes(i32 first, i32 last);
  void CountLayer(i32 z, std::vector<Octants>& layer) const;
  Octants CountCell(i32 x, i32 y, i32 z) const;
  void GatherLayer(i32 z, const std::vector<Octants>& below, const std::vector<Octants>& here);
  template <class F>
  void WriteLayer(i32 axis, i32 kind, i32 z, F&& count);

  std::map<std::pair<i32, i32>, std::unique_ptr<EGrid<float>>> mFields;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
