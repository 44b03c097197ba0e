"""install_test.py BUILD: what `cmake --install` leaves works on its own: the command finds its scenes, and a
program finds the library as a package."""
import pathlib
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent

PROJECT = """cmake_minimum_required(VERSION 3.25)
project(user CXX)
find_package(sulva REQUIRED)
add_executable(user main.cpp)
target_link_libraries(user PRIVATE sulva::libsulva)
"""

PROGRAM = r"""#include <cstdio>

#include "nodes/catalogue.h"
#include "run/simulation.h"
#include "scene/scene_file.h"

int main(int, char** arguments) {
  using namespace MELDO_GLOBAL;
  app::Diagnostics diagnostics;
  const auto scene = app::LoadScene(arguments[1], diagnostics);
  if (!scene) return 1;
  app::Simulation simulation(*scene->document, scene->servers, 1ull << 32);
  app::FrameRecord record;
  for (i32 frame = 0; frame < 3; ++frame)
    if (simulation.Evaluate(frame, record) != app::FrameOutcome::Done) return 2;
  std::printf("%zu kinds, %.3f\n", MELDO_SULVA::Catalogue().size(), record.elapsed);
}
"""


def run(words, folder=None):
    done = subprocess.run(words, cwd=folder, capture_output=True, text=True)
    assert done.returncode == 0, f"{words}\n{done.stdout}{done.stderr}"
    return done.stdout


def main():
    build = sys.argv[1]
    with tempfile.TemporaryDirectory() as folder:
        root = pathlib.Path(folder)
        prefix, user = root / "prefix", root / "user"
        run(["cmake", "--install", build, "--prefix", prefix])
        sulva = prefix / "bin/sulva"
        run([sulva, "new", "plume", "mine.json"], root)
        run([sulva, "check", "mine.json"], root)
        for name in ("share/sulva/docs/sulva.schema.json", "include/sulva/nodes/catalogue.h"):
            assert (prefix / name).exists(), name
        # A plug-in needs one installed header and nothing else of ours.
        example = ROOT / "examples/plugins"
        run(["g++", "-std=c++20", "-shared", "-fPIC", f"-I{prefix}/include/sulva", "-o", root / "libgusts.so",
             example / "gusts.cpp"])
        run([sulva, "check", "--strict", example / "gusts.json", "--plugin", root / "libgusts.so"])
        assert any(prefix.rglob("LICENSE")), "no licence"
        # Neither in messages nor for debuggers does anything point at the checkout that it was built from.
        for file in (sulva, *prefix.rglob("libsulva.a")):
            assert f"{ROOT}/".encode() not in file.read_bytes(), f"{file.name} holds paths of {ROOT}"

        user.mkdir()
        (user / "CMakeLists.txt").write_text(PROJECT)
        (user / "main.cpp").write_text(PROGRAM)
        run(["cmake", "-S", user, "-B", user / "build", "-G", "Ninja", f"-DCMAKE_PREFIX_PATH={prefix}"])
        run(["cmake", "--build", user / "build"])
        told = run([user / "build/user", root / "mine.json"])
        assert told.strip().endswith("0.080"), told


main()
