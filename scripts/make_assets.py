#!/usr/bin/env python3
"""Makes the meshes of the ready-made scenes: urn.obj, logs.obj, knot.obj and bowl.obj in
scenes/assets.

The urn is a turned profile with a bowl, a fluted belly and two handles. The logs lean against each
other as for a campfire. The knot is a tube along a trefoil that stands upright. The bowl is half of
a flattened ball with a thick wall. All surfaces are closed, turned outward and free of
intersections, 2 units across. The output is the same on every machine: coordinates are rounded to
1e-5 of a unit.
"""
import argparse
import math
import pathlib
from collections import Counter

ROUND = 72        # points round the axis
PROFILE = 42      # points along the profile, without the two on the axis
FLUTES = 12
HANDLE = 2        # a handle grows out of HANDLE x HANDLE faces of the body
HANDLE_RINGS = 16
HANDLE_RADIUS = 5.0

LOGS = 7
LOG_ROUND = 14    # points round a log
LOG_RINGS = 12    # rings along it
LOG_RADIUS = 0.13
LOG_TWIST = 0.95  # how far a log's top lies round the axis from its foot, radians

# Radius and height, from the middle of the foot outward, up the outside, over the lip, down into
# the bowl.
OUTLINE = [
    (0, -75), (30, -75), (35, -72), (31, -66), (18, -58), (13, -50), (19, -42), (38, -26), (52, -4),
    (54, 14), (46, 34), (36, 46), (34, 56), (42, 68), (50, 74), (47, 78), (36, 66), (26, 54),
    (25, 44), (34, 28), (36, 12), (24, -4), (0, -10),
]


def catmull_rom(p0, p1, p2, p3, t):
    """A point between p1 and p2 of the spline through all points."""
    return tuple(
        0.5 * (2 * b + (c - a) * t + (2 * a - 5 * b + 4 * c - d) * t * t
               + (3 * b - a - 3 * c + d) * t * t * t)
        for a, b, c, d in zip(p0, p1, p2, p3))


def profile():
    """The outline as PROFILE points at equal distances, without its ends on the axis."""
    mirror = [(-OUTLINE[1][0], OUTLINE[1][1])] + OUTLINE + [(-OUTLINE[-2][0], OUTLINE[-2][1])]
    fine = [catmull_rom(*mirror[i:i + 4], k / 50)
            for i in range(len(OUTLINE) - 1) for k in range(50)] + [OUTLINE[-1]]
    lengths = [0.0]
    for a, b in zip(fine, fine[1:]):
        lengths.append(lengths[-1] + math.dist(a, b))
    points, at = [], 0
    for i in range(1, PROFILE + 1):
        wanted = lengths[-1] * i / (PROFILE + 1)
        while lengths[at + 1] < wanted:
            at += 1
        t = (wanted - lengths[at]) / (lengths[at + 1] - lengths[at])
        points.append(tuple(a + (b - a) * t for a, b in zip(fine[at], fine[at + 1])))
    return points


class Mesh:
    def __init__(self):
        self.points = []
        self.faces = []

    def point(self, x, y, z):
        self.points.append((x, y, z))
        return len(self.points) - 1

    def grow_handle(self, grid, column, upper, lower):
        """Replaces two blocks of faces of the body by a tube from one to the other."""
        reach = HANDLE // 2
        # Once round the block, seen from outside against the clock, as steps (right, up).
        square = ([(s, -reach) for s in range(-reach, reach)]
                  + [(reach, s) for s in range(-reach, reach)]
                  + [(-s, reach) for s in range(-reach, reach)]
                  + [(-reach, -s) for s in range(-reach, reach)])

        def body(row, right, up):
            return grid[row + up][(column - right) % ROUND]

        for row in (upper, lower):
            block = {body(row, u, v) for u in range(-reach, reach + 1)
                     for v in range(-reach, reach + 1)}
            self.faces = [f for f in self.faces if not set(f) <= block]
        angle = 2 * math.pi * column / ROUND
        out = (math.cos(angle), 0.0, math.sin(angle))
        right = (math.sin(angle), 0.0, -math.cos(angle))

        def in_plane(row):  # radius and height of a block's middle
            p = self.points[grid[row][column]]
            return p[0] * out[0] + p[2] * out[2], p[1]

        (r0, y0), (r3, y3) = in_plane(upper), in_plane(lower)
        control = [(r0, y0), (r0 + 42, y0 + 20), (r3 + 38, y3 + 16), (r3, y3)]
        rings = [[body(upper, u, v) for u, v in square]]
        for k in range(1, HANDLE_RINGS):
            t = k / HANDLE_RINGS
            weights = [(1 - t) ** 3, 3 * t * (1 - t) ** 2, 3 * t * t * (1 - t), t ** 3]
            slopes = [-3 * (1 - t) ** 2, 3 * (1 - t) * (1 - 3 * t), 3 * t * (2 - 3 * t), 3 * t * t]
            r, y = (sum(w * c[i] for w, c in zip(weights, control)) for i in (0, 1))
            dr, dy = (sum(w * c[i] for w, c in zip(slopes, control)) for i in (0, 1))
            length = math.hypot(dr, dy)
            up = (-dy / length, dr / length)  # a quarter turn from the way the tube goes
            ring = []
            for u, v in square:
                scale = HANDLE_RADIUS / math.hypot(u, v)
                a, b = u * scale, v * scale
                rr, yy = r + up[0] * b, y + up[1] * b
                ring.append(self.point(out[0] * rr + right[0] * a, yy, out[2] * rr + right[2] * a))
            rings.append(ring)
        # The tube arrives upside down.
        rings.append([body(lower, u, -v) for u, v in square])
        count = len(square)
        for near, far in zip(rings, rings[1:]):
            for i in range(count):
                j = (i + 1) % count
                self.faces.append((near[i], near[j], far[j], far[i]))


def urn():
    mesh = Mesh()
    outline = profile()
    foot = mesh.point(0, OUTLINE[0][1], 0)
    lip = max(range(PROFILE), key=lambda i: outline[i][1])
    grid = []
    for i, (radius, height) in enumerate(outline):
        row = []
        depth = 0.05 * math.exp(-((height - 6) / 20) ** 2) if i < lip else 0.0
        for k in range(ROUND):
            angle = 2 * math.pi * k / ROUND
            r = radius * (1 + depth * math.cos(FLUTES * angle))
            row.append(mesh.point(r * math.cos(angle), height, r * math.sin(angle)))
        grid.append(row)
    bowl = mesh.point(0, OUTLINE[-1][1], 0)
    for k in range(ROUND):
        j = (k + 1) % ROUND
        mesh.faces.append((foot, grid[0][k], grid[0][j]))
        mesh.faces.append((bowl, grid[-1][j], grid[-1][k]))
        for low, high in zip(grid, grid[1:]):
            mesh.faces.append((low[j], low[k], high[k], high[j]))
    outside = range(lip)
    upper = min(outside, key=lambda i: math.dist(outline[i], (35, 50)))
    lower = min(outside, key=lambda i: math.dist(outline[i], (52, -2)))
    for column in (0, ROUND // 2):
        mesh.grow_handle(grid, column, upper, lower)
    return mesh


def log_axis(k):
    """Middle of log k at its rings, and its radius there."""
    at = 2 * math.pi * k / LOGS + 0.08 * math.sin(5.0 * k)
    length = 1 + 0.16 * math.sin(2.3 * k + 1)
    foot = (math.cos(at), 0.12, math.sin(at))
    top = (0.4 * math.cos(at + LOG_TWIST), 1.5, 0.4 * math.sin(at + LOG_TWIST))
    middles, radii = [], []
    for i in range(LOG_RINGS):
        t = length * i / (LOG_RINGS - 1)
        bow = 0.05 * math.sin(3.0 * t + 2.0 * k)
        middles.append((foot[0] + t * (top[0] - foot[0]) + bow * math.sin(at),
                        foot[1] + t * (top[1] - foot[1]),
                        foot[2] + t * (top[2] - foot[2]) - bow * math.cos(at)))
        radii.append(LOG_RADIUS * (1.12 - 0.32 * t + 0.05 * math.sin(7.0 * t + 3.0 * k)))
    return middles, radii


def logs():
    mesh = Mesh()
    axes = [log_axis(k) for k in range(LOGS)]
    for a in range(LOGS):
        for b in range(a):
            gap = min(math.dist(p, q) - r - s for p, r in zip(*axes[a]) for q, s in zip(*axes[b]))
            assert gap > 0.02, "logs run into each other"
    for k, (middles, radii) in enumerate(axes):
        way = [b - a for a, b in zip(middles[0], middles[-1])]
        norm = math.hypot(*way)
        way = [w / norm for w in way]
        flat = math.hypot(way[0], way[2])
        side = (way[2] / flat, 0.0, -way[0] / flat)
        up = (way[1] * side[2] - way[2] * side[1], way[2] * side[0] - way[0] * side[2],
              way[0] * side[1] - way[1] * side[0])
        rings = []
        for (x, y, z), radius in zip(middles, radii):
            ring = []
            for j in range(LOG_ROUND):
                angle = 2 * math.pi * j / LOG_ROUND
                r = radius * (1 + 0.07 * math.sin(5 * angle + k))
                c, s = r * math.cos(angle), r * math.sin(angle)
                ring.append(mesh.point(x + c * side[0] + s * up[0], y + c * side[1] + s * up[1],
                                       z + c * side[2] + s * up[2]))
            rings.append(ring)
        foot, top = mesh.point(*middles[0]), mesh.point(*middles[-1])
        for j in range(LOG_ROUND):
            i = (j + 1) % LOG_ROUND
            mesh.faces.append((foot, rings[0][i], rings[0][j]))
            mesh.faces.append((top, rings[-1][j], rings[-1][i]))
            for low, high in zip(rings, rings[1:]):
                mesh.faces.append((low[j], low[i], high[i], high[j]))
    return mesh


KNOT_POINTS = 180   # along the tube
KNOT_ROUND = 24     # round it
KNOT_RADIUS = 0.5   # of the tube, where its middle line reaches 3 units from the axis


def unit(v):
    length = math.sqrt(sum(c * c for c in v))
    return tuple(c / length for c in v)


def knot():
    """A tube round a trefoil in the xy plane; its rings turn with the winding of the knot."""
    mesh = Mesh()

    def middle(t):
        return (math.sin(t) + 2 * math.sin(2 * t), math.cos(t) - 2 * math.cos(2 * t),
                -1.1 * math.sin(3 * t))

    def along(t):
        return unit((math.cos(t) + 4 * math.cos(2 * t), -math.sin(t) + 4 * math.sin(2 * t),
                     -3.3 * math.cos(3 * t)))

    rings = []
    for i in range(KNOT_POINTS):
        t = 2 * math.pi * i / KNOT_POINTS
        centre, way = middle(t), along(t)
        # The view axis without its part along the tube: never small, as the knot never runs along it.
        lean = unit(tuple((a == 2) - way[2] * way[a] for a in range(3)))
        side = (way[1] * lean[2] - way[2] * lean[1], way[2] * lean[0] - way[0] * lean[2],
                way[0] * lean[1] - way[1] * lean[0])
        radius = KNOT_RADIUS * (1 + 0.12 * math.cos(3 * t))
        ring = []
        for k in range(KNOT_ROUND):
            angle = 2 * math.pi * k / KNOT_ROUND
            u, v = radius * math.cos(angle), radius * math.sin(angle)
            ring.append(mesh.point(*(centre[a] + lean[a] * u + side[a] * v for a in range(3))))
        rings.append(ring)
    for near, far in zip(rings, rings[1:] + rings[:1]):
        for k in range(KNOT_ROUND):
            j = (k + 1) % KNOT_ROUND
            mesh.faces.append((near[k], near[j], far[j], far[k]))
    return mesh


BOWL_ROUND = 64   # points round the axis
BOWL_RINGS = 18   # rings on either side of the wall
BOWL_OUTSIDE = (1.0, 0.7)  # radius at the rim, depth
BOWL_INSIDE = (0.85, 0.55)


def bowl():
    mesh = Mesh()

    def ring(size, step):
        angle = 0.5 * math.pi * step / BOWL_RINGS
        radius, height = size[0] * math.cos(angle), -size[1] * math.sin(angle)
        return [mesh.point(radius * math.cos(a), height, radius * math.sin(a))
                for a in (2 * math.pi * k / BOWL_ROUND for k in range(BOWL_ROUND))]

    foot, floor = mesh.point(0, -BOWL_OUTSIDE[1], 0), mesh.point(0, -BOWL_INSIDE[1], 0)
    rings = [ring(BOWL_OUTSIDE, i) for i in reversed(range(BOWL_RINGS))]
    rings += [ring(BOWL_INSIDE, i) for i in range(BOWL_RINGS)]
    for k in range(BOWL_ROUND):
        j = (k + 1) % BOWL_ROUND
        mesh.faces.append((foot, rings[0][k], rings[0][j]))
        mesh.faces.append((floor, rings[-1][j], rings[-1][k]))
        for low, high in zip(rings, rings[1:]):
            mesh.faces.append((low[j], low[k], high[k], high[j]))
    return mesh


def tidy(mesh):
    """Drops points that no face uses, rounds the others and fits them to 2 units across."""
    used = sorted({i for f in mesh.faces for i in f})
    place = {old: new for new, old in enumerate(used)}
    kept = [mesh.points[i] for i in used]
    low, high = ([pick(p[a] for p in kept) for a in range(3)] for pick in (min, max))
    scale = 2 / max(high[0] - low[0], high[2] - low[2])
    middle = (low[1] + high[1]) / 2
    points = [(round(x * scale, 5) + 0.0, round((y - middle) * scale, 5) + 0.0,
               round(z * scale, 5) + 0.0) for x, y, z in kept]
    return points, [tuple(place[i] for i in f) for f in mesh.faces]


def check(points, faces):
    edges = Counter()
    volume = 0.0
    for f in faces:
        edges.update(zip(f, f[1:] + f[:1]))
        for b, c in zip(f[1:], f[2:]):
            (x0, y0, z0), (x1, y1, z1), (x2, y2, z2) = points[f[0]], points[b], points[c]
            volume += (x0 * (y1 * z2 - z1 * y2) + y0 * (z1 * x2 - x1 * z2)
                       + z0 * (x1 * y2 - y1 * x2)) / 6
    assert all(n == 1 and edges[b, a] == 1 for (a, b), n in edges.items()), "not closed"
    assert volume > 0, "turned inside out"


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    root = pathlib.Path(__file__).resolve().parent.parent
    parser.add_argument("--out", type=pathlib.Path, default=root / "scenes" / "assets")
    folder = parser.parse_args().out
    folder.mkdir(parents=True, exist_ok=True)
    for name, mesh in (("urn", urn()), ("logs", logs()), ("knot", knot()),
                       ("bowl", bowl())):
        points, faces = tidy(mesh)
        check(points, faces)
        lines = ["# made by scripts/make_assets.py"]
        lines += ["v %.5f %.5f %.5f" % p for p in points]
        lines += ["f " + " ".join(str(i + 1) for i in f) for f in faces]
        file = folder / f"{name}.obj"
        file.write_text("\n".join(lines) + "\n")
        triangles = sum(len(f) - 2 for f in faces)
        print(f"{file}: {len(points)} points, {triangles} triangles")


if __name__ == "__main__":
    main()
