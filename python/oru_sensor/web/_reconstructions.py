"""Spectra for the live view: the library's reconstructor of the calibration
the server was given, made once and kept, so that a reading costs the
library's matrix-vector work only. The library does all the arithmetic."""

import ctypes
import math

from .._calibration import _CCalibration
from .._measure import as_doubles

NUM_FILTERS = 1024
MAX_ALGORITHMS = 16
DEFAULT = "TNNLS-LCurve"


class _Info(ctypes.Structure):
    """duReadingInfo."""

    _fields_ = [("sensor_id", ctypes.c_char_p), ("allow_other_sensor", ctypes.c_int), ("shutter_speed", ctypes.c_int),
                ("master_clock", ctypes.c_int), ("adc_gain", ctypes.c_int), ("adc_range", ctypes.c_int)]


class _Result(ctypes.Structure):
    """duReconstructionResult."""

    _fields_ = [("weight", ctypes.c_double), ("residual_dn", ctypes.c_double), ("filters_used", ctypes.c_int),
                ("warnings", ctypes.c_int)]


def _declare(lib):
    c_int, c_char_p, p = ctypes.c_int, ctypes.c_char_p, ctypes.POINTER
    sigs = {
        "duReconstructionAlgorithmName": ([c_int], c_char_p),
        "duReconstructorCreate": ([p(_CCalibration), ctypes.c_void_p, c_char_p, c_int], ctypes.c_void_p),
        "duReconstructorFree": ([ctypes.c_void_p], None),
        "duReconstructorSetAlgorithm": ([ctypes.c_void_p, c_char_p, c_char_p, c_int], c_int),
        "duReconstructorGrid": ([ctypes.c_void_p, p(ctypes.c_double), c_int], c_int),
        "duReadingUsableFilters": ([p(ctypes.c_double), p(ctypes.c_ubyte)], c_int),
        "duReconstruct": ([ctypes.c_void_p, p(ctypes.c_double), p(ctypes.c_ubyte), p(_Info), p(ctypes.c_double),
                           p(_Result), c_char_p, c_int], c_int),
    }
    for name, (args, res) in sigs.items():
        fn = getattr(lib, name)
        fn.argtypes, fn.restype = args, res
    return lib


def algorithm_names(lib):
    """The algorithms the library provides, in its order."""
    _declare(lib)
    names = []
    for i in range(MAX_ALGORITHMS):
        name = lib.duReconstructionAlgorithmName(i)
        if name is None:
            break
        names.append(name.decode())
    return names


class Spectra:
    """One reconstructor of a calibration (a Calibration). Called by the
    acquisition thread only: it turns each reading shown into a spectrum."""

    def __init__(self, lib, calibration):
        self._lib = _declare(lib)
        error = ctypes.create_string_buffer(512)
        self._r = lib.duReconstructorCreate(calibration._cal, None, error, len(error))
        if not self._r:
            raise ValueError(error.value.decode(errors="replace"))
        n = lib.duReconstructorGrid(self._r, None, 0)
        grid = (ctypes.c_double * n)()
        lib.duReconstructorGrid(self._r, grid, n)
        self.wavelengths = [round(w, 3) for w in grid]
        self.algorithms = algorithm_names(lib)
        self.algorithm = DEFAULT  # what a reconstructor made without options uses
        self._spectrum = (ctypes.c_double * n)()
        self._error = error

    def use(self, algorithm):
        """Switches the algorithm; None, or the library's line why not."""
        if algorithm == self.algorithm:
            return None
        if self._lib.duReconstructorSetAlgorithm(self._r, algorithm.encode(), self._error, len(self._error)) != 1:
            return self._error.value.decode(errors="replace")
        self.algorithm = algorithm
        return None

    def reconstruct(self, raw, corrected, sensor_id, settings):
        """The spectrum of a reading: its dark-corrected values, with the
        filters its raw values show saturated or abnormal left out. A dict
        for the page; its "error" is the library's line when it refused."""
        raw = as_doubles(raw)
        usable = (ctypes.c_ubyte * NUM_FILTERS)()
        self._lib.duReadingUsableFilters(raw, usable)
        info = _Info(sensor_id.encode(), 0, settings.shutter_speed, settings.master_clock, settings.adc_gain,
                     settings.adc_range)
        result = _Result()
        if self._lib.duReconstruct(self._r, corrected, usable, ctypes.byref(info), self._spectrum,
                                   ctypes.byref(result), self._error, len(self._error)) != 1:
            return {"algorithm": self.algorithm, "error": self._error.value.decode(errors="replace")}
        return {"algorithm": self.algorithm, "wavelengths": self.wavelengths,
                "values": [None if math.isnan(v) else round(v, 6) for v in self._spectrum],
                "weight": result.weight if math.isfinite(result.weight) else None,  # JSON has no NaN
                "residual_dn": round(result.residual_dn, 3) if math.isfinite(result.residual_dn) else None,
                "filters_used": result.filters_used, "settings_differ": bool(result.warnings & 1)}

    def close(self):
        if self._r:
            self._lib.duReconstructorFree(self._r)
            self._r = None
