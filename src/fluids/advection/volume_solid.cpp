#include "fluids/advection/volume_solid.h"

#include <algorithm>

#include "fluids/advection/meet_solid.h"
#include "fluids/volume/thin_walls.h"
#include "grids/for_each_cell.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

// Cells: the least distance that is kept from a surface without an inside.
constexpr double kLeastSkin = 1e-6;

bool HasThinWalls(const VolumeBase& volume) {
  const ThinWalls* thin = volume.GetThinWalls();
  return thin && !thin->Faces().empty() && !volume.IsSheet();
}

/// The direction in which a point lies off the nearest place of a surface.
Vec3d NormalOff(const SharpSurface& sharp, const SharpSurface::Nearest& nearest, const Vec3d& p) {
  const Vec3d away = (p - nearest.at) * (nearest.distance < 0 ? -1.0 : 1.0);
  return Dot(away, away) > 0 ? Normalised(away) : sharp.NormalOf(nearest.triangle);
}

/// The triangles of a mesh; `beginOf(triangle, corner)` tells where a corner was at the start.
template <class F>
std::vector<SweptSurface::Triangle> TrianglesOf(const TriMeshSTL& mesh, F&& beginOf) {
  const std::vector<Vec3d>& corners = mesh.GetVertices();
  std::vector<SweptSurface::Triangle> triangles(mesh.GetTriangleCount());
  for (i32 i = 0; i < mesh.GetTriangleCount(); ++i)
    for (i32 c = 0; c < 3; ++c) {
      const Vec3d& corner = corners[mesh.GetTriangles()[i][c]];
      triangles[i].end[c] = corner;
      triangles[i].begin[c] = beginOf(i, corner);
    }
  return triangles;
}

}  // namespace

VolumeSolid::VolumeSolid(const VolumeBase& volume)
    : VolumeSolid(volume, volume.GetMesh() && !volume.GetMesh()->IsDeforming()
                              ? SolidMotion::Of(*volume.GetMesh())
                              : SolidMotion()) {
  if (const Mesh* mesh = volume.GetMesh();
      mesh && volume.HasGridData() && (mesh->IsDeforming() || volume.IsSheet()))
    Sweep(*mesh);
}

VolumeSolid::VolumeSolid(const VolumeBase& volume, const SolidMotion& motion)
    : mVolume(&volume),
      mMotion(motion),
      mSharp(HasThinWalls(volume) ? volume.GetSharpSurface() : std::nullopt) {
  // Beside the edge of a triangle the nodes may know but the one behind it, which leans.
  if (mSharp) {
    mSharp->LinkTriangles();
    mSkin.emplace(TrianglesOf(mSharp->Mesh(), [](i32, const Vec3d& corner) { return corner; }));
  }
  if (volume.HasGridData() && !motion.Rests())
    mTravel = motion.Travel(Length(volume.mBoxMax - volume.mBoxMin));
}

void VolumeSolid::Sweep(const Mesh& mesh) {
  mSwept.emplace(TrianglesOf(mesh.mMesh, [&](i32 triangle, const Vec3d& corner) {
    return mesh.IsDeforming() ? corner - mesh.GetSurfaceVelocity(triangle, corner)
                              : mMotion.FromEnd(corner, 0);
  }));
  mTravel = mesh.GetTravel();
}

bool VolumeSolid::MayMeet(const Leg& leg) const {
  const Vec3d reach{mTravel, mTravel, mTravel};
  return BoxesMeet(Min(leg.from, leg.to), Max(leg.from, leg.to), mVolume->mBoxMin - reach,
                   mVolume->mBoxMax + reach);
}

bool VolumeSolid::MeetAtRest(const Vec3d& from, const Vec3d& to, const Touch& touch,
                             ParticleContact& contact) const {
  if (!BoxesMeet(Min(from, to), Max(from, to), mVolume->mBoxMin, mVolume->mBoxMax)) return false;
  MeetSolid(*this, from, to, touch, contact);
  if (mSkin) MeetSkin(from, contact.hit ? contact.position : to, touch, contact);
  return contact.hit;
}

/// Between two places of which the nearest parts are others a thin wall may lie that distances
/// don't show: what comes from outside stops at its triangles.
void VolumeSolid::MeetSkin(const Vec3d& from, const Vec3d& to, const Touch& touch,
                           ParticleContact& contact) const {
  const auto outside =
      mSharp->LooksInwards() ? SweptSurface::Side::Back : SweptSurface::Side::Front;
  SweptSurface::Meeting met;
  if (!mSkin->Meet(from, to, 0, 1, outside, met)) return;
  contact.hit = true;
  contact.slides = false;
  contact.share = met.share;
  contact.entry = contact.position =
      met.at + met.normal * std::max(double{touch.radius}, kLeastSkin * CellSize());
  contact.normal = met.normal;
  contact.depth = -Length(to - met.at);
}

bool VolumeSolid::MeetSwept(const Leg& leg, const Touch& touch, ParticleContact& contact) const {
  const double radius = std::max(double{touch.radius}, kLeastSkin * CellSize());
  if (SweptSurface::Meeting met;
      mSwept->Meet(leg.from, leg.to, leg.begin, leg.end, SweptSurface::Side::Any, met)) {
    contact.hit = true;
    contact.share = met.share;
    contact.entry = met.at + met.normal * radius;
    contact.normal = met.normal;
    contact.motion = met.motion;
    // What may not go on stays before the point that it met.
    contact.position = met.end + met.endNormal * radius;
    contact.depth = -Length(leg.to - met.end);
    return true;
  }
  // Its distances tell of the end of the step.
  return leg.end == 1 && !IsSheet() && MeetAtRest(leg.to, leg.to, touch, contact);
}

bool VolumeSolid::Meet(const Leg& leg, const Touch& touch, ParticleContact& contact) const {
  contact = {};
  if (IsEmpty() || !MayMeet(leg)) return false;
  if (mSwept) return MeetSwept(leg, touch, contact);
  if (!Moves()) return MeetAtRest(leg.from, leg.to, touch, contact);
  const Vec3d from = mMotion.ToEnd(leg.from, leg.begin), to = mMotion.ToEnd(leg.to, leg.end);
  if (!MeetAtRest(from, to, touch, contact)) return false;
  const double time = leg.begin + contact.share * (leg.end - leg.begin);
  contact.motion = mMotion.WayAt(contact.slides ? contact.position : contact.entry);
  const Vec3d base = mMotion.FromEnd(contact.entry, time);
  contact.position = contact.slides ? mMotion.FromEnd(contact.position, leg.end)
                                    : mMotion.FromEnd(contact.entry, leg.end);
  contact.normal = mMotion.FromEnd(contact.entry + contact.normal, time) - base;
  contact.entry = base;
  return true;
}

SolidDistance VolumeSolid::At(const Vec3d& p) const {
  const double cell = CellSize();
  // Beyond its box a volume is a cell away at least.
  if (!mVolume->IsInBounds(p)) return {cell};
  const double distance = mVolume->DistanceAtWorld(p);
  if (!mSharp || IsBeyondThin(distance)) return {distance};
  const SharpSurface::Nearest nearest = mSharp->Find(p);
  if (nearest.triangle < 0) return {distance};
  return {nearest.distance, NormalOff(*mSharp, nearest, p), true};
}

Vec3d VolumeSolid::NormalAt(const Vec3d& p, const SolidDistance& at) const {
  return at.isOfThin ? at.thinNormal : Normalised(mVolume->GradientAtWorld(p));
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
