# SPDX-License-Identifier: MIT
"""pip install bindings/python: the module built by its CMake definition
(CMakeLists.txt beside this file, the same one the whole tree's build uses)
against the libtidewell that find_package(tidewell) finds, so the library's
-dev package (or an install of the tree) must be there, with cmake, a C++20
compiler, Python's development files and pybind11."""
import os
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

here = Path(__file__).resolve().parent


class cmake_build_ext(build_ext):
    def build_extension(self, ext):
        package = Path(self.get_ext_fullpath(ext.name)).resolve().parent.parent
        build = Path(self.build_temp).resolve() / "cmake"
        subprocess.check_call(["cmake", "-S", str(here), "-B", str(build), "-DCMAKE_BUILD_TYPE=Release",
                               f"-DPython_EXECUTABLE={sys.executable}", f"-DTIDEWELL_PYTHON_OUTPUT={package}"])
        subprocess.check_call(["cmake", "--build", str(build), "-j", str(os.cpu_count() or 1)])


setup(
    name="tidewell",
    version="0.1.0",
    description="Fast, tolerant e-mail message parsing: typed fields, parallel parsing without the GIL, Dask",
    license="MIT",
    python_requires=">=3.9",
    packages=["tidewell"],
    package_data={"tidewell": ["__init__.pyi", "py.typed"]},
    ext_modules=[Extension("tidewell._tidewell", sources=[])],
    cmdclass={"build_ext": cmake_build_ext},
    extras_require={"dask": ["dask[bag,dataframe]", "distributed", "pandas"]},
)
