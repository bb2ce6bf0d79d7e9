"""What the live view shows of a reading: the library's measurement mode of
it (raw, dark, rate, transmittance, reflectance, absorbance) against the
dark and reference kept per sensor, and, with a calibration, its spectrum.
The library computes every number; this file only chooses and passes on."""

import math
import threading

from .. import _library
from .. import _measure
from ._values import BadValue

MASTER_CLOCK = 1  # MHz, the clock the live view converts every exposure at
KINDS = {"dark": _measure.KIND_DARK, "reference": _measure.KIND_REFERENCE}


def _finite(values, digits):
    return [None if math.isnan(v) or math.isinf(v) else round(v, digits) for v in values]


class Measuring:
    """Shared state, guarded by `_lock`: the mode, the algorithm asked for
    and the dark and reference of each sensor are written by the HTTP side
    (the event loop's thread); the acquisition thread reads them for every
    reading it shows. `_spectra` is used by the acquisition thread only."""

    def __init__(self, adc, spectra=None):
        self._lib = _measure.declare(_library._loaded)
        self._adc = adc                 # sensor ID -> (ADC gain, range), read before the server started
        self._spectra = spectra
        self._lock = threading.Lock()
        self._mode = "raw"
        self._algorithm = spectra.algorithm if spectra else None
        self._stored = {}               # (sensor ID, "dark" | "reference") -> (StoredReading, Reading)
        self.units = {m: _measure.mode_unit(self._lib, m) for m in _measure.MODES}

    def settings(self, sensor_id, shutter_speed):
        gain, rng = self._adc.get(sensor_id, (0, 0))
        return _measure.ReadingSettings(shutter_speed, MASTER_CLOCK, gain, rng)

    def exposure_ms(self, shutter_speed):
        """The exact time the sensor integrates, from the library."""
        return _measure.exact_exposure_us(self._lib, MASTER_CLOCK, shutter_speed) / 1000.0

    # -- the HTTP side ------------------------------------------------------

    def choose(self, mode=None, algorithm=None):
        with self._lock:
            if mode is not None:
                if mode not in _measure.MODES:
                    raise BadValue("mode must be one of %s" % ", ".join(_measure.MODES))
                self._mode = mode
            if algorithm is not None:
                if self._spectra is None:
                    raise BadValue("no calibration: start the live view with --calibration FILE")
                if algorithm not in self._spectra.algorithms:
                    raise BadValue("algorithm must be one of %s" % ", ".join(self._spectra.algorithms))
                self._algorithm = algorithm

    def keep(self, kind, reading):
        """Keeps `reading` as the dark or reference of its sensor, or drops
        that sensor's one when `reading` is (sensor ID, None)."""
        if isinstance(reading, tuple):
            with self._lock:
                self._stored.pop((reading[0], kind), None)
            return
        stored = _measure.StoredReading(
            values=_measure.as_doubles(reading.values), settings=self.settings(reading.sensor_id, reading.shutter_speed),
            averages=reading.averages, saturated_filters=reading.saturated,
            taken_realtime_ns=int(reading.time.timestamp() * 1e9))
        with self._lock:
            self._stored[(reading.sensor_id, kind)] = (stored, reading)

    def file(self, kind, sensor_id):
        """The kept dark or reference as the library's CSV reading file, with
        its reading's time for the file name; None when there is none."""
        with self._lock:
            kept = self._stored.get((sensor_id, kind))
        if kept is None:
            return None
        stored, r = kept
        header = _measure.format_header(self._lib, _measure.FILE_CSV, KINDS[kind], "raw",
                                        [(sensor_id, stored.settings, None, None)])
        row = _measure.format_row(self._lib, _measure.FILE_CSV, sensor_id, stored.taken_realtime_ns, r.first_sequence,
                                  r.last_sequence, stored.settings, r.averages, r.saturated, r.gap_before, r.values)
        return header + row, r.time

    def status(self, status):
        """`status` with what the page shows of the measurement."""
        with self._lock:
            sid = status.get("sensor_id")
            kept = {k: self._stored.get((sid, k)) for k in KINDS}
            status = dict(status, mode=self._mode, unit=self.units[self._mode], algorithm=self._algorithm,
                          algorithms=self._spectra.algorithms if self._spectra else [])
        for kind, stored in kept.items():
            status[kind] = None if stored is None else {
                "shutter_speed": stored[1].shutter_speed, "averages": stored[1].averages,
                "time": stored[1].time.isoformat(timespec="seconds")}
        if status.get("shutter_speed") is not None and status.get("exposure_ms") is not None:
            status["exposure_ms"] = self.exposure_ms(status["shutter_speed"])
        return status

    # -- the acquisition thread ---------------------------------------------

    def event(self, reading, rate):
        """The page's message for one reading: the chosen mode of it, or the
        library's line why that mode cannot be shown, and its spectrum."""
        with self._lock:
            mode, algorithm = self._mode, self._algorithm
            dark = self._stored.get((reading.sensor_id, "dark"))
            reference = self._stored.get((reading.sensor_id, "reference"))
        settings = self.settings(reading.sensor_id, reading.shutter_speed)
        dark = dark and dark[0]
        message = {"rate": rate, "sensor_id": reading.sensor_id, "last_sequence": reading.last_sequence,
                   "shutter_speed": reading.shutter_speed, "exposure_ms": self.exposure_ms(reading.shutter_speed),
                   "averages": reading.averages, "saturated": reading.saturated, "dropped": reading.dropped,
                   "time": reading.time.isoformat(timespec="milliseconds"), "mode": mode, "unit": self.units[mode],
                   "raw": None if mode == "raw" else _finite(reading.values, 1),  # for the saturation marks
                   "refusal": None, "values": None, "invalid": 0}
        try:
            out, result = _measure.measure(self._lib, mode, reading.values, settings, None, dark,
                                           reference and reference[0])
            message.update(values=_finite(out, 1 if self.units[mode] == "DN" else 4), invalid=result.invalid_count)
        except _measure.OruError as e:
            message["refusal"] = str(e)
        if self._spectra is not None:
            message["spectrum"] = self._spectrum(reading, settings, dark, algorithm)
        return message

    def _spectrum(self, reading, settings, dark, algorithm):
        why = self._spectra.use(algorithm)
        if why:
            return {"algorithm": algorithm, "error": why}
        try:
            corrected, _ = _measure.measure(self._lib, "dark", reading.values, settings, None, dark, None)
        except _measure.OruError as e:
            return {"algorithm": algorithm, "error": str(e)}
        return self._spectra.reconstruct(reading.values, corrected, reading.sensor_id, settings)
