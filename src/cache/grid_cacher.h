// Grids that are recorded and played back.
#pragma once
#include <array>
#include <memory>

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
  void Prepare() override;
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override;
  std::string DescribeFile(const std::filesystem::path& path) const override;

 protected:
  Ids ParameterIds() const override { return {1015, 1008}; }
  i32 FirstFormat() const override { return 21; }
  bool PrepareLoad() override;

 private:
  using Grids = std::array<EGrid<double>*, 3>;
  /// What the cache keeps of an object; null for one that has no grids.
  static CachedGrids* StateOf(iBase& object);
  /// The grids of an object; those that it hasn't, or that hold no data, are null.
  static Grids GridsOf(iBase& object);
  /// Makes the object take the place of a stored grid in this frame.
  static bool Place(iBase& object, const StoredGrid& stored);
  void WriteFrame();
  /// The file that is played has what these grids of the objects would give another.
  bool HoldsAll(const std::vector<Grids>& all) const;
  void ReadFrame();
  /// Reads the blocks of one object.
  bool ReadObject(iBase& object, const StoredGrid& stored);
  bool ReadGrid(const StoredGrid& stored, i32 kind, EGrid<double>& target);
  void Resample(const EGrid<double>& source, EGrid<double>& target);

  i32 mResampleMode = 0;
  /// Moves what is stored along with the node.
  void MoveStored();
  /// Finds for each object its chunk, by its name or where the file has none by its place.
  void MatchObjects();

  /// The file of the frame that is played, from stage 0 until its data are read.
  std::unique_ptr<HyperFile> mFile;
  GridCacheHeader mHeader;
  std::vector<i32> mChunks;  ///< of each object; -1 for none
  /// The file that feeds all objects in this frame, if one does.
  WrittenFile mPlayed;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
