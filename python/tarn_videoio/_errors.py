"""What goes wrong, as exceptions of Python."""

from __future__ import annotations

import errno
import os
from fractions import Fraction
from typing import Any, FrozenSet, NoReturn, Optional, Tuple


class Error(Exception):
    """FFmpeg or the library refuses a source, or cannot go on with it.

    The text names the source. `code` is FFmpeg's, a negative number, or 0 where FFmpeg gave none.
    """

    def __init__(self, text: str = "", code: int = 0) -> None:
        super().__init__(text)
        self.code = code

    def __reduce__(self) -> Tuple[Any, ...]:
        return type(self), (str(self), self.code)


class Timeout(Error, TimeoutError):
    """A source did not answer within `open_timeout` or `read_timeout`."""


class IndexMismatch(Error):
    """An index was given for a source that it is not the index of."""


class Cancelled(Error):
    """`progress` returned False."""


# What open() may raise of the file itself; other codes of the system are FFmpeg's to tell.
_OF_OPENING = frozenset(
    (errno.ENOENT, errno.EACCES, errno.EPERM, errno.EISDIR, errno.ENOTDIR, errno.ELOOP,
     errno.ENAMETOOLONG, errno.EMFILE, errno.ENFILE, errno.EEXIST, errno.EROFS)
)
# What can only happen to the file that is written.
OF_A_FULL_DISK: FrozenSet[int] = frozenset((errno.ENOSPC, errno.EDQUOT, errno.EFBIG))
# What may happen to a file while it is written.
_OF_WRITING = _OF_OPENING | {errno.ENOSPC, errno.EDQUOT, errno.EFBIG, errno.EIO, errno.EBADF,
                             errno.EPIPE, errno.ENXIO, errno.ENODEV, errno.ETXTBSY, errno.EBUSY}


def _system_error(code: int, path: Optional[str], writing: bool) -> Optional[OSError]:
    number = -code
    if path is None:
        return None
    if not writing and os.path.isdir(path):
        number = errno.EISDIR
    if number in (_OF_WRITING if writing else _OF_OPENING):
        return OSError(number, os.strerror(number), path)
    return None


def raise_failure(failure: BaseException, name: str, path: Optional[str] = None,
                  writing: bool = False) -> NoReturn:
    """Raises what a user sees for a `_native.Failure`.

    `name` is that of the source or file, `path` the same where the system's errors may be told of
    it.
    """
    kind, text, code, detail = failure.args
    if kind == "closed":
        raise ValueError(f"{name} is closed") from None
    if kind == "nested":
        raise RuntimeError(f"{name} is used by a callback of its own call") from None
    if name not in text:
        text = f"{text}: {name}"
    if kind == "time":
        error = ValueError(text)
        error.nearest = Fraction(*detail)  # type: ignore[attr-defined]
        raise error from None
    if kind == "refusal":
        raise ValueError(text) from None
    if kind == "mismatch":
        raise IndexMismatch(text) from None
    if kind == "cancelled":
        raise Cancelled(text, code) from None
    if kind == "timeout":
        raise Timeout(text, code) from None
    if code == -errno.ENOMEM:
        raise MemoryError(text) from None
    raise (_system_error(code, path, writing) or Error(text, code)) from None
