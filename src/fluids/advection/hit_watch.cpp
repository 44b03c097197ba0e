#include "fluids/advection/hit_watch.h"

#include <atomic>
#include <cmath>

namespace MELDO_GLOBAL::MELDO_SULVA {

void HitWatch::Collect(const std::vector<VolumeBase*>& obstacles) {
  mSleepers.clear();
  for (const VolumeBase* volume : obstacles) {
    const Mesh* mesh = volume->GetMesh();
    if (volume->Has(FLAG_ENABLED) && volume->HasGridData() && mesh && mesh->HasBody() &&
        mesh->GetBody()->AwaitsTouch())
      mSleepers.push_back({volume});
  }
}

void HitWatch::Note(const Vec3d& contact) {
  for (Sleeper& sleeper : mSleepers) {
    const VolumeBase& volume = *sleeper.volume;
    if (volume.IsInBounds(contact) &&
        std::fabs(volume.DistanceAtWorld(contact)) < volume.GetGrid()->mLayout.cellSize)
      std::atomic_ref(sleeper.isTouched).store(1, std::memory_order_relaxed);
  }
}

void HitWatch::Wake() {
  for (const Sleeper& sleeper : mSleepers)
    if (sleeper.isTouched) sleeper.volume->GetMesh()->GetBody()->NoteHit();
  mSleepers.clear();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
