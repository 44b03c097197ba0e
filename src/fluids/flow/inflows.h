// Cells through which water comes into a liquid at a given velocity.
#pragma once
#include <vector>

#include "fluids/flow/flow.h"
#include "fluids/flow/full_rooms.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The cells of a liquid's flow in which sources hold a velocity, whatever pulls or presses there:
/// a pipe and its pump. The liquid outside meets walls through which that velocity comes; what it
/// would lose through them stays: the pump draws from elsewhere.
///
///     inflows.Close(flow);     // faces of those cells are walls, what comes in is a source
///     projection.Project();
///     inflows.Open(flow);      // faces are as before, at the velocity that is held
class Inflows {
 public:
  bool IsEmpty() const { return mSources.empty(); }
  void Clear();
  /// A source: cells by their index in the flow's cells, and their velocity in simulation units a
  /// second; where it has stopped they hold still. Of cells that two sources hold the first one
  /// decides.
  void Add(std::vector<i32> cells, const Vec3d& velocity, bool hasStopped = false);

  /// Closes the open faces of the cells, and adds what comes through them into cells of the liquid
  /// to the source of the step.
  void Close(Flow& flow);
  /// Opens those faces again and gives them their velocity.
  void Open(Flow& flow) const;
  /// Gives the faces that `Close` found their velocity.
  void Hold(Flow& flow) const;
  /// After `Close`: marks the cells of sources whose water comes into full cells alone, or, with
  /// solids all about them, nowhere.
  void MarkFull(FullRooms& full, const GridLayout& layout) const;
  /// Gives the faces of cells, and of the air that their water reaches in `duration` seconds, a
  /// velocity. Where the flow ends before that nothing has one: water that is cut off would be
  /// crushed at its end, and waits a step instead.
  static void Begin(Flow& flow, const std::vector<i32>& cells, const Vec3d& velocity,
                    double duration);

 private:
  struct Source {
    std::vector<i32> cells;
    Vec3d velocity;
    bool hasStopped = false;
    bool isShared = false;     ///< another one holds some of its cells
    std::vector<i32> outlets;  ///< the cells into which its water comes
  };
  struct Face {
    i32 axis, index;
    float open;
    double velocity;
  };
  static void FillCell(Flow& flow, const VecInt3D& at, const Vec3d& velocity, bool isSource);
  void CloseCell(Flow& flow, i32 cell, Source& source);

  std::vector<Source> mSources;
  std::vector<u8> mIsHeld;  ///< by cell, while faces are closed
  std::vector<Face> mFaces;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
