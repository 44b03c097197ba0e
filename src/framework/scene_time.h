// The clocks of a scene.
#pragma once
#include "host/types.h"

namespace MELDO_GLOBAL::host {
class Document;
}

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The time record that every object reads through `mTime`. Seconds unless said otherwise.
struct SceneTime {
  i32 frameIndex = 0;         ///< frames since the start frame
  f64 frameDuration = 0;      ///< timeScale / fps
  f64 elapsed = 0;            ///< simulated time at the start of the substep; 0 at the start
  f64 stepDuration = 0;       ///< dt of the current substep
  f64 timeInFrame = 0;        ///< sum of this frame's substeps so far
  i32 fps = 0;                ///< document rate
  f64 stepFraction = 0;       ///< stepDuration / frameDuration
  f64 remainingFraction = 0;  ///< part of the frame after this substep
  u8 substep = 0;             ///< number of the current substep, from 1
  u8 maxSubsteps = 0;         ///< substeps per frame; in adaptive mode this frame's running count
  u8 minSubsteps = 0;
  u8 isLastSubstep = 0;  ///< 1 during the frame's last substep

  /// Whether the frame moves on from the one before it. The start frame is a state, not a stretch
  /// of time: sources fill it with what a frame of theirs holds, and nothing flows yet.
  bool IsUnderWay() const { return frameIndex > 0; }
};

/// What the document's clock said at this evaluation and the last one.
struct FrameClock {
  const host::Document* document = nullptr;
  i32 frameOffset = 0;
  i32 frame = 0;
  i32 lastFrame = 1;  ///< -1 after `Restart`
  i32 frameFromStart = 0;
  f64 fps = 25;
  f64 frameTime = 0.04;  ///< 1 / fps
  f64 time = 0;          ///< seconds
  f64 lastTime = -0.033;
  i32 startFrame = 0;
  i32 endFrame = 91;  ///< one beyond the last simulated frame

  void Restart() {
    lastFrame = -1;
    frameFromStart = 0;
    time = 0;
    lastTime = -0.033;
  }
  void Commit() {
    lastTime = time;
    lastFrame = frame;
  }
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
