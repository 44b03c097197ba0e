// The parameters of a server by which caches are set up; no simulation reads them.
#pragma once
#include <string_view>
#include <vector>

#include "host/parameter.h"

namespace MELDO_GLOBAL::MELDO_SULVA::cache_setup {

enum Row : i32 {
  kRenderOnly = 1500,
  kMode = 1501,
  kFolder = 1503,
  kName = 1504,
  kWindow = 1505,
  kShowFrame = 1506,
  kFrameOffset = 1507,
  kCompression = 1508,
  kParticleFormat = 1509,
  kFormat = 1510,
  kNumbering = 1511,
  kCandidates = 1512,
  kPlace = 1513,
  kBackwards = 1514,
  kObjects = 1515,
  kChooseFolder = 1516,
  kSetUp = 1517,
  kCopyServer = 1518,
  kFirst = kRenderOnly,
  kLast = kCopyServer,
};

/// What is behind the name of a copy that plays what its original recorded.
inline constexpr std::string_view kCopySuffix = " cached";

/// The words of what caches of particles write; numbers between them stand for the same formats.
inline std::vector<host::Choice> ParticleFormatWords() {
  return {{0, "plain_particles"},
          {1, "prt"},
          {2, "bgeo"},
          {4, "geo"},
          {5, "bin"},
          {6, "pda"},
          {7, "pdb"},
          {8, "pdb32"},
          {9, "pdb64"},
          {10, "pdc"},
          {11, "ptc"},
          {12, "pts"},
          {13, "rib"},
          {14, "xyz"},
          {15, "mc"},
          {16, "icecache"},
          {21, "particle_cache"}};
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA::cache_setup
