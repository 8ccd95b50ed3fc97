"""16-bit TIFF files through libtiff (ctypes): uncompressed RGB written for
the murmex program, and whatever it writes read back."""

import ctypes
import ctypes.util

import numpy as np

_lib = ctypes.CDLL(ctypes.util.find_library("tiff") or "libtiff.so.6")
_lib.TIFFOpen.restype = ctypes.c_void_p
_lib.TIFFOpen.argtypes = [ctypes.c_char_p, ctypes.c_char_p]
_lib.TIFFClose.argtypes = [ctypes.c_void_p]
_lib.TIFFWriteScanline.argtypes = [ctypes.c_void_p, ctypes.c_void_p, ctypes.c_uint32, ctypes.c_uint16]
_lib.TIFFReadScanline.argtypes = [ctypes.c_void_p, ctypes.c_void_p, ctypes.c_uint32, ctypes.c_uint16]
_lib.TIFFScanlineSize.restype = ctypes.c_ssize_t
_lib.TIFFScanlineSize.argtypes = [ctypes.c_void_p]

IMAGEWIDTH, IMAGELENGTH, BITSPERSAMPLE, COMPRESSION = 256, 257, 258, 259
PHOTOMETRIC, SAMPLESPERPIXEL, ROWSPERSTRIP, PLANARCONFIG = 262, 277, 278, 284


def _set(tif, tag, value):
    # TIFFSetField is variadic: 16- and 32-bit values both travel as int.
    if _lib.TIFFSetField(ctypes.c_void_p(tif), ctypes.c_uint32(tag), ctypes.c_int(value)) != 1:
        raise OSError(f"libtiff refused tag {tag}")


def write(path, image):
    """Writes an H x W x 3 uint16 array as an uncompressed 16-bit RGB TIFF."""
    image = np.ascontiguousarray(image, dtype=np.uint16)
    height, width, channels = image.shape
    assert channels == 3
    tif = _lib.TIFFOpen(str(path).encode(), b"w")
    if not tif:
        raise OSError(f"cannot create {path}")
    try:
        for tag, value in [(IMAGEWIDTH, width), (IMAGELENGTH, height), (BITSPERSAMPLE, 16),
                           (SAMPLESPERPIXEL, 3), (PHOTOMETRIC, 2), (PLANARCONFIG, 1),
                           (COMPRESSION, 1), (ROWSPERSTRIP, 16)]:
            _set(tif, tag, value)
        for y in range(height):
            if _lib.TIFFWriteScanline(tif, image[y].ctypes.data, y, 0) != 1:
                raise OSError(f"cannot write row {y} of {path}")
    finally:
        _lib.TIFFClose(tif)


def read(path):
    """Reads a contiguous 16-bit TIFF as an H x W x samples uint16 array."""
    tif = _lib.TIFFOpen(str(path).encode(), b"r")
    if not tif:
        raise OSError(f"cannot open {path}")
    try:
        width, height = ctypes.c_uint32(), ctypes.c_uint32()
        bits, samples = ctypes.c_uint16(), ctypes.c_uint16()
        for tag, value in [(IMAGEWIDTH, width), (IMAGELENGTH, height), (BITSPERSAMPLE, bits),
                           (SAMPLESPERPIXEL, samples)]:
            if _lib.TIFFGetField(ctypes.c_void_p(tif), ctypes.c_uint32(tag), ctypes.byref(value)) != 1:
                raise OSError(f"{path}: no tag {tag}")
        assert bits.value == 16, f"{path}: {bits.value} bits per sample"
        image = np.empty((height.value, width.value, samples.value), dtype=np.uint16)
        assert _lib.TIFFScanlineSize(tif) == image[0].nbytes
        for y in range(height.value):
            if _lib.TIFFReadScanline(tif, image[y].ctypes.data, y, 0) != 1:
                raise OSError(f"cannot read row {y} of {path}")
        return image
    finally:
        _lib.TIFFClose(tif)
