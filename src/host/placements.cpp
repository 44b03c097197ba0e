#include "host/placements.h"

#include <fmt/format.h>

#include <cmath>
#include <iterator>
#include <vector>

#include "host/gltf_data.h"
#include "host/mesh_files.h"
#include "host/mesh_readers.h"
#include "host/turn_by.h"

namespace MELDO_GLOBAL::host {

Matrix Placements::At(double frame) const {
  const auto next = mFrames.upper_bound(frame);
  if (next == mFrames.begin()) return next == mFrames.end() ? Matrix{} : next->second;
  const auto& [from, a] = *std::prev(next);
  if (next == mFrames.end() || from == frame) return a;
  const double t = (frame - from) / (next->first - from);
  const TurnBy turn(RotationVector(a, next->second) * t);
  return {a.offset + (next->second.offset - a.offset) * t, turn(a.v1), turn(a.v2), turn(a.v3)};
}

namespace {

using Json = GltfData::Json;

/// The turn of a quaternion x y z w.
Matrix TurnOf(const double* q) {
  const double n = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
  if (!(n > 0)) throw MeshFileError("has a rotation that is none");
  const double x = q[0] / n, y = q[1] / n, z = q[2] / n, w = q[3] / n;
  return {{},
          {1 - 2 * (y * y + z * z), 2 * (x * y + z * w), 2 * (x * z - y * w)},
          {2 * (x * y - z * w), 1 - 2 * (x * x + z * z), 2 * (y * z + x * w)},
          {2 * (x * z + y * w), 2 * (y * z - x * w), 1 - 2 * (x * x + y * y)}};
}

class PlacementReader {
 public:
  PlacementReader(const std::string& bytes, const std::filesystem::path& folder)
      : mData(bytes, folder) {}

  Placements Read(const std::string& name, double fps) {
    const Json& root = mData.Root();
    const u64 node = NodeOf(name);
    if (root.contains("animations"))
      for (const Json& animation : root.at("animations")) ReadAnimation(animation, node);
    if (mTimes.empty()) throw MeshFileError(fmt::format("has no animation of a node \"{}\"", name));
    double unit = 1, first = 0;
    if (root.contains("extras")) {
      unit = root.at("extras").value("host_units", 1.0);
      first = root.at("extras").value("first_frame", 0.0);
    }
    Placements placements;
    for (std::size_t i = 0; i < mTimes.size(); ++i) {
      Matrix m;
      if (!mTurns.empty()) m = TurnOf(&mTurns[4 * i]);
      if (!mOffsets.empty())
        m.offset = Vec3d{mOffsets[3 * i], mOffsets[3 * i + 1], mOffsets[3 * i + 2]} * unit;
      if (!std::isfinite(m.offset.x + m.offset.y + m.offset.z + first))
        throw MeshFileError("has a place that isn't finite");
      // Times are in single precision: frames are whole where they nearly are.
      const double frame = mTimes[i] * fps, whole = std::round(frame);
      placements.Add(first + (std::fabs(frame - whole) < 1e-3 ? whole : frame), m);
    }
    return placements;
  }

 private:
  u64 NodeOf(const std::string& name) {
    if (mData.Root().contains("nodes")) {
      const Json& nodes = mData.Root().at("nodes");
      for (u64 i = 0; i < nodes.size(); ++i)
        if (nodes.at(i).value("name", std::string()) == name) return i;
    }
    throw MeshFileError(fmt::format("has no node \"{}\"", name));
  }

  void ReadAnimation(const Json& animation, u64 node) {
    for (const Json& channel : animation.at("channels")) {
      const Json& target = channel.at("target");
      const std::string path = target.value("path", std::string());
      if (GltfData::Unsigned(target, "node", ~u64{0}) != node ||
          (path != "translation" && path != "rotation"))
        continue;
      const Json& sampler = animation.at("samplers").at(GltfData::Unsigned(channel, "sampler", 0));
      if (sampler.value("interpolation", std::string("LINEAR")) == "CUBICSPLINE")
        throw MeshFileError("has a motion by cubic splines, which isn't read");
      const bool turns = path == "rotation";
      const std::vector<double> times = mData.Numbers(GltfData::Unsigned(sampler, "input", 0), 1);
      if (!mTimes.empty() && times != mTimes)
        throw MeshFileError("has a translation and a rotation with keys at different times");
      mTimes = times;
      std::vector<double>& values = turns ? mTurns : mOffsets;
      const u64 size = turns ? 4 : 3;
      values = mData.Numbers(GltfData::Unsigned(sampler, "output", 0), size);
      if (values.size() != size * times.size())
        throw MeshFileError("has an animation with another number of keys than times");
    }
  }

  GltfData mData;
  std::vector<double> mTimes, mOffsets, mTurns;
};

}  // namespace

Placements ReadPlacements(const std::filesystem::path& file, const std::string& node, double fps) {
  const std::string name = fmt::format("file \"{}\" ", file.string());
  try {
    return PlacementReader(ReadBytes(file), file.parent_path()).Read(node, fps);
  } catch (const MeshFileError& error) {
    throw MeshFileError(name + error.what());
  } catch (const Json::exception&) {
    throw MeshFileError(name + "isn't a glTF file with an animation: its description is broken");
  }
}

}  // namespace MELDO_GLOBAL::host
