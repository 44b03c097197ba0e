// Runs a scene by the command, as a user would.
#pragma once
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "paths.h"

struct SceneRun {
  int status = -1;
  std::string errors;
  std::vector<nlohmann::json> frames;  ///< lines of the statistics
};

/// Runs a scene's frames up to `last` at another cell size, in a folder of its own; `options` go to
/// the command.
inline SceneRun RunCoarsely(const std::filesystem::path& scene, double cellSize, int last,
                            const std::string& options = "") {
  namespace fs = std::filesystem;
  // Tests of one scene may run at once.
  const fs::path out = fs::temp_directory_path() /
                       ("sulva_" + std::to_string(getpid()) + "_ready_" + scene.stem().string());
  fs::remove_all(out);
  fs::create_directories(out);
  std::ostringstream command;
  command << '"' << BinaryPath() << "\" run \"" << scene.string()
          << "\" --quiet --frames 0:" << last << " --out \"" << (out / "run").string()
          << "\" --set scene.cell_size=" << cellSize << ' ' << options << " 2> \""
          << (out / "errors").string() << '"';
  SceneRun run;
  run.status = std::system(command.str().c_str());
  std::ifstream errors(out / "errors");
  run.errors.assign(std::istreambuf_iterator<char>(errors), {});
  std::ifstream lines(out / "run" / "stats.jsonl");
  for (std::string line; std::getline(lines, line);)
    if (auto value = nlohmann::json::parse(line); value.contains("frame"))
      run.frames.push_back(std::move(value));
  fs::remove_all(out);
  return run;
}
