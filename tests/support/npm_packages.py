"""Packages of npm that tests use, and nothing else does: installed once for the build tree, from npm's registry."""

import os
import shutil
import subprocess
from pathlib import Path


def package(name, version):
    """The folder of a package; None where npm is not installed, or its registry does not give it."""
    place = Path(os.environ["NPM_PACKAGES"], f"{name}-{version}")
    folder = place / "node_modules" / name
    install = ["npm", "install", "--no-audit", "--no-fund", "--ignore-scripts", "--prefix", place, f"{name}@{version}"]
    if not folder.exists() and (not shutil.which("npm") or subprocess.run(install, timeout=120).returncode != 0):
        return None
    return folder
