#!/usr/bin/env python3
"""Holds the documents against the files that they speak of.

Usage: documents_test.py files          excerpts stand in the files that they name, links lead somewhere
       documents_test.py tutorial SULVA its commands run and leave the files that the text names
"""
import os
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
DOCUMENTS = [ROOT / "README.md", ROOT / "ARCHITECTURE.md", ROOT / "CONTRIBUTING.md",
             *sorted((ROOT / "docs").glob("*.md"))]
EXCERPT = re.compile(r"<!-- (\S+) -->\n```\w*\n(.*?)```", re.S)
LINK = re.compile(r"\]\(([^)#\s]+)(?:#[^)]*)?\)")
CODE_PATH = re.compile(r"`((?:src|tests|scenes|docs|scripts|bench)/[\w./-]+)`")


def squeezed(text):
    """Lines without their indentation and without empty ones."""
    return [line.strip() for line in text.splitlines() if line.strip()]


def contains(lines, part):
    return any(lines[i:i + len(part)] == part for i in range(len(lines) - len(part) + 1))


def stale_excerpts(document):
    text = document.read_text()
    for name, excerpt in EXCERPT.findall(text):
        file = ROOT / name
        if not file.is_file():
            yield f"{name} isn't there"
        elif not squeezed(excerpt) or not contains(squeezed(file.read_text()), squeezed(excerpt)):
            yield f"{name} doesn't hold the excerpt that begins {squeezed(excerpt)[:1]}"


def broken_links(document):
    text = document.read_text()
    for target in LINK.findall(text):
        if "://" not in target and not (document.parent / target).exists():
            yield f"a link leads to {target}, which isn't there"
    for target in CODE_PATH.findall(text):
        if not (ROOT / target).exists():
            yield f"it names {target}, which isn't there"


def check_files():
    problems = [f"{document.relative_to(ROOT)}: {problem}" for document in DOCUMENTS
                for problem in [*stale_excerpts(document), *broken_links(document)]]
    excerpts = sum(len(EXCERPT.findall(document.read_text())) for document in DOCUMENTS)
    if excerpts < 10:
        problems.append(f"only {excerpts} excerpts found: has their form changed?")
    in_gallery = (ROOT / "docs/gallery.md").read_text()
    for scene in sorted((ROOT / "scenes").glob("*.json")):
        if f"## {scene.stem}\n" not in in_gallery:
            problems.append(f"docs/gallery.md: {scene.stem} is missing")
    return problems


def check_tutorial(binary):
    text = (ROOT / "docs/tutorial.md").read_text()
    commands = [line for block in re.findall(r"```sh\n(.*?)```", text, re.S)
                for line in block.splitlines() if line]
    problems = [] if len(commands) >= 8 else ["the tutorial has lost its commands"]
    with tempfile.TemporaryDirectory() as folder:
        os.symlink(ROOT / "scenes", f"{folder}/scenes")
        os.mkdir(f"{folder}/build")
        os.symlink(binary, f"{folder}/build/sulva")
        for command in commands:
            run = subprocess.run(command, shell=True, cwd=folder, capture_output=True, text=True)
            if run.returncode or "warning" in run.stderr:
                problems.append(f"{command}: exit {run.returncode}: {run.stderr[-400:]}")
        for name in sorted(set(re.findall(r"`(out/[\w./]+)`", text))):
            if not pathlib.Path(folder, name).is_file():
                problems.append(f"the tutorial names {name}, which its commands don't write")
    return problems


def main():
    problems = check_files() if sys.argv[1] == "files" else check_tutorial(sys.argv[2])
    print("\n".join(problems))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
