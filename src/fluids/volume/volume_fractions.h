// How much of faces, edges and cells a distance field fills.
#pragma once
#include <map>
#include <memory>
#include <utility>

#include "framework/iobject.h"
#include "grids/egrid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

enum class FractionMethod : i32 { Sampled = 0, Analytic = 1, Tetrahedra = 2 };

enum FractionKind : u32 {
  kFractionCell = 1,           ///< key (0, 0)
  kFractionFaces = 2,          ///< keys (axis, 1): area fractions
  kFractionEdges = 4,          ///< keys (axis, 2): control volumes of edges
  kFractionFaceVolumes = 8,    ///< keys (axis, 3): control volumes of faces
};

/// Fractions of faces, edges and cells inside (or with `mInvert` outside) the zero surface of a
/// signed distance field; values 0 to 1, single precision.
class Grid_VolumeFractions : public iObject {
 public:
  Grid_VolumeFractions() = default;
  Grid_VolumeFractions(const Grid_VolumeFractions&);
  bool ReadParameters(void* context = nullptr) override;
  void Reset() override;
  void Release(bool full) override;
  void Prepare(void* context = nullptr) override;
  void Evaluate(const EvaluationThreadData& data) override;

  /// The grid of a field; null when it couldn't be allocated. A key that isn't there is a programming
  /// error: std::out_of_range "invalid map<K, T> key".
  EGrid<float>* GetRead(i32 axis, i32 kind) const;
  EGrid<float>* GetWrite(i32 axis, i32 kind) const { return GetRead(axis, kind); }
  bool HasField(i32 axis, i32 kind) const { return mFields.contains({axis, kind}); }
  bool HasFields() const { return !mFields.empty(); }
  /// Zeroes the face fractions of `axis` in the layers at closed walls.
  void ZeroWallFaces(i32 axis, u8 walls);

  /// Where the distance field comes from, told by the owner before `Prepare`: the grid, or when
  /// there is none its layout.
  struct Source {
    const EGrid<double>* grid = nullptr;
    const GridLayout* layout = nullptr;
  };
  Source mSource;
  FractionMethod mMethod = FractionMethod::Sampled;
  u32 mKinds = 0;
  i32 mSamples = 2;
  bool mInvert = false;

 private:
  std::map<std::pair<i32, i32>, std::unique_ptr<EGrid<float>>> mFields;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
