#include "rigid/free_turn.h"

#include <algorithm>
#include <cmath>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kPart = 0.25;    // radians in one step of the rule
constexpr int kMostParts = 1000;  // what spins faster turns about the axis that it has
constexpr int kMostRounds = 60;   // of the fixed point; each gains more than half a digit
constexpr double kRounding = 1e-16;

/// Turns by `spin` for `dt` about a fixed axis.
btQuaternion TurnedBy(const btQuaternion& turn, const btVector3& spin, double dt) {
  const double rate = spin.length();
  if (!(rate > 0)) return turn;
  return (btQuaternion(spin / rate, std::fmod(rate * dt, 2 * M_PI)) * turn).normalized();
}

/// One step of the rule for the momentum `p` in the body's axes.
btQuaternion Part(const btVector3& inverse, double dt, btVector3& p) {
  btVector3 end = p, spin = inverse * p;
  double h = 0;
  for (int round = 0; round < kMostRounds; ++round) {
    const btVector3 middle = (p + end) * 0.5;
    spin = inverse * middle;
    const double rate = spin.length();
    h = rate * dt > 1e-8 ? 2 * std::tan(0.5 * rate * dt) / rate : dt;
    const btVector3 next = p + middle.cross(spin) * h;
    const double change = (next - end).length2();
    end = next;
    if (change <= kRounding * kRounding * end.length2()) break;
  }
  p = end;
  const btVector3 half = spin * (0.5 * h);
  return btQuaternion(half.x(), half.y(), half.z(), 1).normalized();
}

}  // namespace

void TurnFreely(const btVector3& inertia, double dt, btQuaternion& turn, btVector3& spin) {
  const btVector3 momentum =
      quatRotate(turn, inertia * quatRotate(turn.inverse(), spin));  // in the world
  const btVector3 inverse(1 / inertia.x(), 1 / inertia.y(), 1 / inertia.z());
  const double rate = spin.length();
  const double fastest = momentum.length() * std::max({inverse.x(), inverse.y(), inverse.z()});
  const double parts = std::ceil(std::sqrt(rate * fastest) * dt / kPart);
  if (!(parts >= 1)) return;
  if (parts > kMostParts) return void(turn = TurnedBy(turn, spin, dt));
  btVector3 p = quatRotate(turn.inverse(), momentum);
  const int count = static_cast<int>(parts);
  for (int i = 0; i < count; ++i) turn = turn * Part(inverse, dt / count, p);
  turn.normalize();
  spin = quatRotate(turn, inverse * quatRotate(turn.inverse(), momentum));
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
