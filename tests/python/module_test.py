"""Installs the library and the Python module as a user would, and tries them.

    module_test.py --build FOLDER --cmake PROGRAM --source FOLDER [--preload LIBRARY]

The library goes to a folder of its own, the module into a new virtual environment, built from a copy of its
sources. Then tdc_test.py runs against both, the code of the page on reading time stamps, and the examples on
the pages of the packet formats. Exit code 77: skipped, as something is missing.
"""

import argparse
import glob
import importlib.util
import os
import re
import shutil
import subprocess
import sys
import tempfile

needed = ("ensurepip", "pip", "setuptools", "wheel", "numpy")
missing = [name for name in needed if not importlib.util.find_spec(name)]
if missing:
    print("missing:", *missing)
    sys.exit(1 if "VORELUTIL_REQUIRE_ALL" in os.environ else 77)

parser = argparse.ArgumentParser()
for name in ("build", "cmake", "source", "preload"):
    parser.add_argument("--" + name)
options = parser.parse_args()
here = os.path.dirname(os.path.abspath(__file__))
for name in ("PYTHONPATH", "PYTHONHOME", "VORELUTIL_LIBRARY", "VIRTUAL_ENV"):
    os.environ.pop(name, None)

with tempfile.TemporaryDirectory() as folder:

    def run(*command, **settings):
        subprocess.run(command, check=True, cwd=folder, **settings)

    run(options.cmake, "--install", options.build, "--prefix", folder + "/prefix", stdout=subprocess.DEVNULL)
    shutil.copytree(options.source + "/python", folder + "/python")
    run(sys.executable, "-m", "venv", "--system-site-packages", "env")
    python = folder + "/env/bin/python"
    quiet = {"PIP_" + name: "1" for name in ("QUIET", "NO_INDEX", "NO_CACHE_DIR", "DISABLE_PIP_VERSION_CHECK")}
    pip = (folder + "/env/bin/pip", "install", "--no-build-isolation", "--no-deps", "./python")
    run(*pip, env={**os.environ, **quiet})

    # The installed library is found by its name alone, the one that the module asks for.
    (library,) = glob.glob(folder + "/prefix/**/libvorelutil.so", recursive=True)
    libraries = os.path.dirname(library)
    environment = {**os.environ, "LD_LIBRARY_PATH": libraries, "PYTHONDONTWRITEBYTECODE": "1"}
    if options.preload:  # what a library with a sanitizer needs first; the interpreter's leaks are its own
        environment["LD_PRELOAD"] = options.preload
        environment["ASAN_OPTIONS"] = "detect_leaks=0"
    soname = "from vorelutil_tdc import _library; print(_library.__file__); print(_library.SONAME)"
    told = subprocess.check_output([python, "-c", soname], env=environment, cwd=folder, text=True)
    where, name = told.split()
    assert where.startswith(folder + "/env/"), where
    assert os.path.exists(f"{libraries}/{name}"), (name, os.listdir(libraries))
    run(python, "-m", "unittest", "--verbose", "tdc_test", env={**environment, "PYTHONPATH": here})

    with open(options.source + "/docs/reading-time-stamps-in-python.md", encoding="utf-8") as page:
        code = "\n".join(re.findall(r"```python\n(.*?)```", page.read(), re.S))
    run(python, "-c", code, env=environment)
    pasted = subprocess.run(
        [python, "-i"], input=code, env=environment, cwd=folder, stderr=subprocess.PIPE, text=True
    )
    assert "Error" not in pasted.stderr, pasted.stderr

    if os.path.exists(folder + "/prefix/bin/vorel"):  # the applications are built too
        pages = glob.glob(options.source + "/docs/formats/tdc-*.md")
        assert len(pages) == 5, pages
        environment = {**os.environ, "PATH": f"{folder}/prefix/bin:{os.environ['PATH']}"}
        for name in pages:
            with open(name, encoding="utf-8") as page:
                (example,) = re.findall(r"\n((?:    \$ .*\n)+)((?:    .*\n)+)", page.read())
            commands, output = (re.sub(r"(?m)^    (\$ )?", "", part) for part in example)
            shell = ["sh", "-ec", commands]
            ran = subprocess.run(shell, cwd=folder, env=environment, stdout=subprocess.PIPE, text=True)
            assert (ran.returncode, ran.stdout) == (0, output), (name, ran)
