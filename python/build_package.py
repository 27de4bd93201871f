"""Builds a wheel by CMake, for pip (PEP 517), with nothing from a network.

The wheel holds the package and our own libraries; FFmpeg is the system's. Options for CMake come from the
environment variable TARN_CMAKE_OPTIONS.
"""

import base64
import hashlib
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import sysconfig
import tarfile
import tempfile
import zipfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
NAME = "tarn_videoio"


def version():
    return re.search(r"project\(tarn_videoio VERSION ([0-9.]+)",
                     (ROOT / "CMakeLists.txt").read_text())[1]


def metadata():
    return (f"Metadata-Version: 2.1\nName: {NAME}\nVersion: {version()}\n"
            "Summary: Exact reading and writing of video, sound and images over FFmpeg\n"
            "Requires-Python: >=3.9\nRequires-Dist: numpy>=1.19\n"
            "Description-Content-Type: text/markdown\n\n" + (ROOT / "README.md").read_text())


def tag():
    python = f"cp{sys.version_info.major}{sys.version_info.minor}"
    platform = re.sub(r"[-.]", "_", sysconfig.get_platform())
    return f"{python}-{python}-{platform}"


def build(folder):
    """Installs into a folder: the package, and the libraries in its own folder `lib`."""
    made = pathlib.Path(folder) / "build"
    stage = pathlib.Path(folder) / "stage"
    options = ["-DCMAKE_BUILD_TYPE=Release", "-DTARN_BUILD_PYTHON=ON", "-DTARN_BUILD_TESTS=OFF",
               "-DTARN_BUILD_TOOLS=OFF", "-DTARN_BUILD_EXAMPLES=OFF",
               "-DTARN_WARNINGS_AS_ERRORS=OFF", f"-DPython3_EXECUTABLE={sys.executable}",
               f"-DCMAKE_INSTALL_PREFIX={stage}", "-DTARN_PYTHON_FOLDER=.",
               f"-DCMAKE_INSTALL_LIBDIR={NAME}/lib"]
    if shutil.which("ninja"):
        options += ["-G", "Ninja"]
    options += shlex.split(os.environ.get("TARN_CMAKE_OPTIONS", ""))
    subprocess.run(["cmake", "-S", str(ROOT), "-B", str(made), *options], check=True)
    subprocess.run(["cmake", "--build", str(made), "--parallel", str(os.cpu_count() or 1)],
                   check=True)
    subprocess.run(["cmake", "--install", str(made)], check=True)
    return stage / NAME


def belongs(path):
    """Of the libraries those that are loaded: neither the names for the linker nor packages."""
    if path.parent.name == "lib" or path.parent.parent.name == "lib":
        return re.fullmatch(r"lib.*\.so\.\d+", path.name) is not None
    return path.suffix in (".py", ".pyi", ".so") or path.name == "py.typed"


def files_of(package):
    for path in sorted(package.rglob("*")):
        if path.is_file() and belongs(path):
            # A link becomes the file that it leads to.
            yield f"{NAME}/{path.relative_to(package)}", path.read_bytes()


def build_wheel(wheel_directory, config_settings=None, metadata_directory=None):
    name = f"{NAME}-{version()}-{tag()}.whl"
    info = f"{NAME}-{version()}.dist-info"
    with tempfile.TemporaryDirectory() as folder:
        content = dict(files_of(build(folder)))
    content[f"{info}/METADATA"] = metadata().encode()
    content[f"{info}/WHEEL"] = (f"Wheel-Version: 1.0\nGenerator: {NAME}\nRoot-Is-Purelib: false\n"
                                f"Tag: {tag()}\n").encode()
    content[f"{info}/LICENSE"] = (ROOT / "LICENSE").read_bytes()
    record = "".join(
        f"{path},sha256={base64.urlsafe_b64encode(hashlib.sha256(data).digest()).decode().rstrip('=')}"
        f",{len(data)}\n" for path, data in content.items())
    content[f"{info}/RECORD"] = f"{record}{info}/RECORD,,\n".encode()
    with zipfile.ZipFile(os.path.join(wheel_directory, name), "w", zipfile.ZIP_DEFLATED) as wheel:
        for path, data in content.items():
            entry = zipfile.ZipInfo(path)
            entry.compress_type = zipfile.ZIP_DEFLATED
            entry.external_attr = (0o755 if ".so" in path else 0o644) << 16
            wheel.writestr(entry, data)
    return name


def build_sdist(sdist_directory, config_settings=None):
    base = f"{NAME}-{version()}"
    with tarfile.open(os.path.join(sdist_directory, base + ".tar.gz"), "w:gz") as archive:
        for name in ("CMakeLists.txt", "pyproject.toml", "README.md", "CHANGELOG.md", "LICENSE",
                     "cmake", "companions", "include", "src", "python"):
            archive.add(ROOT / name, f"{base}/{name}",
                        filter=lambda entry: None if "__pycache__" in entry.name else entry)
        with tempfile.TemporaryDirectory() as folder:
            told = pathlib.Path(folder) / "PKG-INFO"
            told.write_text(metadata())
            archive.add(told, f"{base}/PKG-INFO")
    return base + ".tar.gz"
