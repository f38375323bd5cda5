# SPDX-License-Identifier: MIT
"""pip install bindings/python, offline, into a virtual environment, against
the library installed from this build into a prefix: the module it builds is
the one the tree builds (same names, same docstrings, same records)."""
import json
import os
import shutil
import subprocess
import sys
from pathlib import Path

import pytest

from conftest import EXAMPLES, SOURCE

PROBE = """
import json, sys, tidewell
names = sorted(n for n in dir(tidewell) if not n.startswith("_"))
print(json.dumps({"file": tidewell.__file__, "names": names,
                  "docs": {n: getattr(tidewell, n).__doc__ for n in names},
                  "records": [m.to_dict() for m in tidewell.iter_messages(sys.argv[1], problems=True)]}))
"""


def probe(python, env):
    out = subprocess.run([python, "-c", PROBE, str(EXAMPLES)], env=env, check=True, stdout=subprocess.PIPE,
                         cwd="/").stdout
    return json.loads(out)


def test_pip_builds_the_same_module(tmp_path):
    build = os.environ.get("TIDEWELL_BUILD_DIR")
    if not build:
        pytest.skip("TIDEWELL_BUILD_DIR does not name the build")
    prefix, venv, source = tmp_path / "prefix", tmp_path / "venv", tmp_path / "source"
    subprocess.run(["cmake", "--install", build, "--prefix", str(prefix)], check=True, stdout=subprocess.DEVNULL)
    shutil.copytree(SOURCE / "bindings" / "python", source, ignore=shutil.ignore_patterns("tests", "build"))
    subprocess.run(["/usr/bin/python3", "-m", "venv", "--system-site-packages", str(venv)], check=True)
    env = dict(os.environ, CMAKE_PREFIX_PATH=str(prefix))
    env.pop("PYTHONPATH", None)
    subprocess.run([venv / "bin" / "python", "-m", "pip", "install", "--quiet", "--no-index", "--no-build-isolation",
                    str(source)], check=True, env=env)
    installed = probe(venv / "bin" / "python", env)
    assert installed["file"].startswith(str(venv))
    tree = probe(sys.executable, dict(os.environ))
    assert installed["file"] != tree["file"]
    for key in ("names", "docs", "records"):
        assert installed[key] == tree[key], key
