// The typed stream: what goes in comes out, and nothing broken gets through.
#include "cache/hyper_file.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>

#include "host/atomic_file.h"
#include "host/file_limit.h"
#include "host/temp_folder.h"

namespace MELDO_GLOBAL {
namespace {

std::string OneOfEach() {
  HyperFile file;
  file.StartMemory(kCacheIdent);
  file.WriteLong(-7);
  file.WriteWord(-300);
  file.WriteUWord(65000);
  file.WriteBool(true);
  file.WriteSReal(0.1f);
  file.WriteReal(-0.0);
  file.WriteLReal(1e-310);
  file.WriteVector({1, 2, 3});
  file.WriteText("text");
  file.WriteChunkStart(4, 2);
  file.WriteMemory("block", 5);
  file.WriteChunkStart(5, 3);
  file.WriteLLong(i64{1} << 40);
  file.WriteChunkEnd();
  file.WriteChunkEnd();
  file.WriteLong(9);
  return file.TakeBytes();
}

/// Reads what `OneOfEach` wrote; false at the first item that isn't right.
bool ReadsAll(HyperFile& file) {
  i32 n = 0, id = 0, level = 0;
  i64 wide = 0;
  i16 word = 0;
  u16 unsignedWord = 0;
  bool truth = false;
  f32 small = 0;
  double real = 1, large = 0;
  Vec3d vector;
  std::string text;
  std::span<const std::byte> block;
  return file.ReadLong(n) && n == -7 && file.ReadWord(word) && word == -300 &&
         file.ReadUWord(unsignedWord) && unsignedWord == 65000 && file.ReadBool(truth) && truth &&
         file.ReadSReal(small) && small == 0.1f && file.ReadReal(real) && real == 0 &&
         std::signbit(real) && file.ReadLReal(large) && large == 1e-310 &&
         file.ReadVector(vector) && vector == Vec3d{1, 2, 3} && file.ReadText(text) &&
         text == "text" && file.ReadChunkStart(id, level) && id == 4 && level == 2 &&
         file.ReadMemory(block) && block.size() == 5 &&
         std::memcmp(block.data(), "block", 5) == 0 && file.ReadChunkStart(id, level) && id == 5 &&
         level == 3 && file.ReadLLong(wide) && wide == i64{1} << 40 && file.AtEnd() &&
         file.ReadChunkEnd() && file.ReadChunkEnd() && file.ReadLong(n) && n == 9 && file.AtEnd();
}

TEST(HyperFile, EveryKindOfItemComesBackFromMemoryAndDisk) {
  HyperFile memory;
  ASSERT_TRUE(memory.OpenMemory(kCacheIdent, OneOfEach())) << memory.Error();
  EXPECT_TRUE(ReadsAll(memory)) << memory.Error();
  memory.Rewind();
  EXPECT_TRUE(ReadsAll(memory)) << memory.Error();

  const host::TempFolder folder;
  const auto path = folder.Path() / "deep" / "file";
  HyperFile written;
  ASSERT_TRUE(written.Open(kCacheIdent, path, HyperFile::Mode::kWrite));
  written.WriteLong(1);
  EXPECT_FALSE(std::filesystem::exists(path)) << "a file appears when it is whole";
  ASSERT_TRUE(written.Close()) << written.Error();
  HyperFile read;
  ASSERT_TRUE(read.Open(kCacheIdent, path, HyperFile::Mode::kRead)) << read.Error();
  i32 n = 0;
  EXPECT_TRUE(read.ReadLong(n) && n == 1 && read.AtEnd());
  EXPECT_FALSE(read.ReadLong(n));
}

// A file on the disk is written piece by piece and patched behind, one in memory is a single text.
TEST(HyperFile, LargeFileIsTheSameOnDiskAsInMemory) {
  std::string noise(2'500'001, '\0');
  for (std::size_t i = 0; i < noise.size(); ++i) noise[i] = static_cast<char>(i * i >> 7);
  const auto write = [&](HyperFile& file) {
    file.WriteChunkStart(1, 0);
    for (const std::size_t bytes : {700'000, 700'000, 2'500'001, 3}) {
      file.WriteChunkStart(2, 1);
      file.WriteMemory(noise.data(), bytes);
      file.WriteChunkEnd();
    }
    for (i32 i = 0; i < 300'000; ++i) file.WriteLong(i);
    file.WriteChunkEnd();
  };
  HyperFile memory;
  memory.StartMemory(kCacheIdent);
  write(memory);
  const host::TempFolder folder;
  const auto path = folder.Path() / "large";
  HyperFile disk;
  ASSERT_TRUE(disk.Open(kCacheIdent, path, HyperFile::Mode::kWrite)) << disk.Error();
  write(disk);
  ASSERT_TRUE(disk.Seal()) << disk.Error();
  EXPECT_FALSE(std::filesystem::exists(path));
  ASSERT_TRUE(disk.Close()) << disk.Error();
  EXPECT_TRUE(host::ReadFile(path) == memory.TakeBytes());
  EXPECT_EQ(disk.Size(), std::filesystem::file_size(path));
  {
    HyperFile dropped;
    ASSERT_TRUE(dropped.Open(kCacheIdent, path, HyperFile::Mode::kWrite));
    write(dropped);
  }
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.Path()), {}), 1)
      << "left behind by a dropped file";
  EXPECT_EQ(disk.Sum(), ChecksumOf(host::ReadFile(path)));
  EXPECT_TRUE(disk.Open(kCacheIdent, path, HyperFile::Mode::kRead)) << disk.Error();

  // Read by parts it is the same too, whatever stands across the ends of these.
  HyperFile parts;
  ASSERT_TRUE(parts.Open(kCacheIdent, path, HyperFile::Mode::kReadParts)) << parts.Error();
  EXPECT_EQ(parts.Sum(), disk.Sum());
  EXPECT_EQ(parts.Size(), disk.Size());
  i32 id, level, number = 0;
  std::span<const std::byte> block;
  std::string target(2'500'001, '\0');
  const auto enter = [&] { return parts.ReadChunkStart(id, level); };
  ASSERT_TRUE(enter() && enter() && parts.ReadMemory(block) && parts.ReadChunkEnd());
  EXPECT_EQ(std::memcmp(block.data(), noise.data(), 700'000), 0);
  ASSERT_TRUE(enter() && parts.SkipMemory() && parts.ReadChunkEnd()) << parts.Error();
  ASSERT_TRUE(enter() && parts.ReadMemoryTo(std::as_writable_bytes(std::span(target))) &&
              parts.ReadChunkEnd())
      << parts.Error();
  EXPECT_TRUE(target == noise);
  ASSERT_TRUE(enter() && parts.SkipToEndChunk() && parts.ReadChunkEnd());
  bool isSame = true;
  for (i32 i = 0; i < 300'000; ++i) isSame = isSame && parts.ReadLong(number) && number == i;
  EXPECT_TRUE(isSame && parts.ReadChunkEnd() && parts.AtEnd()) << parts.Error();
  parts.Rewind();
  EXPECT_FALSE(enter() && enter() && parts.ReadMemoryTo(std::as_writable_bytes(std::span(target))));
  EXPECT_NE(parts.Error().find("a block has another size than was expected"), std::string::npos);

  // A change anywhere is noticed before anything is read.
  for (const std::size_t at : {std::size_t{40}, std::size_t{2'000'000}, disk.Size() - 3}) {
    std::string damaged = host::ReadFile(path);
    damaged[at] = static_cast<char>(damaged[at] ^ 1);
    host::WriteFileAtomically(folder.Path() / "damaged", damaged);
    EXPECT_FALSE(parts.Open(kCacheIdent, folder.Path() / "damaged", HyperFile::Mode::kReadParts));
    EXPECT_FALSE(parts.Error().empty());
  }
}

TEST(HyperFile, ReaderOutOfStepIsToldWhatStandsThere) {
  HyperFile file;
  ASSERT_TRUE(file.OpenMemory(kCacheIdent, OneOfEach(), "x.cache"));
  double real = 5;
  EXPECT_FALSE(file.ReadReal(real));
  EXPECT_EQ(real, 5);
  EXPECT_EQ(file.Error(), "x.cache: at byte 32 stands a whole number where a real was expected");
  i32 n = 0;
  EXPECT_FALSE(file.ReadLong(n)) << "nothing is read behind a failure";

  // A chunk can be left early, but not read beyond its end.
  ASSERT_TRUE(file.OpenMemory(kCacheIdent, [] {
    HyperFile made;
    made.StartMemory(kCacheIdent);
    made.WriteChunkStart(1, 0);
    made.WriteLong(1);
    made.WriteLong(2);
    made.WriteChunkEnd();
    made.WriteLong(3);
    return made.TakeBytes();
  }()));
  i32 id, level;
  ASSERT_TRUE(file.ReadChunkStart(id, level) && file.ReadLong(n));
  ASSERT_TRUE(file.SkipToEndChunk() && file.ReadChunkEnd() && file.ReadLong(n));
  EXPECT_EQ(n, 3);
  file.Rewind();
  ASSERT_TRUE(file.ReadChunkStart(id, level) && file.ReadLong(n) && file.ReadLong(n));
  EXPECT_FALSE(file.ReadLong(n));
}

TEST(HyperFile, EveryTruncationAndEveryFlippedBitIsNoticed) {
  const std::string whole = OneOfEach();
  for (std::size_t length = 0; length < whole.size(); ++length) {
    HyperFile file;
    EXPECT_FALSE(file.OpenMemory(kCacheIdent, whole.substr(0, length))) << length;
    EXPECT_FALSE(file.Error().empty());
  }
  for (std::size_t at = 0; at < whole.size(); ++at)
    for (int bit = 0; bit < 8; ++bit) {
      std::string damaged = whole;
      damaged[at] = static_cast<char>(damaged[at] ^ 1 << bit);
      HyperFile file;
      EXPECT_FALSE(file.OpenMemory(kCacheIdent, damaged)) << at << " bit " << bit;
    }
  HyperFile file;
  EXPECT_FALSE(file.OpenMemory(kCacheIdent, whole + "x"));
  EXPECT_FALSE(file.OpenMemory(IdentOf("svcp"), whole));
  EXPECT_NE(file.Error().find("'zlsv', not 'svcp'"), std::string::npos) << file.Error();
}

TEST(HyperFile, LengthsThatLieAreRefusedUnderARightChecksum) {
  const std::string whole = OneOfEach();
  const std::string body = whole.substr(32, whole.size() - 40);
  int readable = 0;
  for (std::size_t at = 0; at < body.size(); ++at)
    for (const int change : {1, 2, 0x7f, 0x80, 0xff}) {
      std::string damaged = body;
      damaged[at] = static_cast<char>(damaged[at] ^ change);
      HyperFile file;
      ASSERT_TRUE(file.OpenMemory(kCacheIdent, FrameBody(kCacheIdent, damaged)));
      readable += ReadsAll(file);
    }
  EXPECT_EQ(readable, 4) << "any byte but 0 is true";
  for (std::size_t length = 0; length < body.size(); ++length) {
    HyperFile file;
    ASSERT_TRUE(file.OpenMemory(kCacheIdent, FrameBody(kCacheIdent, body.substr(0, length))));
    EXPECT_FALSE(ReadsAll(file)) << length;
  }
}

TEST(HyperFile, FailedWriteLeavesTheOldFile) {
  const host::TempFolder folder;
  const auto path = folder.Path() / "frame";
  std::ofstream(path) << "old";
  const host::FileLimit full(4'000'000);
  HyperFile file;
  ASSERT_TRUE(file.Open(kCacheIdent, path, HyperFile::Mode::kWrite));
  // More than is gathered before it is written, so that the write fails on the way.
  const std::string block(3'000'000, 'x');
  for (i32 i = 0; i < 3; ++i) {
    file.WriteChunkStart(i, 0);
    file.WriteMemory(block.data(), block.size());
    file.WriteChunkEnd();
  }
  EXPECT_FALSE(file.Close());
  EXPECT_EQ(file.Error(), "cannot write " + path.string() + ": File too large");
  EXPECT_EQ(host::ReadFile(path), "old");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.Path()), {}), 1);
}

}  // namespace
}  // namespace MELDO_GLOBAL
