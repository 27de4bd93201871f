"""Which version of what is at work."""

from __future__ import annotations

from typing import Dict

from . import _native

__version__: str = _native.version


def versions() -> Dict[str, str]:
    """Versions by name: of this package, of FFmpeg's release, and of its libraries as they are
    loaded; with " (compiled)" behind the name, as this package was compiled with them."""
    found = {"tarn_videoio": __version__}
    for name, version in _native.versions().items():
        if isinstance(version, str):
            found[name] = version
        else:
            found[f"{name} (compiled)"], found[name] = version
    return found
