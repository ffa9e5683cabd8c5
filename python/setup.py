"""Builds the grabsystem Python module with the project's CMake.

    pip install --no-build-isolation ./python

The extension is the CMake target grabsystem_python, configured for the
interpreter that runs this script. GRABSYS_CMAKE_BUILD_DIR names a build
folder to reuse (the tests keep one between runs); otherwise setuptools'
temporary folder is used.
"""
import os
import re
import shutil
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)


class CMakeBuild(build_ext):
    def build_extension(self, ext):
        build = os.environ.get("GRABSYS_CMAKE_BUILD_DIR") or os.path.abspath(os.path.join(self.build_temp, "cmake"))
        generator = ["-G", "Ninja"] if shutil.which("ninja") else []
        subprocess.run(["cmake", "-S", ROOT, "-B", build, *generator, "-DCMAKE_BUILD_TYPE=Release",
                        "-DGRABSYS_BUILD_TESTS=OFF", "-DGRABSYS_BUILD_TOOLS=OFF", "-DGRABSYS_BUILD_PYTHON=ON",
                        f"-DPython3_EXECUTABLE={sys.executable}"], check=True)
        subprocess.run(["cmake", "--build", build, "--target", "grabsystem_python"], check=True)
        built = os.path.join(build, "python", "grabsystem")
        core = [f for f in os.listdir(built) if f.startswith("_core.") and f.endswith((".so", ".pyd"))]
        if len(core) != 1:
            raise RuntimeError(f"no single _core module in {built}: {core}")
        target = self.get_ext_fullpath(ext.name)
        os.makedirs(os.path.dirname(target), exist_ok=True)
        shutil.copyfile(os.path.join(built, core[0]), target)


def version():
    with open(os.path.join(ROOT, "CMakeLists.txt")) as f:
        return re.search(r"project\(GrabSystem VERSION ([0-9.]+)", f.read()).group(1)


setup(
    name="grabsystem",
    version=version(),
    description="The GrabSystem library for Python: scanner capture files to and from numpy, and the grab path",
    packages=["grabsystem"],
    package_data={"grabsystem": ["__init__.pyi", "py.typed"]},
    ext_modules=[Extension("grabsystem._core", sources=[])],
    cmdclass={"build_ext": CMakeBuild},
    install_requires=["numpy"],
    python_requires=">=3.8",
    zip_safe=False,
)
