"""What a read or stream does with the values it gets: the measurement mode
against a dark and a reference, and a spectrum from a calibration. The
library computes every number; this only hands it the arrays and settings."""

import ctypes

from . import _library, _measure
from ._calibration import Calibration
from ._reconstruction import reading_info
from ._stream import values_of

RATIO_MODES = ("transmittance", "reflectance", "absorbance")
ZEROS = (ctypes.c_double * _measure.NUM_FILTERS)()  # a sample for checking settings alone


def library():
    """The loaded library, with the measurement functions declared."""
    lib = _library._loaded if _library._loaded is not None else _library.load()
    if not getattr(lib, "_oru_measure_declared", False):
        _measure.declare(lib)
        lib._oru_measure_declared = True
    return lib


def stored(reading, role):
    """A Reading as the library's stored reading, for use as `role` ("dark"
    or "reference"); it must be a raw reading with its settings known."""
    if reading.mode != "raw" or reading.adc is None:
        raise ValueError("the %s must be a raw reading of a sensor or a file, not a %s reading"
                         % (role, reading.mode))
    out = _measure.StoredReading()
    ctypes.memmove(out.values, _measure.as_doubles(reading.raw), ctypes.sizeof(out.values))
    out.settings = settings_of(reading.shutter_speed, reading.master_clock, reading.adc)
    out.averages, out.saturated_filters, out.taken_realtime_ns = reading.averages, reading.saturated, \
        reading.realtime_ns
    return out


def settings_of(shutter_speed, master_clock, adc):
    return _measure.ReadingSettings(int(shutter_speed), int(master_clock), int(adc[0]), int(adc[1]))


def refuse_saturated(reading, role):
    """Raises MeasurementRefused for a dark or reference with saturated
    filters, in the library's words."""
    if reading.saturated > 0:
        refusal = {"dark": 6, "reference": 7}[role]  # DU_REFUSAL_DARK_SATURATED, _REFERENCE_SATURATED
        raise _measure.refused(library(), refusal)


class Measuring:
    """mode (see Reading) against dark and reference (raw Readings, from
    Sensor.take_dark/take_reference or oru_sensor.load_reading), and, with a
    calibration (a Calibration or its path), a spectrum by `algorithm` on
    `range` (first, last nm) at `step` nm. Spectra are of the dark-corrected
    DN, so the ratio modes take none."""

    def __init__(self, mode="raw", dark=None, reference=None, calibration=None, algorithm=None, range=None,
                 step=None):
        self._lib = library()
        _measure.mode_number(mode)  # ValueError for an unknown mode, before any frame is read
        self.mode, self.unit = mode, _measure.mode_unit(self._lib, mode)
        self.dark, self.reference = dark, reference
        self._dark = None if dark is None else stored(dark, "dark")
        self._reference = None if reference is None else stored(reference, "reference")
        if calibration is not None and mode in RATIO_MODES:
            raise ValueError("spectra are reconstructed from dark-corrected DN: read in mode raw, dark or rate "
                             "with a calibration, not %s" % mode)
        if calibration is not None and not isinstance(calibration, Calibration):
            calibration = Calibration(calibration)
        self.calibration = calibration
        self._spectrum_options = (algorithm, range, step)
        if calibration is not None:  # an unknown algorithm or a bad range fails now; the factorisation is kept
            calibration.reconstructor(*self._spectrum_options)

    def _measure(self, mode, values, settings):
        return _measure.measure(self._lib, mode, values, settings, dark=self._dark, reference=self._reference)

    def check(self, sensor, master_clock):
        """Raises MeasurementRefused now when the dark or reference does not
        fit the sensor's settings, before frames are read for nothing. Raw
        readings need no check (and no call to the sensor)."""
        if self.mode != "raw":
            self._measure(self.mode, ZEROS, settings_of(sensor.shutter_speed, master_clock, sensor.adc))

    def apply(self, reading, adc):
        """Fills in reading's mode, values, exposure and spectrum; returns it."""
        reading.adc = adc
        settings = settings_of(reading.shutter_speed, reading.master_clock, adc)
        out, result = self._measure(self.mode, reading.raw, settings)
        reading.values, reading.mode, reading.unit = values_of(out), self.mode, self.unit
        reading.exposure_us = result.exposure_us
        reading.dark_source = {1: "stored", 2: "background"}.get(result.dark_source)
        # Only what the library used is the reading's identity in files.
        reading.dark = self.dark if reading.dark_source == "stored" else None
        reading.reference = self.reference if self.mode in RATIO_MODES else None
        reading.invalid = result.invalid_count
        if self.calibration is not None:
            corrected = out if self.mode == "dark" else self._measure("dark", reading.raw, settings)[0]
            info = (reading.sensor_id, reading.shutter_speed, reading.master_clock, adc[0], adc[1])
            reading.reconstruction = self.calibration.reconstructor(*self._spectrum_options).reconstruct(
                corrected, reading_info(*info), raw=reading.raw)
        return reading
