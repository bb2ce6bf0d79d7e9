"""A sensor's spectral calibration file (HDF5), read by the library: the
wavelength grid and, per filter, where it sees light."""

import ctypes
import math
import threading

from . import _library
from ._reconstruction import Reconstructor, algorithm_names, reading_info

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
        # (algorithm, range, step) -> Reconstructor: each factorises once.
        # Written under _lock by any thread that reconstructs or closes.
        self._lock, self._reconstructors = threading.Lock(), {}
        self._cal = self._lib.duCalibrationRead(str(path).encode(), error, len(error))
        if not self._cal:
            raise ValueError(error.value.decode(errors="replace"))
        c = self._cal.contents
        self.sensor_id = c.sensor_id.decode(errors="replace")
        self.wavelengths = [c.wavelength_nm[i] for i in range(c.wavelength_count)]
        self.master_clock, self.adc = c.master_clock, (c.adc_gain, c.adc_range)

    def algorithms(self):
        """The reconstruction algorithms the library provides, by name."""
        return algorithm_names(self._lib)

    def reconstructor(self, algorithm=None, range=None, step=None):
        """The library's reconstructor for these options, made (and its
        factorisation computed) on first use and kept with the calibration.
        Raises ReconstructionError (a ValueError) with the library's line for
        an unknown algorithm or a range or step outside the grid."""
        from ._stream import values_of
        key = (algorithm, None if range is None else tuple(float(x) for x in range), step)
        with self._lock:
            if self._cal is None:
                raise ValueError("the calibration is closed")
            if key not in self._reconstructors:
                self._reconstructors[key] = Reconstructor(self._lib, self._cal, algorithm, range, step, values_of)
            return self._reconstructors[key]

    def reconstruct(self, values, shutter_speed, algorithm=None, range=None, step=None, raw=None,
                    sensor_id=None, master_clock=None, adc=None, allow_other_sensor=False):
        """The spectrum (a Spectrum: wavelengths, values, algorithm, weight,
        residual) of 1024 dark-corrected DN read at shutter_speed.

        algorithm: one of algorithms() (default TNNLS-LCurve); range: (first,
        last) nm within the grid; step: nm, at least the grid's. raw: the
        reading as read, whose saturated and abnormal filters are then left
        out. sensor_id: the reading's sensor, refused when it is not the
        calibration's unless allow_other_sensor. master_clock and adc (gain,
        range) default to the calibration's; others set settings_differ."""
        adc_gain, adc_range = self.adc if adc is None else adc
        info = reading_info(sensor_id, shutter_speed, self.master_clock if master_clock is None else master_clock,
                            adc_gain, adc_range, allow_other_sensor)
        return self.reconstructor(algorithm, range, step).reconstruct(values, info, raw)

    def bands(self):
        """Per filter: (centroid, lowest, highest wavelength at half maximum)
        in nm; None for a filter that sees no light."""
        arrays = [(ctypes.c_double * NUM_FILTERS)() for _ in range(3)]
        self._lib.duCalibrationFilterBands(self._cal, *arrays)
        return [tuple(None if math.isnan(a[i]) else a[i] for a in arrays) for i in range(NUM_FILTERS)]

    def close(self):
        with self._lock:
            for r in self._reconstructors.values():
                r.close()
            self._reconstructors.clear()
        if self._cal:
            self._lib.duCalibrationFree(self._cal)
            self._cal = None

    def __del__(self):
        self.close()
