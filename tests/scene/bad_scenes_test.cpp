// Every scene in tests/bad_scenes gives exactly the messages and the exit code that stand in the
// file of its name that ends in .expected: "exit N", then the messages on standard
// error. They are checked, or given to the command in the file that ends in .command, where
// SCENE stands for the scene and OUT for an output folder.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "cli/command_line.h"
#include "paths.h"

namespace fs = std::filesystem;
using namespace MELDO_GLOBAL;

namespace {

const fs::path kFolder = fs::path(SourcePath()) / "tests/bad_scenes";

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

std::string Replaced(std::string text, const std::string& what, const std::string& with) {
  for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += with.size())
    text.replace(at, what.size(), with);
  return text;
}

/// The words of a bad scene's command.
std::vector<std::string> WordsOf(const std::string& name, const fs::path& out) {
  std::vector<std::string> words = {"sulva"};
  std::ifstream file(kFolder / (name + ".command"));
  for (std::string word; file >> word;)
    words.push_back(word == "SCENE" ? name + ".json" : word == "OUT" ? out.string() : word);
  if (words.size() == 1) words.insert(words.end(), {"check", name + ".json"});
  return words;
}

std::string Messages(const std::string& text) {
  std::istringstream lines(text);
  std::string kept;
  for (std::string line; std::getline(lines, line);)
    if (line.find("error: ") != line.npos || line.find("warning: ") != line.npos ||
        line.starts_with("Try "))
      kept += line + "\n";
  return kept;
}

class BadScene : public testing::TestWithParam<std::string> {};

}  // namespace

TEST_P(BadScene, GivesItsMessage) {
  const fs::path before = fs::current_path();
  fs::current_path(kFolder);
  const fs::path out =
      fs::path(testing::TempDir()) / ("sulva_bad_" + std::to_string(getpid()) + GetParam());
  const Answer answer = Command(WordsOf(GetParam(), out));
  fs::current_path(before);
  fs::remove_all(out);
  EXPECT_EQ("exit " + std::to_string(answer.code) + "\n" +
                Replaced(Messages(answer.err), out.string(), "OUT"),
            Read(kFolder / (GetParam() + ".expected")));
  EXPECT_EQ(answer.out, "");
}

INSTANTIATE_TEST_SUITE_P(Scenes, BadScene, testing::ValuesIn(BadScenes()),
                         [](const auto& scene) { return scene.param; });

TEST(BadScenes, EachHasItsMessage) {
  for (const auto& entry : fs::directory_iterator(kFolder))
    EXPECT_TRUE((entry.path().extension() != ".json" && entry.path().extension() != ".command") ||
                fs::exists(fs::path(entry.path()).replace_extension(".expected")))
        << entry.path();
}

TEST(BadScenes, AFileThatCantBeReadIsAFileError) {
  EXPECT_EQ(Command({"sulva", "check", (kFolder / "nowhere.json").string()}).code, 5);
  EXPECT_EQ(Command({"sulva", "check", kFolder.string()}).code, 5);
}
