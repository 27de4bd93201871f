# Made of _version.py by python/make-stubs; what is changed there is changed here by running it.
from __future__ import annotations
from typing import Dict
from . import _native
__version__: str

def versions() -> Dict[str, str]:
    ...
