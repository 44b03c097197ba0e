"""new_kind_test.py BUILD: the recipe of CONTRIBUTING.md for a new kind of node, followed on a copy of the
checkout. A drag force and a field of dust, each a pair of files and its line in the catalogue, run, link, are
validated, are known to the schema of editors and stand in the reference, and nothing else names them."""
import json
import math
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent

HEADER = """// A drag that slows the flow.
#pragma once
#include "fluids/forces/force.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Slows the flow by a share of its velocity: du/dt = -rate u.
class Force_Drag : public Force {
 public:
  using Force::Force;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  using Force::Evaluate;
  void Evaluate(ForceSample& sample) override;

 private:
  double mRate = 1.0;  ///< 1/s
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
"""

SOURCE = r"""#include "fluids/forces/force_drag.h"

#include <cmath>

#include "framework/node_kind.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

const NodeKind& Force_Drag::Kind() {
  static const NodeKind kind = {
      .id = 1390001,
      .type = "force_drag",
      .label = "GF::Drag",
      .className = "Force_Drag",
      .list = kListForces,
      .categories = kCategoryGrid,
      .priority = 20,
      .menu = {"Grids/Forces"},
      .purpose = "slows the gas down, as a screen does",
      .example = {{}, {R"({ "type": "force_drag", "name": "screen", "parameters": { "rate": 2 } })"}},
      .rows = Parameters,
      .make = MakeNode<Force_Drag>,
  };
  return kind;
}

const host::ParameterTable& Force_Drag::Parameters() {
  static const host::ParameterTable table = {
      host::RealRow(1000, "rate", 1.0, "1/s", "how soon the flow comes to rest").AtLeast(0).To(&Force_Drag::mRate),
      host::LinkRow(1001, "duration", "acts only inside this time window", {1028240}).To(&Force_Drag::mDuration),
  };
  return table;
}

void Force_Drag::Evaluate(ForceSample& sample) {
  const double loss = 1 - std::exp(-mRate * mTime->stepDuration);
  for (i32 axis = 0; axis < 3; ++axis) {
    const EGrid<double>& u = *mVelocity->GetGrid(axis);
    const i32 ahead[3] = {1, u.mNx, u.mSlice};
    const i32 face = sample.faceIndex[axis];
    sample.force[axis] -= loss * 0.5 * (u[face] + u[face + ahead[axis]]);
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
"""

CHANNEL_HEADER = """// Dust.
#pragma once
#include "fluids/fields/channel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// How much dust is in the air.
class DustChannel : public ScalarGridChannel<double, EGrid<double>> {
 public:
  DustChannel(host::BaseNode* node, Scene* scene) : ScalarGridChannel(node, scene) {}
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
"""

CHANNEL_SOURCE = r"""#include "fluids/fields/dust_channel.h"

#include "framework/node_kind.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

const NodeKind& DustChannel::Kind() {
  static const NodeKind kind = {
      .id = 1390002,
      .type = "channel_dust",
      .label = "Dust",
      .className = "DustChannel",
      .typeId = 990,
      .list = kListChannels,
      .categories = kCategoryGrid | kCategoryScalar,
      .flags = "R",
      .menu = {"Grids"},
      .purpose = "how much dust is in the air",
      .example = {{}, {R"({ "type": "channel_dust", "name": "dust" })"}},
      .rows = Parameters,
      .make = MakeNode<DustChannel>,
  };
  return kind;
}

const host::ParameterTable& DustChannel::Parameters() {
  static const host::ParameterTable table = Rows(10);
  return table;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
"""

STEPS, DT, PUSH, RATE = 8, 0.04, 5.0, 2.0
SCENE = {
    "sulva": 1, "fps": 25, "range": [0, STEPS],
    "objects": [{"name": "air", "type": "box", "size": [200, 80, 80], "position": [0, 40, 0]}],
    "nodes": [{"type": "server", "name": "scene", "parameters": {"cell_size": 0.1, "time_mode": 1, "extra_substeps": 0}, "children": [
        {"type": "mesh", "name": "air mesh", "parameters": {"object": "air"}},
        {"type": "volume", "name": "air volume", "parameters": {"mesh": "air mesh", "affects_bounds": True}},
        {"type": "force_gravity", "name": "wind", "parameters": {"acceleration": [PUSH, 0, 0]}},
        {"type": "force_drag", "name": "screen", "parameters": {"rate": RATE}},
        {"type": "grid_advection", "name": "move gas", "parameters": {"target": "gas", "solver": "gas"}},
        {"type": "fluid", "name": "gas", "position": [-80, 0, -30], "parameters": {
            "box_size": [160, 60, 60], "wall_low_x": "open", "wall_high_x": "open", "linear_solver": "multigrid",
            "forces": ["wind", "screen"]}}]}]}

# All that takes a field takes the dust: what fills, moves, thins and draws it, and what it weighs down.
DUST = [
    {"type": "channel_dust", "name": "dust"},
    {"type": "emission_setting", "name": "rate", "parameters": {"amount": 1, "absolute": True}},
    {"type": "channelsettings", "name": "pair", "parameters": {"channel": "dust", "settings": "rate"}},
    {"type": "channelsettings", "name": "warmth", "parameters": {"channel": "heat", "settings": "rate"}},
    {"type": "gridemitter", "name": "source", "parameters": {"volume": "air volume", "channels": ["pair", "warmth"]}},
    {"type": "grid_advection", "name": "move dust", "parameters": {"target": "dust", "solver": "gas"}},
    {"type": "grid_dissipate", "name": "settle", "parameters": {"channel": "dust"}},
    {"type": "channel_temp", "name": "heat"},
    {"type": "grid_advection", "name": "move heat", "parameters": {"target": "heat", "solver": "gas"}},
    {"type": "force_buoyancy", "name": "lift", "parameters": {"temperature_channel": "heat", "density_channel": "dust"}},
    {"type": "cache", "name": "recording", "parameters": {"mode": "record", "objects": ["dust"]}}]


def make_copy(copy):
    for name in ("src", "scripts", "docs", "scenes"):
        shutil.copytree(ROOT / name, copy / name, symlinks=True)
    (copy / "src/fluids/forces/force_drag.h").write_text(HEADER)
    (copy / "src/fluids/forces/force_drag.cpp").write_text(SOURCE)
    (copy / "src/fluids/fields/dust_channel.h").write_text(CHANNEL_HEADER)
    (copy / "src/fluids/fields/dust_channel.cpp").write_text(CHANNEL_SOURCE)
    catalogue = copy / "src/nodes/catalogue.cpp"
    text = catalogue.read_text()
    text = text.replace('#include "fluids/forces/force_gravity.h"',
                        '#include "fluids/forces/force_drag.h"\n#include "fluids/forces/force_gravity.h"', 1)
    text = text.replace('#include "fluids/fields/', '#include "fluids/fields/dust_channel.h"\n#include "fluids/fields/', 1)
    text, added = re.subn(r"(kinds = \{\n(?:      \S+,\n)*)", r"\1      Force_Drag::Kind(),\n      DustChannel::Kind(),\n",
                          text, count=1)
    assert added == 1 and text.count("Force_Drag") == 1 and text.count("DustChannel") == 1, "the catalogue isn't one list"
    catalogue.write_text(text)


def build(build_folder, copy):
    """The copy's binary: three sources compiled, all else as it was built."""
    commands = subprocess.run(["ninja", "-t", "commands", "sulva"], cwd=build_folder, check=True,
                              capture_output=True, text=True).stdout.splitlines()
    compile_line = next(line for line in commands if line.endswith("src/nodes/catalogue.cpp"))
    objects = []
    for source in ("nodes/catalogue.cpp", "fluids/forces/force_drag.cpp", "fluids/fields/dust_channel.cpp"):
        target = copy / (pathlib.Path(source).name + ".o")
        words = shlex.split(compile_line.replace(f"-I{ROOT}/src", f"-I{copy}/src"))
        words[words.index("-o") + 1] = str(target)
        words[-1] = str(copy / "src" / source)
        for flag in ("-MT", "-MF", "-include"):
            del words[words.index(flag):words.index(flag) + 2]
        words.remove("-MD")
        words += ["-O1", "-include", "algorithm", "-include", "array", "-include", "cmath", "-include", "functional",
                  "-include", "map", "-include", "memory", "-include", "string", "-include", "vector", "-include", "variant"]
        subprocess.run(words, cwd=build_folder, check=True)
        objects.append(str(target))
    link = next(line for line in reversed(commands) if " -o sulva " in line).strip(": &")
    binary = copy / "sulva"
    link = link.replace(" -o sulva ", f" {' '.join(objects)} -o {binary} ")
    subprocess.run(link, cwd=build_folder, shell=True, check=True)
    return binary


def main():
    build_folder = pathlib.Path(sys.argv[1])
    with tempfile.TemporaryDirectory() as folder:
        copy = pathlib.Path(folder)
        make_copy(copy)
        subprocess.run([sys.executable, copy / "scripts/check_includes"], check=True)
        binary = build(build_folder, copy)

        def ask(*arguments, status=0):
            done = subprocess.run([binary, *arguments], cwd=copy, capture_output=True, text=True)
            assert done.returncode == status, (arguments, done.stdout, done.stderr)
            return done.stdout + done.stderr

        assert "GF::Drag" in ask("nodes", "force_drag")
        assert '"force_drag"' in ask("nodes", "--schema"), "editors don't complete it"
        subprocess.run([sys.executable, copy / "scripts/make_docs", binary], check=True)
        assert "force_drag" in (copy / "docs/nodes.md").read_text(), "the reference leaves it out"

        scene = copy / "drag.json"
        scene.write_text(json.dumps(SCENE, indent=1))
        ask("run", scene, "--out", copy / "out", "--quiet")
        frames = [json.loads(line) for line in (copy / "out/stats.jsonl").open()][:STEPS + 1]
        expected = 0.0
        for _ in range(STEPS):
            expected += PUSH * DT - (1 - math.exp(-RATE * DT)) * expected
        speed = frames[-1]["solvers"]["gas"]["max_speed"]
        assert abs(speed - expected) < 1e-5 * expected, (speed, expected)

        dusty = json.loads(json.dumps(SCENE))
        dusty["nodes"][0]["children"] += DUST
        dusty["nodes"][0]["children"][5]["parameters"]["forces"].append("lift")
        dusty["exports"] = [{"format": "png", "file": "####.png", "grids": {"smoke": "dust"}, "axis": "z"}]
        scene.write_text(json.dumps(dusty))
        assert "warning" not in ask("check", scene)
        ask("run", scene, "--out", copy / "dust", "--quiet")
        last = [json.loads(line) for line in (copy / "dust/stats.jsonl").open()][STEPS]
        assert last["channels"]["dust"]["max"] > 0.5, last["channels"]

        dusty["nodes"][0]["children"].pop()
        scene.write_text(json.dumps(dusty))
        ask("cache-setup", scene)
        without_comments = re.sub(r"^\s*//.*$", "", scene.read_text(), flags=re.M)
        caches = [node for node in json.loads(without_comments)["nodes"][0]["children"] if node["type"] == "cache"]
        assert any("dust" in cache["parameters"]["objects"] for cache in caches), "a new field isn't recorded"

        scene.write_text(json.dumps(SCENE).replace('"rate"', '"rat"'))
        assert "did you mean 'rate'?" in ask("check", scene, status=3)
        wrong = json.loads(json.dumps(SCENE))
        wrong["nodes"][0]["children"][3]["parameters"]["duration"] = "wind"
        scene.write_text(json.dumps(wrong))
        assert "expected a node of type duration" in ask("check", scene, status=3)


main()
