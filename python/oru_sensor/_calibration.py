"""A sensor's spectral calibration file (HDF5), read by the library: the
wavelength grid and, per filter, where it sees light."""

import ctypes
import math

from . import _library

NUM_FILTERS = 1024


class _CCalibration(ctypes.Structure):
    """duCalibration of the C interface."""

    _fields_ = [("wavelength_count", ctypes.c_int), ("wavelength_nm", ctypes.POINTER(ctypes.c_double)),
                ("response", ctypes.POINTER(ctypes.c_double)), ("dark", ctypes.POINTER(ctypes.c_double)),
                ("valid_filters", ctypes.POINTER(ctypes.c_ubyte)), ("sensor_id", ctypes.c_char * 32),
                ("master_clock", ctypes.c_int), ("adc_gain", ctypes.c_int), ("adc_range", ctypes.c_int),
                ("created", ctypes.c_char * 32), ("source", ctypes.c_char * 16), ("description", ctypes.c_char * 256)]


def _declare(lib):
    p_cal, p_double = ctypes.POINTER(_CCalibration), ctypes.POINTER(ctypes.c_double)
    lib.duCalibrationRead.argtypes, lib.duCalibrationRead.restype = [ctypes.c_char_p, ctypes.c_char_p,
                                                                     ctypes.c_int], p_cal
    lib.duCalibrationFree.argtypes, lib.duCalibrationFree.restype = [p_cal], None
    lib.duCalibrationFilterBands.argtypes = [p_cal, p_double, p_double, p_double]
    lib.duCalibrationFilterBands.restype = ctypes.c_int
    return lib


class Calibration:
    """Calibration(path): the file read whole by the library, or ValueError
    with its one line why. Uses the library connect() loaded (or loads it
    for USB sensors)."""

    def __init__(self, path):
        self._lib = _declare(_library.load() if _library._loaded is None else _library._loaded)
        error = ctypes.create_string_buffer(512)
        self._cal = self._lib.duCalibrationRead(str(path).encode(), error, len(error))
        if not self._cal:
            raise ValueError(error.value.decode(errors="replace"))
        c = self._cal.contents
        self.sensor_id = c.sensor_id.decode(errors="replace")
        self.wavelengths = [c.wavelength_nm[i] for i in range(c.wavelength_count)]

    def bands(self):
        """Per filter: (centroid, lowest, highest wavelength at half maximum)
        in nm; None for a filter that sees no light."""
        arrays = [(ctypes.c_double * NUM_FILTERS)() for _ in range(3)]
        self._lib.duCalibrationFilterBands(self._cal, *arrays)
        return [tuple(None if math.isnan(a[i]) else a[i] for a in arrays) for i in range(NUM_FILTERS)]

    def close(self):
        if self._cal:
            self._lib.duCalibrationFree(self._cal)
            self._cal = None

    def __del__(self):
        self.close()
