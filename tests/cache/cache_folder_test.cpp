// Names of cache files, and what a folder holds.
#include "cache/cache_folder.h"

#include <gtest/gtest.h>

#include <fstream>

#include "host/temp_folder.h"

namespace MELDO_GLOBAL {
namespace {

std::string PathOf(const CacheName& names, i32 frame) {
  std::filesystem::path path;
  names.BuildPath(path, frame);
  return path.string();
}

TEST(CacheName, FramesArePaddedUpToTenThousand) {
  CacheName names("sulva_grid_frame");
  names.SetFolder("folder");
  EXPECT_EQ(PathOf(names, 7), "folder/sulva_grid_frame00007.cache");
  names.SetName("mine");
  EXPECT_EQ(PathOf(names, 12345), "folder/mine12345.cache");
  names.SetDigits(6);
  EXPECT_EQ(PathOf(names, 9999), "folder/mine009999.cache");
  EXPECT_EQ(PathOf(names, 10000), "folder/mine10000.cache");
  names.SetDigits(2);
  EXPECT_EQ(PathOf(names, 5), "folder/mine05.cache");
  EXPECT_EQ(PathOf(names, 500), "folder/mine500.cache");
  for (const auto& [format, suffix] :
       {std::pair{24, "mcache"}, {25, "mcache"}, {22, "mcache"}, {2, "bgeo"}, {17, "geo"}}) {
    names.SetFormat(format);
    EXPECT_EQ(names.GetSuffix(), suffix) << format;
  }
  names.Reset();
  EXPECT_EQ(PathOf(names, 1), "sulvacache00001.cache");
}

TEST(CacheFolder, ScanTellsGapsAndSizesOfItsOwnFilesAlone) {
  const host::TempFolder folder;
  const auto write = [&](const std::string& name, std::size_t bytes) {
    std::ofstream(folder.Path() / name) << std::string(bytes, 'x');
  };
  write("fire00002.cache", 700);
  write("fire00003.cache", 600);
  write("fire00006.cache", 400);
  write("fire_hot00004.cache", 50);
  write("fire200004.cache", 50);
  write("fire00005.mcache", 50);
  write("fire.cache", 50);
  CacheName names("other");
  names.SetFolder(folder.Path());
  EXPECT_FALSE(ScanCache(names).found);
  names.SetName("fire");
  const CacheFolderInfo info = ScanCache(names);
  EXPECT_TRUE(info.found);
  EXPECT_EQ(info.firstFrame, 2);
  EXPECT_EQ(info.lastFrame, 6);
  EXPECT_EQ(info.missingFrames, (std::vector<FrameRun>{{0, 1}, {4, 5}}));
  EXPECT_EQ(StatisticsOf(info), "Length: 5(2 - 6)\nSize: 1.7 kB\nMissing Frames: 4\n");

  for (const char* name : {"ember10.cache", "ember100.cache", "ember9.cache"}) write(name, 1);
  names.SetName("ember");
  EXPECT_EQ(ScanCache(names).firstFrame, 9);
  EXPECT_EQ(ScanCache(names).lastFrame, 100);
}

}  // namespace
}  // namespace MELDO_GLOBAL
