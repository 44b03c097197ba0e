// Runs of the binary in a folder of their own, and what they leave.
#pragma once
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "paths.h"

namespace MELDO_GLOBAL::app {

inline std::string ReadAll(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

/// A folder for a test's scenes and outputs.
class RunFolder {
 public:
  explicit RunFolder(const std::string& name)
      : mPath(std::filesystem::path(testing::TempDir()) /
              ("sulva_" + std::to_string(getpid()) + "_" + name)) {
    std::filesystem::remove_all(mPath);
    std::filesystem::create_directories(mPath);
  }
  ~RunFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(mPath, ignored);
  }
  const std::filesystem::path& Path() const { return mPath; }
  std::filesystem::path Write(const std::string& name, const std::string& text) const {
    std::ofstream(mPath / name, std::ios::binary) << text;
    return mPath / name;
  }

  /// Starts the binary in the folder; its standard error goes to the file "errors".
  pid_t Start(const std::vector<std::string>& arguments) const {
    const pid_t child = fork();
    if (child != 0) return child;
    if (chdir(mPath.c_str()) != 0 || !freopen("errors", "w", stderr) ||
        !freopen("answers", "w", stdout))
      _exit(98);
    std::vector<char*> words = {const_cast<char*>("sulva")};
    for (const std::string& word : arguments) words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    execv(BinaryPath(), words.data());
    _exit(99);
  }
  /// The exit code, or minus the number of the signal that ended the process.
  static int Wait(pid_t child) {
    int status = 0;
    if (waitpid(child, &status, 0) != child) return -1000;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }
  int Run(const std::vector<std::string>& arguments) const { return Wait(Start(arguments)); }
  std::string Errors() const { return ReadAll(mPath / "errors"); }
  std::string Answers() const { return ReadAll(mPath / "answers"); }

  /// Every file under a folder by its name, the statistics without timings and memory.
  std::map<std::string, std::string> Files(const std::string& out) const {
    std::map<std::string, std::string> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(mPath / out)) {
      if (!entry.is_regular_file() || entry.path().filename() == ".sulva-lock") continue;
      const std::string name = std::filesystem::relative(entry.path(), mPath / out).string();
      files[name] = name == "stats.jsonl" ? Timeless(ReadAll(entry.path())) : ReadAll(entry.path());
    }
    return files;
  }
  /// Expects two output folders to hold the same files; checkpoints apart, unless asked.
  void ExpectSame(const std::string& a, const std::string& b, bool checkpointsToo = false) const {
    auto one = Files(a), two = Files(b);
    const auto isApart = [&](const auto& file) {
      return !checkpointsToo && file.first.starts_with("checkpoints/");
    };
    std::erase_if(one, isApart);
    std::erase_if(two, isApart);
    for (const auto& [name, bytes] : one) {
      ASSERT_TRUE(two.contains(name)) << name << " is missing in " << b;
      EXPECT_TRUE(two[name] == bytes) << name << " differs";
    }
    EXPECT_EQ(one.size(), two.size());
  }

 private:
  static std::string Timeless(const std::string& text) {
    std::istringstream lines(text);
    std::string out;
    for (std::string line; std::getline(lines, line);) {
      nlohmann::json value = nlohmann::json::parse(line);
      value.erase("wall_s");
      value.erase("peak_rss_bytes");
      if (value.contains("summary")) value["summary"].erase("wall_s");
      for (nlohmann::json& stage : value["stages"]) stage.erase("wall_s");
      for (nlohmann::json& solver : value["solvers"])
        for (const char* solves : {"pressure", "viscosity"})
          for (nlohmann::json& solve : solver[solves]) solve.erase("wall_s");
      out += value.dump() + "\n";
    }
    return out;
  }

  std::filesystem::path mPath;
};

/// A small scene of smoke in a box with an obstacle that moves and a cache that records it.
inline std::string RecordedSmoke(int last, double cellSize = 0.15) {
  std::string text = R"({
  "sulva": 1, "fps": 25, "range": [0, LAST],
  "objects": [
    { "name": "ball", "type": "sphere", "radius": 30, "segments": 16, "position": [0, 50, 0] },
    { "name": "block", "type": "sphere", "radius": 20, "segments": 16,
      "position": { "keys": [[0, [20, 120, 0]], [3, [20, 120, 0]], [8, [-20, 110, 10]]] } }
  ],
  "nodes": [ { "type": "server", "name": "scene", "parameters": { "cell_size": CELL }, "children": [
    { "type": "channel_scalar", "name": "smoke" },
    { "type": "channel_temp", "name": "heat", "parameters": { "value_max": 1000 } },
    { "type": "mesh", "name": "ball mesh", "parameters": { "object": "ball" } },
    { "type": "volume", "name": "ball volume", "parameters": { "mesh": "ball mesh" } },
    { "type": "mesh", "name": "block mesh", "parameters": { "object": "block" } },
    { "type": "volume", "name": "block volume", "parameters": { "mesh": "block mesh" }, "obstacle": {} },
    { "type": "emission_setting", "name": "rate", "parameters": { "amount": 60 } },
    { "type": "channelsettings", "name": "smoke source", "parameters": { "channel": "smoke", "settings": "rate" } },
    { "type": "channelsettings", "name": "heat source", "parameters": { "channel": "heat", "settings": "rate" } },
    { "type": "gridemitter", "name": "source", "parameters": { "volume": "ball volume", "channels": ["smoke source", "heat source"] } },
    { "type": "force_buoyancy", "name": "lift", "parameters": { "temperature_channel": "heat", "temperature_coefficient": 0.05 } },
    { "type": "grid_advection", "name": "move smoke", "parameters": { "target": "smoke", "solver": "gas" } },
    { "type": "grid_advection", "name": "move heat", "parameters": { "target": "heat", "solver": "gas" } },
    { "type": "grid_advection", "name": "move gas", "parameters": { "target": "gas", "solver": "gas" } },
    { "type": "fluid", "name": "gas", "position": [-105, 0, -105],
      "parameters": { "box_size": [210, 210, 210], "wall_high_y": 0, "linear_solver": 0, "forces": ["lift"] } },
    { "type": "cache", "name": "recording", "parameters": { "mode": "record", "compression": "fast",
      "objects": ["smoke", "heat", "gas", "block volume"] } }
  ] } ],
  "exports": [
    { "format": "vdb", "file": "vdb/####.vdb", "grids": { "density": "smoke", "vel": "gas", "block": "block volume" } },
    { "format": "png", "file": "preview/####.png", "grids": { "smoke": "smoke" }, "axis": "z" }
  ]
})";
  text.replace(text.find("LAST"), 4, std::to_string(last));
  text.replace(text.find("CELL"), 4, std::to_string(cellSize));
  return text;
}

}  // namespace MELDO_GLOBAL::app
