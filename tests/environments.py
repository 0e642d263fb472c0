"""Fresh virtual environments, for the tests that install this project as its
users do: from the wheels and the sdist that scripts/wheels leaves in dist/."""

import shutil
import subprocess
import tarfile
import sys
import venv
import zipfile
from pathlib import Path

DIST = Path(__file__).resolve().parents[1] / "dist"
TAG = f"cp{sys.version_info.major}{sys.version_info.minor}"


def _built(pattern):
    found = sorted(DIST.glob(pattern))
    assert len(found) == 1, f"expected one {pattern} in {DIST}, found {len(found)}: run scripts/wheels"
    return found[0]


def module_wheel():
    """The module's manylinux wheel for the running Python."""
    return _built(f"velquorn_next_steps-*-{TAG}-{TAG}-manylinux_*.whl")


def module_sdist():
    return _built("velquorn_next_steps-*.tar.gz")


def sdist_files(sdist):
    """The files of a source distribution, by path below its top folder."""
    with tarfile.open(sdist) as archive:
        return {member.name.split("/", 1)[1] for member in archive.getmembers() if member.isfile()}


def wheel_built_from(sdist, folder):
    """The wheel a user's ``pip install`` builds from ``sdist``, copied away from here; with the build's log."""
    copy = shutil.copy(sdist, folder)
    done = subprocess.run(
        [sys.executable, "-m", "pip", "wheel", "--no-deps", "--disable-pip-version-check", "-v", "-w", str(folder), copy],
        cwd=folder, capture_output=True, text=True, timeout=900,
    )
    assert done.returncode == 0, f"{done.stdout}{done.stderr}"
    [wheel] = Path(folder).glob("velquorn_next_steps-*.whl")
    return wheel, done.stdout + done.stderr


def standins_wheel():
    return _built("velquorn_next_steps_standins-*-py3-none-any.whl")


def wheel_files(wheel):
    """The files a wheel installs, by path below site-packages, without its .dist-info."""
    with zipfile.ZipFile(wheel) as archive:
        names = [name for name in archive.namelist() if not name.endswith("/") and ".dist-info/" not in name]
        return {name: archive.read(name) for name in names}


def _run(command):
    done = subprocess.run(command, capture_output=True, text=True, timeout=120)
    assert done.returncode == 0, f"{command}\n{done.stdout}{done.stderr}"
    return done.stdout


class Environment:
    """A new virtual environment without pip of its own (much quicker): the tests' pip installs into it."""

    def __init__(self, folder):
        venv.create(folder, with_pip=False)
        self.folder = folder
        self.python = folder / "bin" / "python"
        self.site = Path(self.run("import sysconfig; print(sysconfig.get_path('purelib'))").strip())

    def run(self, code):
        """Run Python code in the environment; its standard output."""
        return _run([str(self.python), "-c", code])

    def failure(self, code):
        """The last line that Python code, which must fail, writes to standard error."""
        done = subprocess.run([str(self.python), "-c", code], capture_output=True, text=True, timeout=120)
        assert done.returncode != 0, done.stdout
        return done.stderr.splitlines()[-1]

    def pip(self, *args):
        return _run([sys.executable, "-m", "pip", "--python", str(self.python), "--disable-pip-version-check", *args])

    def install(self, *wheels):
        self.pip("install", "--no-index", "--only-binary", ":all:", *map(str, wheels))

    def files(self):
        """Every installed file below site-packages, by path, but pip's records and byte code."""
        found = {path.relative_to(self.site): path for path in self.site.rglob("*") if path.is_file()}
        return {
            name.as_posix(): path.read_bytes()
            for name, path in found.items()
            if not any(part.endswith(".dist-info") or part == "__pycache__" for part in name.parts)
        }

    def mypy_errors(self, source):
        """``mypy --strict`` of a user's file, against what this environment has installed (no cache)."""
        user = self.folder / "user_code.py"
        user.write_text(source)
        done = subprocess.run(
            [sys.executable, "-m", "mypy", "--strict", "--no-error-summary", "--cache-dir", "/dev/null",
             "--python-executable", str(self.python), str(user)],
            capture_output=True, text=True, timeout=120,
        )
        return [line.removeprefix(f"{user}:") for line in done.stdout.splitlines()]
