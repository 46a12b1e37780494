# SPDX-License-Identifier: MIT
"""The scripts of the project, as modules and as files."""
import importlib.machinery
import importlib.util
from pathlib import Path

SCRIPTS = Path(__file__).resolve().parent.parent.parent / "scripts"


def load(name):
    loader = importlib.machinery.SourceFileLoader(name, str(SCRIPTS / name))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader(name, loader))
    loader.exec_module(module)
    return module
