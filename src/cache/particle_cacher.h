// Particles that are recorded and played back.
#pragma once
#include <optional>

#include "cache/cache_operator.h"
#include "cache/cache_rows.h"
#include "cache/particle_cache_file.h"
#include "exchange/particle_format.h"
#include "fluids/particles/particle_group.h"
#include "fluids/particles/particle_property.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Writes the particles of its groups into a file a frame and puts them back, all kinds of a group
/// or those that the list names. Filters refuse particles on both ways. The node's position moves
/// what is played. With a time scale moments between frames are shown: a particle stands between
/// its places in both frames, which its id finds.
class ParticleCacher : public Cache_OperatorBase {
 public:
  ParticleCacher(host::BaseNode* node, Scene* scene);
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  ConstraintList* Constraints() override { return &mFilters; }
  bool ResolveLinks() override;
  void Evaluate(const EvaluationThreadData& data) override;
  void ClearLinks() override;
  std::string DescribeFile(const std::filesystem::path& path) const override;

 protected:
  const RowNumbers& Numbers() const override { return kNumbers; }
  double TimeScale() const override { return mTimeScale; }
  std::vector<StoredObject> NamedObjects() const override;
  bool LacksAny() const override;
  void WriteBody(HyperFile& file) override;
  bool ReadHeader(HyperFile& file, std::string& problem) override {
    return ReadParticleCacheHeader(file, mHeader, problem);
  }
  std::size_t ChunkCount() const override { return mHeader.stores.size(); }
  const CacheOrigin& Origin() const override { return mHeader.origin; }
  bool PrepareLoad() override;
  void CollectListed() override;
  void ClearMarks() override;
  void TakePlaces() override;
  bool Feeds(std::size_t, std::size_t) const override { return true; }
  bool ReadChunk(std::size_t object, std::size_t chunk) override;
  void EndReading() override { mBefore.clear(); }

 private:
  static constexpr RowNumbers kNumbers = {1008, 1018, 1015, 1020, 1016, 1017, 1021};

  /// The particles of one kind of a group.
  struct Target {
    ParticleGroup* group;
    i32 kind;
    ParticleStore& Store() const { return group->Store(kind); }
  };
  /// What a stored place becomes in this scene: p scale + offset.
  struct Placing {
    Vec3d scale{1, 1, 1}, offset{};
    bool scales = false;
    Vec3d Of(const Vec3d& p) const { return scales ? p * scale + offset : p + offset; }
  };
  Placing PlacingOf(const GridLayout& stored) const;
  /// Files are those of other tools: one table a frame, with all particles.
  bool IsForeign() const {
    return mFormat != cache_row::kPlainParticles && mFormat != cache_row::kParticles;
  }
  void WriteForeign();
  /// Gives the particles of the file to the stores that its column `group` names, and those of
  /// other names to the first entry of the list; they go on as its own. A file that can't be read
  /// leaves the stores as they are, one whose particles can't be taken empties them.
  void ReadForeign();
  void TakeForeign(const Target& target, const exchange::ParticleTable& table,
                   const exchange::ParticleTable* before);
  /// The file of the frame before, if a moment between two is shown.
  std::optional<exchange::ParticleTable> ReadForeignBefore();
  /// Where those of a table were in the frame before, by the ids that the store has given them.
  ParticlePlaces PlacesIn(const exchange::ParticleTable& before,
                          const exchange::ParticleTable& table, std::span<const i32> ids);
  /// Which rows of a table a target takes, by its place in `mTargets`.
  struct TargetRows {
    std::size_t target;
    std::vector<i64> rows;  ///< none where it is alone and takes all
  };
  std::vector<TargetRows> RowsOfTargets(const exchange::ParticleTable& table) const;
  /// Of the first entry of the list the liquid, or the kind that comes closest.
  std::size_t FirstTarget() const;
  /// Behind other particles in a store.
  void NoteReplaced(const Target& target) const;
  std::vector<std::string> NamesOfTargets() const;
  /// The stores of the list, and where there are filters, the rows that these let through.
  std::vector<ParticleSource> Sources(
      std::vector<std::unique_ptr<ParticleColumns>>& filtered) const;
  PropertySelection Selection() const;
  host::NodeId OwnerOf(i32 id, std::string_view name) const;
  /// Reads where particles were in the frame before, if a moment between two is shown.
  void ReadPlacesBefore();
  /// Of the way from the frame before; 0 at a whole frame.
  double PartOfFrame() const;
  /// Makes of particles as they were recorded those of the moment that is played: between their
  /// places before and now, and as fast as they move there.
  void PutIntoTime(ParticleStore& store, const ParticlePlaces& before) const;
  /// Puts particles between their places before and now.
  void MoveBetween(ParticleStore& store, const ParticlePlaces& before) const;
  void PutIntoScene(ParticleStore& store, const GridLayout& stored) const;
  /// Drops the particles that a filter refuses.
  void Filter(ParticleColumns& particles) const;

  std::vector<host::Linked<ParticleGroup>> mGroups;
  std::vector<iProperty*> mProperties;
  std::vector<Target> mTargets;
  std::size_t mFirst = 0;  ///< of these, which takes what a file gives to nobody
  double mTimeScale = 1;

  ParticleCacheHeader mHeader;
  std::vector<ParticlePlaces> mBefore;  ///< of each chunk; none at a whole frame
  double mPart = 0;                     ///< of the way from the frame before
  WrittenFile mForeign;                 ///< file of another tool that was played in this frame
  exchange::SeriesReport mReported;     ///< what the files that were written lack
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
