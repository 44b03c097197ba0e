// The gas round a container that follows its content.
#pragma once
#include <array>
#include <cmath>
#include <memory>
#include <span>
#include <vector>

#include "fluids/forces/velocity_grid_emitter.h"
#include "fluids/pressure/grid_incompressibility.h"
#include "fluids/pressure/outer_lattice.h"
#include "fluids/pressure/outer_owners.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Gas between the sides of a flow's container and the user's box, on the cells of an
/// `OuterLattice`.
///
/// In a step its pressure and that of the container are found together on the lattice, whose cells
/// inside of the container take what the fine ones have to bring about; the container then solves
/// for its own pressure with that of the lattice beyond its sides. Outside, the flow has no
/// vorticity but what comes out of the container: where that moves, it is found anew from what
/// passes through the container's sides and from the wind far away. In a step it is carried along
/// by itself, pushed, and projected. What forces add alike everywhere has a potential, which is
/// left out of the pressures on the lattice and added where these are handed on, so that gas that
/// rests in it rests beside any solid. The two sides of a wall don't see each other's pressures.
/// Nothing depends on the number of workers. Speeds in simulation units per second.
class OuterLevel : public Grid_Incompressibility, public FarField {
 public:
  OuterLevel();
  void Reset() override;
  void Release(bool full) override;
  void Persist(StateArchive& archive) override;

  /// The user's box in cells of the domain, which of its sides are walls, and which sides of the
  /// flow's container end in the open inside of it (bits of `WallBit`).
  void SetBox(const VecInt3D& low, const VecInt3D& high, u8 walls, u8 freeSides);
  /// Gives the velocity that the container has gained since it was at `before` what was outside.
  void Continue(const GridLayout& before);
  /// Cuts the surroundings of the container for a step, and finds the flow there where it moved.
  void BeginStep();
  /// Adds to the gas outside what forces do there that rest on the place alone, and of what the
  /// others have done to the cells what is alike along all open sides.
  void AddForce(const VelocityGridEmitter& forces);
  std::span<const SideLayer> FindPressures(const ProjectionFields& fields,
                                           std::span<const double> rhs) override;
  /// Takes over what the container moves like now, and gives it the flow beyond its open sides.
  void EndStep();

 protected:
  bool GatherFields(ProjectionFields& fields) override;
  void GatherSolids(std::vector<MovingBody>& /*moving*/,
                    std::vector<const VolumeBase*>& /*resting*/) const override {}
  void BuildSystem(const CellBox& block) override;
  /// A pressure that is known but for a constant has the mean 0.
  void Settle() override;
  /// The balance of the inner cells is that of the container.
  void MeasureDivergence() override {}
  /// What solids push and what gas that expands does are one here.
  void CheckRegions() override {
    if (!mWithoutInner && mFlow->ObstacleTravel() == 0) Grid_Incompressibility::CheckRegions();
  }
  Vec3d PlaceOf(const VecInt3D& cell) const override;
  /// The lattice's are larger.
  i64 CellsOf(const Region& region) const override { return std::llround(region.volume); }

 private:
  /// Fine faces between two cells of the lattice: their open area, in fine faces, that of those of
  /// its axis, and the flow through these.
  struct FaceSum {
    double area = 0, along = 0, flow = 0;
  };
  /// A fine face that lies between other cells of the lattice than its place tells: the face of the
  /// lattice between these, and its own axis and index.
  struct MovedFace {
    i32 face, axis, index;
    friend auto operator<=>(const MovedFace&, const MovedFace&) = default;
  };
  /// A fine face on a side of the container that a stray's owner has no face for.
  struct ShutFace {
    i32 stray, axis, index;
    bool high;
  };
  /// Hands the lattice's own projection the pressures beyond its open ends.
  struct OpenEnds : FarField {
    std::span<const SideLayer> FindPressures(const ProjectionFields& /*fields*/,
                                             std::span<const double> /*rhs*/) override {
      return layers;
    }
    std::vector<SideLayer> layers;
  };

  bool Allocate();
  void MeasureOpen();
  float OpenOutside(i32 axis, const VecInt3D& face) const;
  double SolidPart(const VolumeBase& obstacle, i32 axis, const VecInt3D& face) const;
  bool IsBesideOutside(i32 axis, const VecInt3D& face, i32 plane) const;
  void FindOwners();
  void FindMovedFaces();
  void MeasureInner();
  void MarkCutCells();
  void CloseThinWalls();
  bool HasFlow() const { return !mLattice.IsEmpty() && mVelocity[2]; }
  /// And what it can pass in this step.
  bool IsCut() const { return HasFlow() && mOpen[2]; }
  /// The lattice ends at a wall of the user's box.
  bool EndsAtWall(i32 axis, bool high) const;
  Vec3d Wind() const;
  /// Takes the mean velocity of the fine faces: of all inner ones, or of those on the sides.
  void Average(bool onlySides);
  /// The fine faces that belong to a face of the lattice, with speeds speedAt(index).
  template <class F>
  FaceSum SumFace(i32 axis, const VecInt3D& cell, F&& speedAt) const;
  /// With the speeds of the gas.
  FaceSum SumFace(i32 axis, const VecInt3D& cell) const;
  std::vector<FaceSum> SumLayer(i32 axis, i32 k, bool flows) const;
  template <bool kFlows>
  void AddFaceRow(i32 axis, i32 row, FaceSum* sums) const;
  template <class F>
  void AddMovedIn(i32 axis, const VecInt3D& cell, F&& speedAt, FaceSum& sum) const;
  void SumInner(const ProjectionFields& fields, std::span<const double> rhs);
  template <class Sums>
  void SumStrays(const Sums& balance);
  void FindPotential();
  double PotentialAt(const Vec3d& place) const;
  void TakeOutUniform();
  void SampleSide(SideLayer& side);
  Vec3d PushAlongSides(const VelocityGridEmitter& forces, const EGrid<float>& cells) const;
  double MeanPush(i32 axis) const;
  void AverageDensity(const ProjectionFields& fields);
  void MatchSides(const ProjectionFields& fields);
  bool AverageDensity(const EGrid<double>& fine, std::unique_ptr<EGrid<double>>& mixture) const;
  /// Lets the gas outside carry its velocity along, from what it was when the step began.
  void Advect(double dt);
  bool ProjectAll();
  void ContinueVelocity();
  void AddInflow(i32 z);
  void AddInner(i32 z);
  void Sample(i32 axis, const CellBox& box, bool onlyOpen);
  void WriteSides();
  template <class F>
  void ForEachOutsideFaceOf(i32 axis, F&& f) const;
  bool IsFree(i32 axis, bool high) const { return mFree & (high ? kHighWall : kLowWall)[axis]; }

  OuterLattice mLattice;
  std::array<std::unique_ptr<EGrid<double>>, 3> mVelocity;
  std::array<std::unique_ptr<EGrid<float>>, 3> mOpen;     ///< areas over distances, open parts
  std::array<std::unique_ptr<EGrid<float>>, 3> mOutside;  ///< the same without inner faces
  std::unique_ptr<EGrid<float>> mVolume;
  /// Density, for the faces of each axis; null where it is the same everywhere.
  std::array<std::unique_ptr<EGrid<double>>, 3> mMixture;
  std::array<std::vector<i32>, 3> mCuts;  ///< fine faces of the inner lines
  std::vector<double> mInner;             ///< right-hand sides of the inner cells
  OuterOwners mOwners;
  std::array<std::vector<i32>, 3> mMovedOut;       ///< fine faces, by their axis and in their order
  std::array<std::vector<MovedFace>, 3> mMovedIn;  ///< by the axis of the lattice's face, in order
  std::vector<ShutFace> mShut;
  std::vector<u8> mIsCut;                      ///< by cell: not all of its faces lead on
  std::vector<std::pair<i32, double>> mGiven;  ///< outer cells, and what strays add to them
  std::vector<SideLayer> mSides;
  OpenEnds mEnds;
  Vec3d mUniform;         ///< what forces add alike everywhere in this step
  Vec3d mSlope;           ///< of its potential, by cell of the domain
  double mReference = 0;  ///< the density for which that is one
  VecInt3D mLow{}, mHigh{};
  u8 mWalls = 0, mFree = 0;
  std::array<std::vector<double>, 3> mPush;  ///< by face: what forces add outside in this step
  bool mHasWind = false;                     ///< something has moved all of the gas outside alike
  bool mWithoutInner = false;                ///< the inner cells take no part in the projection
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
