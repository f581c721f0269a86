"""Runs the code of docs/reading-frames-in-python.md on files that the library has just written.

    python_page_test.py SAMPLES_PROGRAM PAGE        (77: skipped, as NumPy is missing)
"""
import os
import re
import subprocess
import sys
import tempfile

try:
    import numpy
except ImportError:
    print("missing: numpy")
    sys.exit(1 if "VORELUTIL_REQUIRE_ALL" in os.environ else 77)

samples, page = map(os.path.abspath, sys.argv[1:])
(code,) = re.findall(r"```python\n(.*?)```", open(page, encoding="utf-8").read(), re.S)
for form in ("list", "matrix"):
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        subprocess.run([samples, folder, form], check=True)
        read = {}
        exec(compile(code, page, "exec"), read)
        os.chdir("/")
    same = numpy.testing.assert_allclose
    nan = numpy.nan
    # The scan runs upwards: its first line is the last row.
    same(read["image"], [[0.0035, -0.0005, -0.0005], [0.0005, 0.0015, 0.0025]], rtol=1e-9)
    same(read["binary"], [[0.0035, nan, nan], [0.0005, 0.0015, 0.0025]], rtol=1e-6)
    same(read["x"], [1.5e-6, 0.5e-6, -0.5e-6], rtol=1e-9)
    same(read["y"], [0.0005, 0.0015, 0.0025], rtol=1e-9)
    same(read["log"], [0.0005, 0.0015, 0.0025, 0.0035], rtol=1e-9)
    assert (read["asc"]["x-length"], read["asc"]["z-unit"]) == ("2e-06", "V"), read["asc"]
    assert (read["bcr"]["xoffset"], read["bcr"]["voidpixels"]) == ("5e-07", "2"), read["bcr"]
