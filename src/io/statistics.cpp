#include "io/statistics.h"

#include <fmt/format.h>

#include <algorithm>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <sstream>
#include <utility>

#include "host/atomic_file.h"
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

/// An object of named numbers.
using Entries = std::initializer_list<std::pair<std::string_view, double>>;
void FormatEntries(JsonLine& json, std::string_view key, Entries entries) {
  json.Key(key).Open('{');
  for (const auto& [name, value] : entries) json.Key(name).Number(value);
  json.Close('}');
}

void FormatLedger(JsonLine& json, const FieldLedger& ledger) {
  FormatEntries(json, "ledger",
                {{"emitted", ledger.emitted},
                 {"made", ledger.made},
                 {"burnt", ledger.burnt},
                 {"left", ledger.left},
                 {"trimmed", ledger.trimmed},
                 {"trapped", ledger.trapped},
                 {"handed_over", ledger.handedOver},
                 {"drift", ledger.drift},
                 {"total", ledger.total}});
}

void FormatVolume(JsonLine& json, const VolumeLedger& ledger) {
  FormatEntries(json, "volume",
                {{"made", ledger.made},
                 {"solids", ledger.solids},
                 {"squeezed", ledger.squeezed},
                 {"left", ledger.left},
                 {"drift", ledger.drift}});
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
  if (channel.ledger) FormatLedger(json, *channel.ledger);
  json.Close('}');
}

template <class Report>
void FormatSolves(JsonLine& json, std::string_view name, const std::vector<Report>& reports,
                  bool isTimed) {
  json.Key(name).Open('[');
  for (const Report& report : reports) {
    json.Open('{').Key("iterations").Number(i64{report.iterations});
    json.Key("residual").Number(report.residual);
    if (isTimed) json.Key("wall_s").Number(report.wallSeconds);
    json.Close('}');
  }
  json.Close(']');
}

void FormatSolver(JsonLine& json, const SolverRecord& solver) {
  json.Key(solver.name).Open('{');
  json.Key("dims").Vector(solver.dims);
  json.Key("max_speed").Number(solver.maxSpeed);
  json.Key("kinetic_energy").Number(solver.kineticEnergy);
  json.Key("divergence_max").Number(solver.divergenceMax);
  // What the one costs is told beside what the other does.
  const bool isViscous = !solver.viscosity.empty();
  FormatSolves(json, "pressure", solver.pressure, isViscous);
  if (isViscous) FormatSolves(json, "viscosity", solver.viscosity, true);
  if (solver.volume) FormatVolume(json, *solver.volume);
  if (solver.liquid) json.Key("liquid_volume").Number(*solver.liquid);
  json.Close('}');
}

void FormatParticles(JsonLine& json, const ParticlesRecord& group) {
  json.Key(group.name).Open('{');
  for (const ParticleKindRow& kind : kParticleKindRows)
    json.Key(kind.name).Number(group.counts[kind.kind]);
  json.Key("born").Number(group.born).Key("died").Number(group.died);
  json.Key("centroid").Vector(group.centroid);
  json.Key("mean_velocity").Vector(group.meanVelocity);
  json.Key("kinetic_energy").Number(group.kineticEnergy);
  json.Key("box").Open('[').Vector(group.min).Vector(group.max).Close(']');
  json.Close('}');
}

void FormatMesh(JsonLine& json, const MeshRecord& mesh) {
  json.Key(mesh.name).Open('{').Key("points").Number(mesh.points);
  json.Key("polygons").Number(mesh.polygons);
  json.Key("area").Number(mesh.area).Key("volume").Number(mesh.volume).Close('}');
}

void FormatBody(JsonLine& json, const BodyRecord& body) {
  json.Key(body.name).Open('{').Key("mass").Number(body.mass);
  json.Key("position").Vector(body.position);
  json.Key("rotation").Open('[');
  for (const double part : body.rotation) json.Number(part);
  json.Close(']');
  json.Key("linear_velocity").Vector(body.linearVelocity);
  json.Key("angular_velocity").Vector(body.angularVelocity);
  json.Key("fluid_force").Vector(body.fluidForce).Key("fluid_torque").Vector(body.fluidTorque);
  json.Key("contacts").Number(body.contacts);
  json.Key("asleep").Bool(body.isAsleep).Close('}');
}

void FormatWarnings(JsonLine& json, const std::vector<std::string>& warnings) {
  json.Key("warnings").Open('[');
  for (const std::string& warning : warnings) json.Text(warning);
  json.Close(']');
}

}  // namespace

std::string FormatFrame(const FrameRecord& record) {
  JsonLine json;
  json.Open('{').Key("frame").Number(i64{record.frame});
  json.Key("elapsed_s").Number(record.elapsed);
  json.Key("substeps").Number(static_cast<i64>(record.steps.size()));
  json.Key("dt_s").Open('[');
  for (const double step : record.steps) json.Number(step);
  json.Close(']').Key("cfl").Number(record.cfl);
  json.Key("wall_s").Number(record.wallSeconds);
  json.Key("peak_rss_bytes").Number(static_cast<i64>(record.peakMemory));
  FormatStages(json, record);
  json.Key("channels").Open('{');
  for (const ChannelRecord& channel : record.channels) FormatChannel(json, channel);
  json.Close('}').Key("solvers").Open('{');
  for (const SolverRecord& solver : record.solvers) FormatSolver(json, solver);
  json.Close('}');
  json.Key("particles").Open('{');
  for (const ParticlesRecord& group : record.particles) FormatParticles(json, group);
  json.Close('}').Key("meshes").Open('{');
  for (const MeshRecord& mesh : record.meshes) FormatMesh(json, mesh);
  json.Close('}').Key("bodies").Open('{');
  for (const BodyRecord& body : record.bodies) FormatBody(json, body);
  json.Close('}');
  FormatWarnings(json, record.warnings);
  return json.Close('}').Str();
}

std::string FormatSummary(i32 frames, double wallSeconds, int exitCode,
                          const std::vector<std::string>& warnings) {
  JsonLine json;
  json.Open('{').Key("summary").Open('{').Key("frames").Number(i64{frames});
  json.Key("wall_s").Number(wallSeconds).Key("exit_code").Number(i64{exitCode});
  FormatWarnings(json, warnings);
  return json.Close('}').Close('}').Str();
}

template <class Work>
void StatisticsFile::Try(Work&& work) {
  if (mHasFailed) return;
  try {
    work();
  } catch (const host::FileError& error) {
    mHasFailed = true;
    mWarning = fmt::format("{} isn't whole: {}", mLog.Path().string(), error.what());
  }
}

void StatisticsFile::GoOn(i32 frame, i32 expected) {
  Try([&] {
    mIsOurs = mLog.GoOn();
    const i32 there = mIsOurs ? mLog.CountUpTo(frame) : 0;
    if (there < expected)
      mWarning = fmt::format("{} has {} of the {} frames that the run had written before",
                             mLog.Path().string(), there, expected);
  });
}

namespace {

/// The warnings of all frames in a file, each once. Read back from it, a run that was resumed tells
/// those of before too.
std::vector<std::string> ToldByFrames(const std::filesystem::path& path) {
  std::vector<std::string> told;
  std::istringstream lines(host::ReadFile(path));
  for (std::string line; std::getline(lines, line);) {
    if (line.find(R"("warnings":[])") != std::string::npos) continue;
    const nlohmann::json frame = nlohmann::json::parse(line, nullptr, false);
    if (!frame.is_object() || !frame.contains("warnings")) continue;
    for (std::string warning : frame["warnings"])
      if (std::find(told.begin(), told.end(), warning) == told.end())
        told.push_back(std::move(warning));
  }
  return told;
}

}  // namespace

void StatisticsFile::StartIfNew() {
  if (!mIsOurs) mLog.Start({});
  mIsOurs = true;
}

void StatisticsFile::WriteFrame(const FrameRecord& record) {
  Try([&] {
    StartIfNew();
    if (!mLog.Has(record.frame)) mLog.Put(record.frame, FormatFrame(record));
  });
}

void StatisticsFile::WriteSummary(i32 frames, double wallSeconds, int exitCode,
                                  const std::vector<std::string>& warnings) {
  std::error_code failed;
  if (!mIsOurs && frames == 0 && std::filesystem::exists(mLog.Path(), failed) && exitCode != 0)
    return;
  Try([&] {
    StartIfNew();
    std::vector<std::string> all = ToldByFrames(mLog.Path());
    for (const std::string& warning : warnings)
      if (std::find(all.begin(), all.end(), warning) == all.end()) all.push_back(warning);
    mLog.Finish(FormatSummary(frames, wallSeconds, exitCode, all));
  });
}

void StatisticsFile::Sync() {
  Try([&] { mLog.Sync(); });
}

}  // namespace MELDO_GLOBAL::app
