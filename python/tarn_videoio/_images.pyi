# Made of _images.py by python/make-stubs; what is changed there is changed here by running it.
from __future__ import annotations
import os
from typing import TYPE_CHECKING, Any, Optional, Union
from . import _checks, _native
from ._calls import call
from ._sources import Source, local_path, origin_of, plain_path
from ._writers import batch_of
import numpy as np
from numpy.typing import NDArray

def _require_extension(path: str) -> None:
    ...

def read_image(source: Source, *, upright: bool=True) -> 'NDArray[np.uint8]':
    ...

def write_image(path: Union[str, 'os.PathLike[str]'], picture: Any, *, quality: Optional[int]=None, compression: Optional[int]=None) -> None:
    ...
