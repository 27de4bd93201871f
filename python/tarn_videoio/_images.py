"""Still images."""

from __future__ import annotations

import os
from typing import TYPE_CHECKING, Any, Optional, Union

from . import _checks, _native
from ._calls import call
from ._sources import Source, local_path, origin_of, plain_path
from ._writers import batch_of

if TYPE_CHECKING:
    import numpy as np
    from numpy.typing import NDArray

_EXTENSIONS = (".jpg", ".jpeg", ".png", ".ppm")


def _require_extension(path: str) -> None:
    if os.path.splitext(path)[1].lower() not in _EXTENSIONS:
        raise ValueError(f"{path!r} does not end in {', '.join(_EXTENSIONS)}")


def read_image(source: Source, *, upright: bool = True) -> "NDArray[np.uint8]":
    """An image as uint8 (H, W, 3).

    A path has to end in .png, .jpg, .jpeg or .ppm, in any case; bytes and file objects may hold
    whatever FFmpeg reads. With `upright` a photo is turned and mirrored as its camera says.
    """
    origin = origin_of(source)
    upright = _checks.flag(upright, "upright")
    if origin.path is not None:
        if not os.path.isdir(origin.path):
            os.stat(origin.path)
            _require_extension(origin.path)
    return call(origin.name, _native.read_image, origin.open(), upright, path=origin.path)


def write_image(path: Union[str, "os.PathLike[str]"], picture: Any, *,
                quality: Optional[int] = None, compression: Optional[int] = None) -> None:
    """Writes uint8 (H, W, 3) as PNG, JPEG or PPM, by the end of the name.

    `quality` is that of a JPEG, 1 to 100, `compression` that of a PNG, 0 to 9. The file gets its
    name when it is complete.
    """
    name = local_path(path)
    _require_extension(name)
    quality = _checks.optional_integer(quality, "quality", 1, 100)
    compression = _checks.optional_integer(compression, "compression", 0, 9)
    batch, height, width = batch_of(picture, "rgb24")
    if getattr(picture, "ndim", 3) != 3:
        raise ValueError(f"an array of the shape {picture.shape} is no picture")
    call(name, _native.write_image, os.fsencode(plain_path(name)), batch, height, width, quality,
         compression, path=name, writing=True)
