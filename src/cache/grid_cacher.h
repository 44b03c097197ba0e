// Grids that are recorded and played back.
#pragma once
#include <array>

#include "cache/cache_operator.h"
#include "cache/grid_cache_file.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class CachedGrids;

/// Writes the grids of its objects into a file a frame and puts them back: solvers give their
/// velocity, channels and volumes their grids. A stored grid that fits the live one is copied, any
/// other is resampled into it. The node's position moves what is played. A file that feeds all
/// objects isn't written anew: of what was resampled little would be left after some runs.
class GridCacher : public Cache_OperatorBase {
 public:
  GridCacher(host::BaseNode* node, Scene* scene);
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  std::string DescribeFile(const std::filesystem::path& path) const override;

 protected:
  const RowNumbers& Numbers() const override { return kNumbers; }
  i32 FirstFormat() const override { return 21; }
  std::vector<StoredObject> NamedObjects() const override;
  bool LacksAny() const override;
  void WriteBody(HyperFile& file) override;
  bool ReadHeader(HyperFile& file, std::string& problem) override {
    return ReadGridCacheHeader(file, mHeader, problem);
  }
  std::size_t ChunkCount() const override { return mHeader.chunks.size(); }
  const CacheOrigin& Origin() const override { return mHeader.origin; }
  void TakePlaces() override;
  bool Feeds(std::size_t object, std::size_t chunk) const override;
  bool ReadChunk(std::size_t object, std::size_t chunk) override;

 private:
  static constexpr RowNumbers kNumbers = {1015, 1008, 1016, 1017, 1018, 1019, 1021};

  using Grids = std::array<EGrid<double>*, 3>;
  /// What the cache keeps of an object; null for one that has no grids.
  static CachedGrids* StateOf(iBase& object);
  /// The grids of an object; those that it hasn't, or that hold no data, are null.
  static Grids GridsOf(iBase& object);
  /// Makes the object take the place of a stored grid in this frame.
  static bool Place(iBase& object, const StoredGrid& stored);
  /// The stored grid of a chunk, or null.
  StoredGrid* GridOf(std::size_t chunk) {
    const i32 header = mHeader.chunks[chunk];
    return header >= 0 ? &mHeader.grids[header] : nullptr;
  }
  bool ReadGrid(const StoredGrid& stored, i32 kind, EGrid<double>& target);
  void Resample(const EGrid<double>& source, EGrid<double>& target);
  /// Makes a velocity that of the motion that is played.
  void Scale(const Grids& velocity, double rate) const;

  i32 mResampleMode = 0;
  /// Moves what is stored along with the node.
  void MoveStored();

  GridCacheHeader mHeader;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
