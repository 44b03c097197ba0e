#!/usr/bin/env python3
"""Reads the volume files of a short run with the Python bindings of OpenVDB.

Usage: /usr/bin/python3 exports_test.py SULVA
"""
import json
import pathlib
import subprocess
import sys
import tempfile

import pyopenvdb as vdb

ROOT = pathlib.Path(__file__).resolve().parent.parent
SCENE = """{ "sulva": 1, "range": [0, 4],
  "objects": [ { "name": "ball", "type": "sphere", "radius": 30, "segments": 32, "position": [0, 50, 0] },
               { "name": "cube", "type": "box", "size": [40, 40, 40], "position": [200, 0, 0] } ],
  "nodes": [ { "type": "server", "name": "scene", "parameters": { "cell_size": 0.1 }, "children": [
    { "type": "channel_scalar", "name": "smoke" },
    { "type": "channel_scalar", "name": "ash", "enabled": false },
    { "type": "mesh", "name": "skin", "parameters": { "object": "ball" } },
    { "type": "volume", "name": "inside", "parameters": { "mesh": "skin" } },
    { "type": "mesh", "name": "crust", "parameters": { "object": "cube" } },
    { "type": "volume_multi", "name": "both", "parameters": { "meshes": ["skin", "crust"] } },
    { "type": "emission_setting", "name": "rate", "parameters": { "amount": 2 } },
    { "type": "channelsettings", "name": "pair", "parameters": { "channel": "smoke", "settings": "rate" } },
    { "type": "gridemitter", "name": "source", "parameters": { "volume": "inside", "channels": ["pair"] } },
    { "type": "force_gravity", "name": "pull", "parameters": { "acceleration": [0, 2, 0] } },
    { "type": "grid_advection", "name": "move", "parameters": { "target": "smoke", "solver": "gas" } },
    { "type": "fluid", "name": "gas", "position": [-100, -50, -100],
      "parameters": { "box_size": [200, 300, 200], "wall_high_y": "open", "forces": ["pull"] } } ] } ],
  "exports": [ { "format": "vdb", "file": "####.vdb",
                 "grids": { "density": "smoke", "vel": "gas", "solid": "inside", "both": "both", "ash": "ash" } } ] }"""


def main():
    with tempfile.TemporaryDirectory() as folder:
        scene = pathlib.Path(folder, "scene.json")
        scene.write_text(SCENE)
        subprocess.run([sys.argv[1], "run", scene, "--out", folder, "--quiet"], check=True)
        lines = [json.loads(line) for line in pathlib.Path(folder, "stats.jsonl").read_text().splitlines()]
        grids = {grid.name: grid for grid in vdb.readAllGridMetadata(f"{folder}/0004.vdb")}
        names = ("density", "vel", "solid", "both")
        assert set(grids) == {*names, "ash"}, set(grids)
        density, vel, solid, both = (vdb.read(f"{folder}/0004.vdb", name) for name in names)
    assert density.gridClass == vdb.GridClass.FOG_VOLUME, density.gridClass
    assert solid.gridClass == vdb.GridClass.LEVEL_SET, solid.gridClass
    assert vel.gridClass == vdb.GridClass.STAGGERED, vel.gridClass
    for grid in (density, vel, solid):
        assert all(abs(size - 0.1) < 1e-7 for size in grid.transform.voxelSize()), grid.transform
    told = lines[4]["channels"]["smoke"]
    total = sum(item.value * item.count for item in density.citerOnValues())
    assert abs(total - told["sum"]) < 1e-4 * told["sum"], (total, told)
    # A field at cell centres stands half a cell off the corner: voxel 0 at 0.05 m.
    assert abs(density.transform.indexToWorld((0, 0, 0))[0] - 0.05) < 1e-7
    assert abs(solid.transform.indexToWorld((0, 0, 0))[0]) < 1e-9
    # The ball of 0.3 m round (0, 0.5, 0): metres, negative inside.
    reader = solid.getConstAccessor()
    assert reader.getValue((0, 5, 0)) < 0 < reader.getValue((6, 5, 0))
    assert abs(reader.getValue((4, 5, 0)) - 0.1) < 0.01, reader.getValue((4, 5, 0))
    # A group of volumes is one level set: the ball, and the cube of 0.4 m round (2, 0, 0).
    assert both.gridClass == vdb.GridClass.LEVEL_SET, both.gridClass
    group = both.getConstAccessor()
    assert group.getValue((4, 5, 0)) == reader.getValue((4, 5, 0))
    assert abs(group.getValue((24, 0, 0)) - 0.2) < 1e-6 and group.getValue((20, 0, 0)) < 0
    assert any(item.value[1] > 0 for item in vel.citerOnValues())


main()
