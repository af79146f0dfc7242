"""Builds the Python package tivalo with the project's CMake build (see pyproject.toml).

The extension is built for the interpreter that runs this script. TIVALO_BUILD_DIR names a
build tree to reuse (it must have been configured for this interpreter); otherwise a tree of
its own is configured under the setuptools build directory.
"""

from __future__ import annotations

import os
import pathlib
import re
import shutil
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = pathlib.Path(__file__).resolve().parent
REUSED_BUILD = os.environ.get("TIVALO_BUILD_DIR")
# setuptools' own files stay out of the source tree's top level.
BUILD_BASE = pathlib.Path(REUSED_BUILD or ROOT / "build") / "setuptools"


def project_version() -> str:
    text = (ROOT / "CMakeLists.txt").read_text(encoding="utf-8")
    return re.search(r"project\(TivaloCOM VERSION ([0-9.]+)", text).group(1)


def run(*command: str) -> None:
    print("+", " ".join(command), flush=True)
    subprocess.run(command, check=True)


def configured_interpreter(build_dir: pathlib.Path) -> str | None:
    cache = build_dir / "CMakeCache.txt"
    if not cache.exists():
        return None
    found = re.search(r"^Python3_EXECUTABLE:[A-Z]+=(.*)$", cache.read_text(), re.MULTILINE)
    return found.group(1) if found else None


def base_interpreter() -> str:
    """The interpreter itself; in a virtual environment, the one the environment was made from."""
    return getattr(sys, "_base_executable", None) or sys.executable


class CMakeBuild(build_ext):
    def build_extension(self, ext: Extension) -> None:
        build_dir = pathlib.Path(REUSED_BUILD or pathlib.Path(self.build_temp) / "cmake").resolve()
        interpreter = configured_interpreter(build_dir)
        if interpreter is None:
            generator = ["-G", "Ninja"] if shutil.which("ninja") else []
            run("cmake", "-S", str(ROOT), "-B", str(build_dir), *generator,
                "-DCMAKE_BUILD_TYPE=Release", f"-DPython3_EXECUTABLE={sys.executable}")
        elif os.path.realpath(interpreter) != os.path.realpath(base_interpreter()):
            sys.exit(f"{build_dir} builds for {interpreter}, not {sys.executable}: "
                     "use another TIVALO_BUILD_DIR")
        run("cmake", "--build", str(build_dir), "--target", "tivalo_python",
            "--parallel", str(os.cpu_count() or 1))

        staging = pathlib.Path(self.build_temp).resolve() / "staging"
        shutil.rmtree(staging, ignore_errors=True)
        run("cmake", "--install", str(build_dir), "--component", "python", "--prefix", str(staging))
        installed = next(staging.rglob("tivalo/__init__.py")).parent
        package = pathlib.Path(self.get_ext_fullpath(ext.name)).parent
        shutil.copytree(installed, package, dirs_exist_ok=True)
        # The library travels with the extension, which finds it beside itself.
        library = pathlib.Path((build_dir / "python" / "library_for_wheel.txt").read_text().strip())
        shutil.copy2(library.resolve(), package / library.name)


setup(
    version=project_version(),
    packages=[],
    ext_modules=[Extension("tivalo._tivalo", sources=[])],
    cmdclass={"build_ext": CMakeBuild},
    options={"build": {"build_base": str(BUILD_BASE)}, "egg_info": {"egg_base": str(BUILD_BASE)}},
    zip_safe=False,
)
