#!/usr/bin/env python3
"""Reads particle files that sulva convert writes with readers of their own, each a few lines of struct, and lets it read
files whose layouts it never writes itself.

Usage: particle_files_test.py SULVA
"""
import gzip
import pathlib
import struct
import subprocess
import sys
import tempfile
import zlib

ROWS = [(0.25 * i - 3, 1 - i / 8, 0.5 * i, 1.5 * i, -2.0, i / 64, 100 + i, 0.5 + i / 16) for i in range(37)]
CSV = "x,y,z,vx,vy,vz,id,radius\n" + "".join(",".join(map(str, row)) + "\n" for row in ROWS)
# A particle nowhere, and an id beyond 32 bits.
ODD_CSV = "x,y,z,vx,vy,vz,id,radius\n0,0,0,0,0,0,5,1\nnan,0,0,0,0,0,6,1\n1,1,1,0,0,0,1099511627777,1\n"
VECTORS, NUMBERS = {"position": 0, "velocity": 3}, {"id": 6, "radius": 7}


class Bytes:
    def __init__(self, data, order):
        self.data, self.order, self.at = data, order, 0

    def take(self, code):
        values = struct.unpack_from(self.order + code, self.data, self.at)
        self.at += struct.calcsize(self.order + code)
        return values if len(values) > 1 else values[0]

    def text(self, size):
        self.at += size
        return self.data[self.at - size:self.at]


def split(values, size):
    return values if size == 1 else [tuple(values[i:i + size]) for i in range(0, len(values), size)]


def prt(data):
    b = Bytes(data, "<")
    assert b.text(8) == b"\xc0PRT\r\n\x1a\n"
    length, signature, version, count = b.take("i"), b.text(32), b.take("i"), b.take("q")
    assert (length, signature.rstrip(b"\0"), version) == (56, b"Extensible Particle Format", 1)
    assert b.take("i") == 4
    channels, entry = b.take("i"), b.take("i")
    assert entry == 44
    found = [(b.text(32).rstrip(b"\0").decode(), *b.take("iii")) for _ in range(channels)]
    codes = {1: "i", 2: "q", 4: "f", 5: "d", 10: "B"}
    size = max(offset + arity * struct.calcsize(codes[kind]) for _, kind, arity, offset in found)
    body = zlib.decompress(data[b.at:])
    assert len(body) == size * count
    names = {"Position": "position", "Velocity": "velocity", "ID": "id", "Radius": "radius"}
    return {names.get(name, name): [split(struct.unpack_from(f"<{arity}{codes[kind]}", body, row * size + offset), arity)[0]
                                    for row in range(count)] for name, kind, arity, offset in found}


def bgeo(data):
    b = Bytes(data, ">")
    assert b.text(5) == b"BgeoV" and b.take("i") == 5
    points, *rest = b.take("8i")
    assert rest[0] == 0
    attributes = []
    for _ in range(rest[3]):
        name, size, kind = b.text(b.take("H")).decode(), b.take("H"), b.take("i")
        assert kind in (0, 1, 5)
        b.text(4 * size)
        attributes.append((name, size, "i" if kind == 1 else "f"))
    columns = {"position": []} | {name: [] for name, _, _ in attributes}
    for _ in range(points):
        x, y, z, w = b.take("4f")
        assert w == 1
        columns["position"].append((x, y, z))
        for name, size, code in attributes:
            columns[name].append(b.take(f"{size}{code}"))
    assert b.data[b.at:] == b"\0\xff"
    return columns


def geo(data):
    words = data.decode().replace("(", " ").replace(")", " ").split()
    assert words[:3] == ["PGEOMETRY", "V5", "NPoints"]
    points, attributes = int(words[3]), int(words[words.index("NPointAttrib") + 1])
    at = words.index("PointAttrib") + 1
    found = []
    for _ in range(attributes):
        size = int(words[at + 1])
        found.append((words[at], size))
        at += 3 + size
    columns = {"position": []} | {name: [] for name, _ in found}
    for _ in range(points):
        columns["position"].append(tuple(map(float, words[at:at + 3])))
        at += 4
        for name, size in found:
            columns[name].append(split([float(w) for w in words[at:at + size]], size)[0])
            at += size
    assert words[at:] == ["beginExtra", "endExtra"]
    return columns


def pdc(data):
    b = Bytes(data, ">")
    assert b.text(4) == b"PDC " and b.take("4i") == (1, 1, 0, 0)
    particles, attributes = b.take("2i")
    columns = {}
    for _ in range(attributes):
        name, kind = b.text(b.take("i")).decode(), b.take("i")
        code, size = {1: ("i", 1), 3: ("d", 1), 5: ("d", 3)}[kind]
        columns[name] = split(b.take(f"{particles * size}{code}"), size)
    assert b.at == len(data)
    return {"id": columns.pop("particleId"), "radius": columns.pop("radiusPP")} | columns


def pdb(data, wide):
    b = Bytes(data, "<")
    assert b.take("iHxxff") == (670, 1, 1.0, 0.0)
    particles, channels = b.take("2I")
    b.text(40 if wide else 36)
    columns = {}
    for _ in range(channels):
        b.text(6 + (56 if wide else 36))
        end = data.index(b"\0", b.at)
        name = b.text(end - b.at).decode()
        b.text(1)
        kind, size, block, blocks = b.take("iIIi")
        b.text(8 if wide else 4)
        assert block == size * particles and blocks == 1
        columns[name] = split(b.take(f"{size * particles // 4}{'i' if kind == 3 else 'f'}"), size // 4)
    assert b.at == len(data)
    return {"radius": columns.pop("radiusPP")} | columns


def pda(data):
    words = data.decode().split()
    types = words.index("TYPES")
    names, sizes = words[1:types], [3 if t == "V" else 1 for t in words[types + 1:2 * types]]
    at = words.index("DATA") + 1
    assert int(words[words.index("NUMBER_OF_PARTICLES:") + 1]) * sum(sizes) == len(words) - at
    columns = {name: [] for name in names}
    while at < len(words):
        for name, size in zip(names, sizes):
            columns[name].append(split([float(w) for w in words[at:at + size]], size)[0])
            at += size
    return columns


def ptc(data):
    b = Bytes(data, "<")
    assert b.text(4) == b"pptc" and b.take("i") == 0
    count, box = int(b.take("d")), b.take("6f")
    b.text(4 * 35)
    variables, floats = b.take("2i")
    names = []
    for _ in range(variables):
        end = data.index(b"\n", b.at) + 1
        kind, name = b.text(end - b.at).decode().split()
        names.append((name, 1 if kind == "float" else 3))
    assert sum(size for _, size in names) == floats
    columns = {"position": [], "radius": []} | {name: [] for name, _ in names}
    for _ in range(count):
        columns["position"].append(b.take("3f"))
        assert b.take("2H") == (65535, 65535)
        columns["radius"].append(b.take("f"))
        for name, size in names:
            columns[name].append(b.take(f"{size}f"))
    assert b.at == len(data)
    assert box == tuple(pick(p[a] for p in columns["position"]) for pick in (min, max) for a in range(3))
    return columns


def fluid_bin(data):
    b = Bytes(data, "<")
    assert b.take("I") == 0x00FABADA
    b.text(250)
    version = b.take("h")
    assert version in (11, 13)
    b.text(4 + 4 + 4 + 4 + 4)
    count = b.take("i")
    b.text(4 + 36 + 36)
    assert b.at == 356
    columns = {"position": [], "velocity": [], "id": []}
    for _ in range(count):
        columns["position"].append(b.take("3f"))
        columns["velocity"].append(b.take("3f"))
        b.text(12 + 12 + 12 + 4 + 12 + 2 + 28)
        columns["id"].append(b.take("i" if version == 11 else "Q"))
    assert b.at == len(data)
    return columns


def mc(data):
    def chunks(at, end):
        while at < end:
            size = struct.unpack_from(">I", data, at + 4)[0]
            yield data[at:at + 4], data[at + 8:at + 8 + size], at + 8
            at += 8 + (size + 3) // 4 * 4
        assert at == end

    columns, name, count = {}, None, 0
    (_, _, start), (_, body, at) = chunks(0, len(data))
    assert data[start:start + 4] == b"CACH" and body[:4] == b"MYCH"
    for tag, value, _ in chunks(at + 4, at + len(body)):
        if tag == b"CHNM":
            assert value[-1] == 0
            name = value[:-1].decode().removeprefix("particles_")
        elif tag == b"SIZE":
            count = struct.unpack(">I", value)[0]
        else:
            code, size = {b"DBLA": ("d", 1), b"FBCA": ("f", 1), b"FVCA": ("f", 3), b"DVCA": ("d", 3)}[tag]
            columns[name] = split(struct.unpack(f">{count * size}{code}", value), size)
    return {"radius": columns.pop("radiusPP")} | columns


def icecache(data):
    b = Bytes(gzip.decompress(data), "<")
    assert b.text(8) == b"ICECACHE"
    version, _, points, *rest, attributes = b.take("9I")
    assert version == 103 and rest == [0, 0, 0, 1, 0]
    found, columns = [], {}
    for _ in range(attributes):
        size = b.take("I")
        found.append((b.text((size + 3) // 4 * 4)[:size].decode(), b.take("5I")))
    for name, (kind, structure, context, _, _) in found:
        assert (structure, context) == (1, 2)
        code, size = {2: ("i", 1), 4: ("f", 1), 16: ("f", 3)}[kind]
        assert name == "PointPosition" or b.take("I") == 0
        columns[name] = split(b.take(f"{points * size}{code}"), size)
    assert b.at == len(b.data)
    names = {"PointPosition": "position", "PointVelocity": "velocity", "ID": "id", "Size": "radius"}
    return {names[name]: values for name, values in columns.items()}


def rows(data):
    return {"position": [tuple(map(float, line.split())) for line in data.decode().splitlines() if len(line.split()) > 1]}


def rib(data):
    columns = {}
    for part in data.decode().split('"')[1:]:
        if part.startswith(" ["):
            columns[name] = [float(w) for w in part.strip(" [").split("]")[0].split()]
        name = part.split()[-1] if part.split() else ""
    return {"position": split(columns["P"], 3), "velocity": split(columns["velocity"], 3), "id": columns["id"],
            "radius": [w / 2 for w in columns["width"]]}


READERS = {"prt": prt, "bgeo": bgeo, "bgeo.gz": lambda d: bgeo(gzip.decompress(d)), "geo": geo, "pdc": pdc,
           "pdb": lambda d: pdb(d, False), "pdb32": lambda d: pdb(d, False), "pdb64": lambda d: pdb(d, True),
           "pda": pda, "ptc": ptc, "bin": fluid_bin, "mc": mc, "icecache": icecache, "xyz": rows, "pts": rows, "rib": rib}


def packed(order, code, *values):
    return struct.pack(order + code, *values)


def odd_prt():
    """Version 2 with metadata, longer entries, channels out of order and of rare types."""
    meta = b"Meta" + packed("<", "i", 14) + b"\0Unit\0" + packed("<", "i", 1) + packed("<", "i", 7) + b"Stop" + packed("<", "i", 0)
    head = b"\xc0PRT\r\n\x1a\n" + packed("<", "i", 56 + len(meta)) + b"Extensible Particle Format".ljust(32, b"\0")
    head += packed("<", "iq", 2, len(ODD)) + meta + packed("<", "iii", 4, 4, 48)
    for name, kind, arity, offset in (("ID", 8, 1, 14), ("Position", 4, 3, 2), ("Temperature", 3, 1, 0), ("Mark", 9, 1, 22)):
        head += name.encode().ljust(32, b"\0") + packed("<", "iiii", kind, arity, offset, 0)
    rows = b"".join(packed("<", "e3fQb", t, x, y, z, i, -m) for x, y, z, i, t, m in ODD)
    return head + zlib.compress(rows), {"id": 3, "temperature": 4, "Mark": lambda r: -r[5]}


def odd_pdb(order, pad):
    """Pointers of 64 bits, or bytes in the other order."""
    wide = pad > 0
    data = packed(order, "iHHffII", 670, 1, 0, 1, 0, len(ODD), 3) + bytes((32 + pad) if wide else 36)
    for name, kind, code, pick in (("position", 1, "3f", lambda r: r[:3]), ("particleId", 3, "i", lambda r: r[3:4]), ("mass", 2, "f", lambda r: r[5:6])):
        size = struct.calcsize(order + code)
        data += b"c\0" + packed(order, "H", 1) + b"\0\0" + bytes(56 if wide else 36) + name.encode() + b"\0"
        data += packed(order, "iIIi", kind, size, size * len(ODD), 1) + bytes(8 if wide else 4)
        data += b"".join(packed(order, code, *pick(r)) for r in ODD)
    return data, {"id": 3, "mass": 5}


def odd_ptc(version):
    data = b"pptc" + packed("<", "id6f", version, len(ODD), *[0] * 6) + bytes(16 if version >= 1 else 0) + bytes(132 if version >= 2 else 0)
    data += bytes(128) + packed("<", "3f", 1, 1, 1) + packed("<", "ii", 2, 2) + b"float temp\nfloat mass\n" + bytes(8 if version >= 1 else 0)
    rows = b"".join(packed("<", "3fHHf2f", x, y, z, 65535, 65535, 0.5, t, m) for x, y, z, _, t, m in ODD)
    return data + rows, {"temperature": 4, "mass": 5, "radius": lambda r: 0.5}


def odd_bin(version):
    data = packed("<", "I", 0xFABADA) + b"pond".ljust(250, b"\0") + packed("<", "h", version) + packed("<", "fifii", 1, 1, 0.5, 12, 25)
    data += packed("<", "if", len(ODD), 0.1) + bytes(36) + bytes(36 if version >= 7 else 0)
    for x, y, z, i, t, m in ODD:
        data += packed("<", "9f", x, y, z, *[0] * 6) + bytes(12 if version >= 9 else 0) + bytes(12 if version >= 3 else 0)
        data += bytes(4 if version >= 4 else 0) + bytes(14 if version >= 5 else 0)
        data += packed("<", "7f", 0, 0, 0, 1000, 0, m, t) + packed("<", "Q" if version >= 12 else "i", i)
    return data + b"more", {"id": 3, "temperature": 4, "mass": 5}


def odd_icecache(version):
    """Blocks of one value for all, colours of four numbers, and a header without the newest fields."""
    found = (("PointPosition", 16), ("ID", 2), ("Color", 512), ("Mass", 4))
    data = b"ICECACHE" + packed("<", "6I", version, 0, len(ODD), 0, 0, 0) + packed("<", "I", 1) * (version >= 103)
    data += packed("<", "I", 0) * (version >= 102) + packed("<", "I", len(found))
    for name, kind in found:
        data += packed("<", "I", len(name)) + name.encode() + b"_" * (-len(name) % 4) + packed("<", "5I", kind, 1, 2, 0, 1)
    data += b"".join(packed("<", "3f", *r[:3]) for r in ODD)
    data += packed("<", "I", 0) + b"".join(packed("<", "i", r[3]) for r in ODD)
    data += packed("<", "I4f", 1, 0.25, 0.5, 1, 1) + packed("<", "I", 0) + b"".join(packed("<", "f", r[5]) for r in ODD)
    return gzip.compress(data), {"id": 3, "color": lambda r: (0.25, 0.5, 1), "mass": 5}


ODD = [(0.5 * i, 1 - i, 0.25, 7 + i, 2.5 * i, 1 + i) for i in range(5)]
ODD_FILES = {"two.prt": odd_prt(), "big.pdb": odd_pdb(">", 0), "wide.pdb": odd_pdb("<", 8), "padded.pdb": odd_pdb("<", 16),
             **{f"v{v}.ptc": odd_ptc(v) for v in (0, 1, 2)}, **{f"v{v}.bin": odd_bin(v) for v in (2, 3, 4, 5, 7, 9, 12, 13)},
             **{f"v{v}.icecache": odd_icecache(v) for v in (100, 102, 103)}}


def read_odd(folder):
    for name, (data, columns) in ODD_FILES.items():
        (folder / name).write_bytes(data)
        subprocess.run([sys.argv[1], "convert", folder / name, folder / "odd_out.csv"], check=True, capture_output=True)
        head, *lines = [line.split(",") for line in (folder / "odd_out.csv").read_text().splitlines()]
        found = [dict(zip(head, map(float, line))) for line in lines]
        assert len(found) == len(ODD), name
        for row, got in zip(ODD, found):
            assert (got["x"], got["y"], got["z"]) == row[:3], (name, got)
            for column, pick in columns.items():
                wanted = pick(row) if callable(pick) else row[pick]
                is_vector = isinstance(wanted, tuple)
                value = tuple(got[f"{column}_{axis}"] for axis in "xyz") if is_vector else got[column]
                assert value == wanted, (name, column, value, wanted)


def main():
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        (folder / "in.csv").write_text(CSV)
        for suffix, reader in READERS.items():
            out = folder / f"out.{suffix}"
            subprocess.run([sys.argv[1], "convert", folder / "in.csv", out], check=True, capture_output=True)
            columns = reader(out.read_bytes())
            assert "position" in columns, suffix
            for column, values in columns.items():
                first = VECTORS.get(column, NUMBERS.get(column))
                wanted = [row[first:first + 3] if column in VECTORS else row[first] for row in ROWS]
                assert list(values) == wanted, (suffix, column, values[:2], wanted[:2])
            if suffix not in ("xyz", "pts", "bin"):
                assert set(columns) == {*VECTORS, *NUMBERS}, (suffix, set(columns))
        (folder / "odd.csv").write_text(ODD_CSV)
        for suffix, reader in READERS.items():
            out = folder / f"odd.{suffix}"
            told = subprocess.run([sys.argv[1], "convert", folder / "odd.csv", out], check=True, capture_output=True, text=True)
            columns = reader(out.read_bytes()) if suffix != "rib" else None
            assert "2 particles" in told.stdout and "1 particle at no finite place is left out" in told.stderr, (suffix, told)
            assert columns is None or len(columns["position"]) == 2, (suffix, columns)
            wide = columns is not None and list(columns.get("id", [])) == [5, 1099511627777]
            assert wide or "'id'" in told.stderr or "no place for" in told.stderr or columns is None, (suffix, told.stderr, columns)
        read_odd(folder)


main()
