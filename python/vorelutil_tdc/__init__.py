"""Time stamps of a time-to-digital converter: packets of words to NumPy arrays, and back.

    import vorelutil_tdc as tdc

    events = tdc.decode(open("run.tdc", "rb").read(), "56")
    counts = tdc.histogram(events, start=0, stop=1, bin_width=10, bins=1000)

Events are structured arrays of the dtype `EVENT`: `time` (int64, clock periods of the converter) and
`channel` (uint8, a channel or a marker code), 16 bytes a record, as the library writes them and as
`vorel tdc decode -o FILE.npy` stores them.

Formats are named "56", "52", "52x", "60" and "60b" (the numbers 56, 52 and 60 do as well). Words are 32-bit
and little-endian; format 60b is a stream of bytes. Input is `bytes` or another object with the buffer
interface, or a one-dimensional array of uint32 words or uint8 bytes; a memory-mapped array is read where it
is. Arrays with gaps or of the other byte order are converted, which copies them. Every other dtype or shape is
a ValueError.

Nothing is lost: the stream is cut so that the library's buffer cannot overflow, records that a piece of input
cuts wait for the next piece, and what sorting holds back comes at the end.

The functions need the shared library `libvorelutil`. It is looked for at the first call: the path in the
environment variable VORELUTIL_LIBRARY and no other if it is set, else where the system looks for libraries.
OSError names what was tried.
"""

from ._decoder import Decoder, Summary, decode, iter_decode
from ._events import EVENT, MARKER_CODES, encode, histogram

__all__ = ["EVENT", "MARKER_CODES", "Decoder", "Summary", "decode", "encode", "histogram", "iter_decode"]
