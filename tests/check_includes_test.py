"""The check of the house finds what it is there for, and nothing in a sound one."""
import importlib.machinery
import importlib.util
import pathlib
import tempfile
import unittest

PATH = pathlib.Path(__file__).resolve().parent.parent / "scripts/check_includes"
SPEC = importlib.util.spec_from_loader("check_includes", importlib.machinery.SourceFileLoader("check_includes", str(PATH)))
CHECK = importlib.util.module_from_spec(SPEC)
SPEC.loader.exec_module(CHECK)

SOUND = {
    "host/a.h": "",
    "host/a.cpp": '#include "host/a.h"\n',
    "framework/b.h": '#include "host/a.h"\n  .typeId = kTypeDuration,\nkTypeAny\n',
    "fluids/flow/c.h": '#include "framework/b.h"\nkTypeDuration\n',
}


def findings(**more):
    with tempfile.TemporaryDirectory() as folder:
        for name, text in {**SOUND, **{k: v for k, v in more.get("files", {}).items()}}.items():
            file = pathlib.Path(folder, name)
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text(text)
        return CHECK.check(pathlib.Path(folder))


class CheckIncludes(unittest.TestCase):
    def test_a_sound_house_has_no_findings(self):
        self.assertEqual(findings(), [])

    def test_lower_folders_and_unknown_ones(self):
        self.assertRegex(findings(files={"host/a.h": '#include "fluids/flow/c.h"\n'})[0], "host/a.h:1: includes")
        self.assertRegex(findings(files={"attic/x.h": ""})[0], "no place in the order")

    def test_circles_through_sources(self):
        found = findings(files={
            "host/a.cpp": '#include "host/a.h"\n#include "host/d.h"\n',
            "host/d.h": '#include "host/e.h"\n',
            "host/e.cpp": '#include "host/e.h"\n#include "host/a.h"\n',
            "host/e.h": "",
        })
        self.assertEqual(len(found), 1)
        self.assertIn("host/a, host/d, host/e", found[0])

    def test_kinds_in_the_framework(self):
        self.assertRegex(findings(files={"framework/x.cpp": "if (type == kTypeFluidSolver) {}\n"})[0], "kTypeFluidSolver")
        self.assertRegex(findings(files={"framework/x.cpp": "Find(1300002)\n"})[0], "1300002")

    def test_parameters_that_fill_what_nothing_reads(self):
        row, member = "Row().To(&A::mSize),\n", "int mSize = 0;  // mSize\n"
        self.assertRegex(findings(files={"host/a.cpp": row, "host/a.h": member})[0], "fills mSize")
        self.assertEqual(findings(files={"host/a.cpp": row + "return mSize;\n", "host/a.h": member}), [])


if __name__ == "__main__":
    unittest.main()
