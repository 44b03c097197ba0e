// Kinds of particles, and what a particle's word of flags says.
#pragma once
#include <array>
#include <string_view>
#include <vector>

#include "host/parameter.h"
#include "host/types.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Bits of a particle's `flags`.
enum ParticleFlag : u16 {
  PF_ALIVE = 0x0001,         ///< clear: it leaves at the end of the step
  PF_SORTED = 0x0002,        ///< lies in the cells of a `ParticleSort`
  PF_COLLIDED = 0x0004,      ///< hit something in this frame
  PF_SHEET_FILLER = 0x0008,  ///< put in to close a gap of a sheet
  PF_MARK = 0x0010,          ///< a mark for one step; trees may take the marked ones alone
  PF_SPAWNED = 0x0020,       ///< has been split into others
  PF_KIND_PASSIVE = 0x0040,
  PF_KIND_LIQUID = 0x0080,
  PF_KIND_VORTICITY = 0x0100,   ///< born with the vector `vorticity`
  PF_KIND_DIFFUSE = 0x0200,     ///< born with a life of 100 frames
  PF_BALLISTIC = 0x0400,        ///< moved by forces, not by a flow; born with a mass of 1
  PF_BUBBLE = 0x0800,           ///< dragged by a flow against gravity
  PF_NEWBORN = 0x1000,          ///< until its age first lies below its life span
  PF_SPLINE_APPROACH = 0x2000,  ///< on its way to a spline that it follows
  PF_SPLINE_FOLLOW = 0x4000,
  PF_SPLINE_DONE = 0x8000,
};
inline constexpr u16 kBornFlags = PF_NEWBORN | PF_SORTED | PF_ALIVE;

/// The kinds of particles of a group; each has a store of its own there.
enum ParticleKind : i32 {
  kPassive = 0,    ///< tracers
  kVortex = 1,  ///< carriers of a vorticity vector
  kLiquid = 2,     ///< what liquids are made of
  kDiffuse = 3,    ///< foam, spray and bubbles
};
inline constexpr i32 kParticleKinds = 4;
constexpr bool IsParticleKind(i32 kind) { return kind >= 0 && kind < kParticleKinds; }

struct ParticleKindRow {
  ParticleKind kind;
  std::string_view name;  ///< the word of scene files and statistics
  u16 flag;               ///< what an emitter gives to what it makes
  u32 listFlag;           ///< what an entry of a list of groups says
};
inline constexpr std::array<ParticleKindRow, kParticleKinds> kParticleKindRows = {{
    {kPassive, "passive", PF_KIND_PASSIVE, 1},
    {kVortex, "vorticity", PF_KIND_VORTICITY, 4},
    {kLiquid, "liquid", PF_KIND_LIQUID, 2},
    {kDiffuse, "diffuse", PF_KIND_DIFFUSE, 8},
}};

/// Whether the flags of an entry of a list of groups name a kind; no flags name all.
constexpr bool NamesKind(u32 listFlags, i32 kind) {
  return listFlags == 0 || (listFlags & kParticleKindRows[kind].listFlag);
}
/// The choices of a row that picks a kind.
inline std::vector<host::Choice> ParticleKindChoices() {
  std::vector<host::Choice> choices;
  for (const ParticleKindRow& row : kParticleKindRows) choices.push_back({row.kind, row.name});
  return choices;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
