// The level set of a liquid whose particles fill space evenly.
#pragma once
#include <vector>

#include "fluids/particles/particle_sort.h"
#include "grids/egrid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Makes a level set (cells, simulation units, negative inside) of the space that particles fill.
///
/// Each particle spreads its volume over the cells about it by quadratic B-splines (Steffen, Kirby
/// and Berzins 2008), which closed cells mirror; what a cell gets counts against what is open about
/// it. A cell at a signed
/// depth t below an even surface, in cells, is filled by the splines' integral up to t, a cubic,
/// whose inverse tells t: the surface is known to a few hundredths of a cell, and noise and small
/// gaps among the particles don't tear it.
///
/// A cell at the surface without particles, whose faces none may reach, is air. A film or a drop
/// that is too thin to fill half of the cells about it counts as liquid where its
/// particles are, with the surface all but in the middle of the cell.
class SmoothSurface {
 public:
  static constexpr double kFar = 1e308;  ///< where no distance reaches
  static constexpr double kReach = 1.5;  ///< of a spline, in cells

  /// Works on particles that are sorted by the cells of `phi`. `open` are the open fractions of
  /// these cells; null where all is open.
  SmoothSurface(const ParticleSort& sort, const EGrid<float>* open, EGrid<double>& phi);
  /// Where more than fills a cell is to be told.
  struct Crowd {
    EGrid<double>* grid = nullptr;  ///< cells; the excess over full is added, times `rate`
    double rate = 0;
  };
  /// Fills `phi`. `rest` particles fill a cell; with 0 they tell themselves: those of cells in the
  /// midst of others. Cells beside the surface get their distance; farther inside all get -kReach
  /// cells, farther outside what particles reach of them, and kFar else. False without memory. Runs
  /// on all workers, with one result for any number.
  bool Run(double rest, const Crowd& crowd);
  /// Particles that filled a cell in the last run; 0 without any.
  double Rest() const { return mRest; }
  /// After `Run`: distances to the surface everywhere, by `EikonalSweeper`; false without memory.
  bool SpreadDistances(host::HostThread* thread = nullptr);

  /// The depth below an even surface, in cells, of a cell that is filled to `share`: from -kReach
  /// to kReach.
  static double DepthOf(double share);

 private:
  enum State : u8 { kAir, kLiquid, kBesideSurface, kThin, kBare };

  /// Notes for each cell whether it holds particles, and which of its neighbours, low and high on
  /// each axis, are closed.
  void FindNotes();
  void Spread();
  /// Particles in a full cell.
  double FindRest() const;
  /// All 27 cells about one hold particles and are open.
  bool IsAmidst(i32 i) const;
  void FindDepths(const Crowd& crowd);
  void FindStates();
  State StateOf(const VecInt3D& at, i32 i) const;
  /// The least open cell about each of a line's cells; `beside` is scratch.
  void FindLeastOpen(i32 y, i32 z, std::vector<float>& beside, std::vector<float>& least) const;
  /// What a cell would get if all that is open were filled, in full cells.
  double OpenShare(const VecInt3D& at, i32 i) const;
  /// Closed cells take the mean of their open neighbours: a wall isn't a surface.
  void EnterWalls();
  bool HasOpening(i32 i) const { return !mOpen || (*mOpen)[i] > 0; }
  static constexpr u8 kHolds = 64;
  bool Holds(i32 i) const { return mNotes[i] & kHolds; }

  const ParticleSort& mSort;
  const EGrid<float>* mOpen;
  EGrid<double>& mPhi;
  Grid<u8> mNotes;  ///< kHolds, and the bits of closed neighbours
  Grid<u8> mStates;
  double mRest = 0;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
