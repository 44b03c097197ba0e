// The level set of a liquid whose particles fill space evenly.
#pragma once
#include "fluids/particles/cell_filling.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Makes a level set (cells, simulation units, negative inside) of the space that particles fill.
///
/// A cell at a signed depth t below an even surface, in cells, is filled (`CellFilling`) by the
/// splines' integral up to t, a cubic, whose inverse tells t: the surface is known to a few
/// hundredths of a cell, and noise and small gaps among the particles don't tear it.
///
/// A cell at the surface without particles, whose faces none may reach, is air. A film or a drop
/// beside which no cell is full by four fifths counts as by number: its cells are liquid through
/// and through, and so is what solids leave of the cells beside them.
class SmoothSurface {
 public:
  static constexpr double kFar = 1e308;  ///< where no distance reaches
  static constexpr double kReach = 1.5;  ///< of a spline, in cells

  /// Works on particles that are sorted by the cells of `phi`. `open` are the open fractions of
  /// these cells; null where all is open.
  SmoothSurface(const ParticleSort& sort, const EGrid<float>* open, EGrid<double>& phi);
  /// Where it is to be told how much more than full, or less, cells are that lie deep in the
  /// liquid. Of both, so that chance, which fills some cells and empties others, tells nothing.
  struct Crowd {
    EGrid<double>* grid = nullptr;  ///< cells; the excess over full is added, times `rate`
    double rate = 0;
  };
  /// Fills `phi`. `rest` particles fill a cell; with 0 they tell themselves: those of cells in the
  /// midst of others. Cells beside the surface get their distance; farther inside all get -kReach
  /// cells, farther outside what particles reach of them, and kFar else. With fewer than `kFewest`
  /// only `Rest` is found. False without memory. Runs on all workers, with one result for any
  /// number.
  bool Run(double rest, const Crowd& crowd);
  /// With fewer particles in a cell than this chance alone tears it: `WideCells` find it then.
  static constexpr double kFewest = 4;
  /// Particles that filled a cell in the last run, and cells that told it, if any did.
  const CellFilling::Rest& Rest() const { return mRest; }
  /// The cells that still particles share out, handed over; null where there are none.
  std::unique_ptr<EvenCells> TakeEven() { return mFilling.TakeEven(); }
  /// By how much cells of films, which count whole, hold more than their particles, in full cells.
  double Surplus() const { return mSurplus; }
  /// After `Run`: it belongs to a film, and no part of it is told by what fills it.
  bool CountsWhole(const VecInt3D& at, i32 i) const {
    return mStates[i] == kFilm || mStates[i] == kThin ||
           (!mFilling.IsMostlyOpen(i) && IsBesideFilm(at, i));
  }
  /// After `Run`: distances to the surface everywhere, by `EikonalSweeper`; false without memory.
  bool SpreadDistances(host::HostThread* thread = nullptr);

  /// The depth below an even surface, in cells, of a cell that is filled to `share`: from -kReach
  /// to kReach.
  static double DepthOf(double share);

 private:
  enum State : u8 { kAir, kLiquid, kBesideSurface, kThin, kBare, kFilm };

  void FindDepths(const Crowd& crowd);
  void FindStates();
  double FindSurplus() const;
  /// It holds particles and lies beside nothing that is deep enough to have a surface of its own.
  bool IsFilm(const VecInt3D& at, i32 i) const;
  bool IsBesideFilm(const VecInt3D& at, i32 i) const;
  void FindFilms();
  State StateOf(const VecInt3D& at, i32 i) const;
  /// Closed cells, and those that are so for the most part, take the mean of their open neighbours:
  /// a wall isn't a surface.
  void EnterWalls();

  CellFilling mFilling;
  EGrid<double>& mPhi;
  Grid<u8> mStates;
  CellFilling::Rest mRest;
  double mSurplus = 0;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
