// Matrices of frames, kept in memory for replay.
#pragma once
#include <cmath>
#include <map>
#include <optional>

#include "framework/state_archive.h"
#include "host/matrix.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The placement of an object in a frame.
struct LMatrix {
  Matrix matrix;
  Vec3d scale{1, 1, 1};
  void Persist(StateArchive& archive) { archive(matrix, scale); }
};

/// `a` + (`b` - `a`) `t`, each part by itself.
inline LMatrix Mix(const LMatrix& a, const LMatrix& b, double t) {
  const auto mix = [t](const Vec3d& p, const Vec3d& q) { return p + (q - p) * t; };
  const Matrix &m = a.matrix, &n = b.matrix;
  return {
      {mix(m.offset, n.offset), mix(m.v1, n.v1), mix(m.v2, n.v2), mix(m.v3, n.v3)},
      mix(a.scale, b.scale),
  };
}

/// A record for each frame that was stored.
template <class T>
class iRamCache {
 public:
  virtual ~iRamCache() = default;
  /// Drops what was stored for a frame.
  virtual void Invalidate(i32 frame) {
    const auto found = mFrames.find(frame);
    if (found != mFrames.end()) found->second.reset();
  }
  virtual void Clear() { mFrames.clear(); }

  void Persist(StateArchive& archive) { archive(mFrames); }

  void Store(i32 frame, const T& record) { mFrames[frame] = record; }
  /// What was stored for a frame, or null.
  const T* Find(i32 frame) const {
    const auto found = mFrames.find(frame);
    return found != mFrames.end() && found->second ? &*found->second : nullptr;
  }
  /// The record at a moment: mixed between its frame and the next one if both are stored, else that
  /// of the last stored frame before it, else of the first. Nothing from an empty cache.
  std::optional<T> At(double frame) const {
    auto next = mFrames.upper_bound(std::floor(frame));
    auto held = next;
    while (held != mFrames.begin() && !(--held)->second) {
    }
    if (held == mFrames.end() || !held->second || held->first > frame) {
      held = mFrames.begin();
      while (held != mFrames.end() && !held->second) ++held;
      return held != mFrames.end() ? held->second : std::nullopt;
    }
    const bool isBetween = next != mFrames.end() && next->second &&
                           held->first == std::floor(frame) && next->first == held->first + 1;
    return isBetween ? Mix(*held->second, *next->second, frame - held->first) : *held->second;
  }

 private:
  std::map<double, std::optional<T>> mFrames;  ///< whole frames; empty ones were dropped
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
