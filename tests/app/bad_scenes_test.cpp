// Every scene in tests/bad_scenes gives exactly the messages and the exit code that stand in the
// file of its name that ends in .expected: "exit N", then standard error.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "app/command_line.h"

namespace fs = std::filesystem;
using namespace MELDO_GLOBAL;

namespace {

const fs::path kFolder = fs::path(SULVA_SOURCE_DIR) / "tests/bad_scenes";

std::string Read(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> BadScenes() {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(kFolder))
    if (entry.path().extension() == ".expected") names.push_back(entry.path().stem().string());
  std::sort(names.begin(), names.end());
  return names;
}

struct Answer {
  int code;
  std::string out, err;
};

Answer Command(std::vector<std::string> words) {
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  const int code = app::Main(static_cast<int>(arguments.size()), arguments.data());
  std::string out = testing::internal::GetCapturedStdout();
  return {code, std::move(out), testing::internal::GetCapturedStderr()};
}

class BadScene : public testing::TestWithParam<std::string> {};

}  // namespace

TEST_P(BadScene, GivesItsMessage) {
  const fs::path before = fs::current_path();
  fs::current_path(kFolder);
  const Answer answer = Command({"sulva", "check", GetParam() + ".json"});
  fs::current_path(before);
  EXPECT_EQ("exit " + std::to_string(answer.code) + "\n" + answer.err,
            Read(kFolder / (GetParam() + ".expected")));
  EXPECT_EQ(answer.out, "");
}

INSTANTIATE_TEST_SUITE_P(Scenes, BadScene, testing::ValuesIn(BadScenes()),
                         [](const auto& scene) { return scene.param; });

TEST(BadScenes, EachHasItsMessage) {
  for (const auto& entry : fs::directory_iterator(kFolder))
    EXPECT_TRUE(entry.path().extension() != ".json" ||
                fs::exists(fs::path(entry.path()).replace_extension(".expected")))
        << entry.path();
}

TEST(BadScenes, AFileThatCantBeReadIsAFileError) {
  EXPECT_EQ(Command({"sulva", "check", (kFolder / "nowhere.json").string()}).code, 5);
  EXPECT_EQ(Command({"sulva", "check", kFolder.string()}).code, 5);
}
