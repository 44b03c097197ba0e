#include "io/statistics.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include "io/json_line.h"

namespace MELDO_GLOBAL::app {

using namespace MELDO_SULVA;

namespace {

void FormatStages(JsonLine& json, const FrameRecord& record) {
  json.Key("stages").Open('[');
  for (const StageRow& stage : kPipeline) {
    const bool isTimed = (stage.number >= kInitialiseSubstep && stage.number <= kFinish) ||
                         (stage.number >= kStartVisual && stage.number <= kVisualPost);
    if (!isTimed || !record.simulated) continue;
    json.Open('{').Key("stage").Number(i64{stage.number}).Key("name").Text(stage.name);
    json.Key("wall_s").Number(record.stageSeconds[stage.number]).Close('}');
  }
  json.Close(']');
}

void FormatChannel(JsonLine& json, const ChannelRecord& channel) {
  json.Key(channel.name).Open('{');
  json.Key("dims").Vector(channel.dims).Key("origin").Vector(channel.origin);
  json.Key("cell_size").Number(channel.cellSize);
  const auto value = [&](std::string_view key, const Vec3d& v) {
    json.Key(key);
    channel.components == 3 ? json.Vector(v) : json.Number(v.x);
  };
  value("min", channel.min);
  value("max", channel.max);
  value("sum", channel.sum);
  json.Close('}');
}

void FormatSolver(JsonLine& json, const SolverRecord& solver) {
  json.Key(solver.name).Open('{');
  json.Key("dims").Vector(solver.dims);
  json.Key("max_speed").Number(solver.maxSpeed);
  json.Key("kinetic_energy").Number(solver.kineticEnergy);
  json.Key("divergence_max").Number(solver.divergenceMax);
  json.Key("pressure").Open('[');
  for (const ProjectionReport& report : solver.pressure) {
    json.Open('{').Key("iterations").Number(i64{report.iterations});
    json.Key("residual").Number(report.residual).Close('}');
  }
  json.Close(']').Close('}');
}

/// The first lines of a file: how many are whole, at most `most`, and their bytes.
struct FirstLines {
  i32 count = 0;
  u64 bytes = 0;

  FirstLines(const std::filesystem::path& path, i32 most) {
    std::ifstream file(path, std::ios::binary);
    for (std::string line; count < most && std::getline(file, line) && !file.eof(); ++count)
      bytes += line.size() + 1;
  }
};

}  // namespace

std::string FormatFrame(const FrameRecord& record) {
  JsonLine json;
  json.Open('{').Key("frame").Number(i64{record.frame});
  json.Key("elapsed_s").Number(record.elapsed);
  json.Key("substeps").Number(static_cast<i64>(record.steps.size()));
  json.Key("dt_s").Open('[');
  for (const double step : record.steps) json.Number(step);
  json.Close(']');
  json.Key("wall_s").Number(record.wallSeconds);
  json.Key("peak_rss_bytes").Number(static_cast<i64>(record.peakMemory));
  FormatStages(json, record);
  json.Key("channels").Open('{');
  for (const ChannelRecord& channel : record.channels) FormatChannel(json, channel);
  json.Close('}').Key("solvers").Open('{');
  for (const SolverRecord& solver : record.solvers) FormatSolver(json, solver);
  json.Close('}');
  json.Key("particles").Open('{').Close('}').Key("bodies").Open('{').Close('}');
  return json.Close('}').Str();
}

std::string FormatSummary(i32 frames, double wallSeconds, int exitCode) {
  JsonLine json;
  json.Open('{').Key("summary").Open('{').Key("frames").Number(i64{frames});
  json.Key("wall_s").Number(wallSeconds).Key("exit_code").Number(i64{exitCode});
  return json.Close('}').Close('}').Str();
}

StatisticsFile::StatisticsFile(std::filesystem::path path, i32 keep) : mPath(std::move(path)) {
  std::error_code ignored;  // opening the file tells it too
  if (mPath.has_parent_path()) std::filesystem::create_directories(mPath.parent_path(), ignored);
  const FirstLines kept(mPath, keep);
  if (kept.bytes > 0) std::filesystem::resize_file(mPath, kept.bytes, ignored);
  mFile.reset(std::fopen(mPath.c_str(), kept.bytes > 0 ? "ae" : "we"));
  if (!mFile) {
    Fail();
    return;
  }
  mWritten = kept.bytes;
  if (kept.count < keep)
    mWarning = fmt::format("{} has {} of the {} frames that the run had written before",
                           mPath.string(), kept.count, keep);
}

void StatisticsFile::Fail() {
  mWarning = "cannot write the statistics to " + mPath.string() + ": " + std::strerror(errno);
  mFile.reset();
}

void StatisticsFile::WriteLine(const std::string& line) {
  if (!mFile) return;
  errno = 0;
  std::fwrite(line.data(), 1, line.size(), mFile.get());
  std::fputc('\n', mFile.get());
  if (std::fflush(mFile.get()) == 0) {
    mWritten += line.size() + 1;
    return;
  }
  Fail();
  // A line is there whole or not at all.
  std::error_code ignored;
  if (std::filesystem::is_regular_file(mPath, ignored))
    std::filesystem::resize_file(mPath, mWritten, ignored);
}

}  // namespace MELDO_GLOBAL::app
