"""wide_kernels_test.py LIBRARY: every function that the sources mark as a wide kernel has a version in
the built library that computes in 256-bit registers; a mark on a function that the compiler leaves
scalar promises a speed that isn't there."""
import pathlib
import platform
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
MARK = re.compile(r"^(?:template[^\n]*\n)?SULVA_WIDE_KERNEL\s[^(]*?((?:\w+::)?\w+)\(", re.M)
HEAD = re.compile(r"^[0-9a-f]+ <(.*)>:$")
ARITHMETIC = re.compile(
    r"\bv(?:(?:add|sub|mul|div|sqrt|min|max|cmp\w*|round|cvt\w+)(?:p[sd]|dq)\w*"
    r"|p(?:add|sub|mul|cmp|min|max)\w+)\s[^#]*%ymm")


def marked_functions():
    return {(name, file.relative_to(ROOT).as_posix())
            for file in sorted((ROOT / "src").rglob("*.cpp")) for name in MARK.findall(file.read_text())}


def wide_instructions(library):
    """Counts of 256-bit arithmetic by function, of those that are versions for wide registers."""
    listing = subprocess.Popen(["objdump", "-dC", "--no-show-raw-insn", library], stdout=subprocess.PIPE, text=True)
    counts, name = {}, None
    for line in listing.stdout:
        if head := HEAD.match(line):
            name = head[1] if "[clone .avx2]" in head[1] or ".avx2" in head[1] else None
            if name:
                counts.setdefault(name, 0)
        elif name and ARITHMETIC.search(line):
            counts[name] += 1
    assert listing.wait() == 0, "objdump failed"
    return counts


def main():
    if platform.machine() != "x86_64" or not sys.platform.startswith("linux"):
        print("no wide kernels on this machine")
        return 0
    marked = marked_functions()
    assert len(marked) > 30, f"only {len(marked)} marks found: how are they written now?"
    counts = wide_instructions(sys.argv[1])
    narrow = []
    for name, file in sorted(marked):
        found = [n for symbol, n in counts.items() if re.search(rf"(?:^|::){re.escape(name)}\(", symbol)]
        if not found or min(found) == 0:
            narrow.append(f"{file}: {name} is marked, but " +
                          ("has no 256-bit arithmetic" if found else "has no version for wide registers"))
    print("\n".join(narrow) or f"{len(marked)} kernels are wide")
    return 1 if narrow else 0


if __name__ == "__main__":
    sys.exit(main())
