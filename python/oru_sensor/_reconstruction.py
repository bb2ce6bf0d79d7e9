"""Spectra from filter readings: thin wrappers of the library's
reconstruction, which does all the linear algebra."""

import ctypes

from ._measure import as_doubles

NUM_FILTERS = 1024
# The library's own default; named here so that results can say which was used.
DEFAULT_ALGORITHM = "TNNLS-LCurve"
WARN_SETTINGS = 1


class ReconstructionError(ValueError):
    """The library refused a reconstruction; the message is its one line why
    and `code` its DU_RECON_E_* code (0 when it gave none)."""

    def __init__(self, code, message):
        self.code = code
        super().__init__(message)


class _Options(ctypes.Structure):
    _fields_ = [("algorithm", ctypes.c_char_p), ("range_start_nm", ctypes.c_double),
                ("range_end_nm", ctypes.c_double), ("step_nm", ctypes.c_double), ("all_filters", ctypes.c_int)]


class _Info(ctypes.Structure):
    _fields_ = [("sensor_id", ctypes.c_char_p), ("allow_other_sensor", ctypes.c_int),
                ("shutter_speed", ctypes.c_int), ("master_clock", ctypes.c_int), ("adc_gain", ctypes.c_int),
                ("adc_range", ctypes.c_int)]


class _Result(ctypes.Structure):
    _fields_ = [("weight", ctypes.c_double), ("residual_dn", ctypes.c_double), ("filters_used", ctypes.c_int),
                ("warnings", ctypes.c_int)]


def declare(lib):
    p, c_int, c_char_p, vp = ctypes.POINTER, ctypes.c_int, ctypes.c_char_p, ctypes.c_void_p
    sigs = {
        "duReconstructionAlgorithmName": ([c_int], c_char_p),
        "duReconstructorCreate": ([vp, p(_Options), c_char_p, c_int], vp),
        "duReconstructorFree": ([vp], None),
        "duReconstructorGrid": ([vp, p(ctypes.c_double), c_int], c_int),
        "duReadingUsableFilters": ([p(ctypes.c_double), p(ctypes.c_ubyte)], c_int),
        "duReconstruct": ([vp, p(ctypes.c_double), p(ctypes.c_ubyte), p(_Info), p(ctypes.c_double), p(_Result),
                           c_char_p, c_int], c_int),
    }
    for name, (args, res) in sigs.items():
        fn = getattr(lib, name)
        fn.argtypes, fn.restype = args, res
    return lib


def algorithm_names(lib):
    """The library's algorithm names, in its order."""
    names, index = [], 0
    while True:
        name = declare(lib).duReconstructionAlgorithmName(index)
        if name is None:
            return names
        names.append(name.decode())
        index += 1


class Spectrum:
    """One reconstructed spectrum: `wavelengths` (nm) and `values` (the
    calibration's radiance unit), the `algorithm`, its regularisation
    `weight`, the RMS `residual` (DN) over the `filters_used`, and
    `settings_differ` (the reading's master clock or ADC settings are not the
    calibration's)."""

    __slots__ = ("wavelengths", "values", "algorithm", "weight", "residual", "filters_used", "settings_differ")

    def __init__(self, wavelengths, values, algorithm, result):
        self.wavelengths, self.values, self.algorithm = wavelengths, values, algorithm
        self.weight, self.residual, self.filters_used = result.weight, result.residual_dn, result.filters_used
        self.settings_differ = bool(result.warnings & WARN_SETTINGS)

    def __repr__(self):
        return "<Spectrum %s %g..%g nm, weight %g, residual %.3g DN>" % (
            self.algorithm, self.wavelengths[0], self.wavelengths[-1], self.weight, self.residual)


class Reconstructor:
    """The library's reconstructor of one calibration, algorithm, range and
    step: its factorisation is made once, here; each reading then costs
    matrix-vector work. Usable from several threads (the library takes turns)."""

    def __init__(self, lib, calibration_ptr, algorithm, wavelength_range, step, values_of):
        self._lib = declare(lib)
        self.algorithm = algorithm or DEFAULT_ALGORITHM
        start, end = wavelength_range if wavelength_range is not None else (0.0, 0.0)
        options = _Options(self.algorithm.encode(), float(start), float(end), float(step or 0.0), 0)
        error = ctypes.create_string_buffer(512)
        self._r = self._lib.duReconstructorCreate(calibration_ptr, ctypes.byref(options), error, len(error))
        if not self._r:
            raise ReconstructionError(0, error.value.decode(errors="replace"))
        n = self._lib.duReconstructorGrid(self._r, None, 0)
        grid = (ctypes.c_double * n)()
        self._lib.duReconstructorGrid(self._r, grid, n)
        self._values_of = values_of
        self.wavelengths = values_of(grid)

    def reconstruct(self, values, info, raw=None):
        """Spectrum of 1024 dark-corrected DN; `raw` (1024 DN as read) leaves
        out the filters it shows saturated or abnormal."""
        usable = None
        if raw is not None:
            usable = (ctypes.c_ubyte * NUM_FILTERS)()
            self._lib.duReadingUsableFilters(as_doubles(raw), usable)
        out = (ctypes.c_double * len(self.wavelengths))()
        result, error = _Result(), ctypes.create_string_buffer(512)
        rc = self._lib.duReconstruct(self._r, as_doubles(values), usable, ctypes.byref(info), out,
                                     ctypes.byref(result), error, len(error))
        if rc != 1:
            raise ReconstructionError(rc, error.value.decode(errors="replace"))
        return Spectrum(self.wavelengths, self._values_of(out), self.algorithm, result)

    def close(self):
        if self._r:
            self._lib.duReconstructorFree(self._r)
            self._r = None


def reading_info(sensor_id, shutter_speed, master_clock, adc_gain, adc_range, allow_other_sensor=False):
    return _Info(sensor_id.encode() if sensor_id else None, int(bool(allow_other_sensor)), int(shutter_speed),
                 int(master_clock), int(adc_gain), int(adc_range))
