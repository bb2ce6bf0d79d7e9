"""Readings and the frame stream of one sensor."""

import ctypes
import datetime
import logging
import time
from array import array

from . import _interruptible, _library
from ._errors import FwRecvTimeout, check

try:  # the default; a dependency of the package
    import numpy as _np
except ImportError:  # pragma: no cover - depends on the machine
    _np = None

NUM_FILTERS = 1024


class FrameStreamInfo(ctypes.Structure):
    """duFrameStreamInfo of the C interface."""

    _fields_ = [
        ("first_sequence", ctypes.c_uint64),
        ("last_sequence", ctypes.c_uint64),
        ("first_realtime_ns", ctypes.c_int64),
        ("last_realtime_ns", ctypes.c_int64),
        ("first_monotonic_ns", ctypes.c_int64),
        ("last_monotonic_ns", ctypes.c_int64),
        ("dropped_frames", ctypes.c_uint64),
        ("shutter_speed", ctypes.c_int32),
        ("saturated_filters", ctypes.c_int32),
    ]


def values_of(buf):
    """A copy of the C doubles in `buf`: a numpy array when numpy is there,
    else array('d'). Both copy the bytes at once; array('d', buf) would
    convert value by value, some 200 times slower."""
    if _np is not None:
        return _np.frombuffer(buf, dtype=_np.float64).copy()
    values = array("d")
    values.frombytes(memoryview(buf).cast("B"))
    return values


def mean_of_slices(slices):
    """The mean over the frames of several (frame count, mean values)."""
    total = sum(frames for frames, _ in slices)
    if _np is not None:
        return sum(frames * values for frames, values in slices) / total
    return array("d", (sum(frames * values[i] for frames, values in slices) / total for i in range(NUM_FILTERS)))


class Reading:
    """One averaged reading: `values` (1024 DN), the stream sequence numbers
    of its first and last frame (None for a single request), `time` (wall
    clock of its last frame, an aware datetime), `monotonic` (seconds),
    `shutter_speed`, `averages`, `saturated` (filters saturated by the library's
    rule: at 4095 DN in any frame averaged), `saturated_indices` (those
    filters, 0-based, in order),
    `dropped` (frames the stream lost so far, ring overflow), `sensor_id` and
    `gap_before` (seconds the sensor was lost, removed or failed, before it
    came back and this reading was taken; 0 when nothing was missed).

    How it was measured, all from the library's measurement functions:
    `mode` ("raw", "dark", "rate", "transmittance", "reflectance",
    "absorbance") and its `unit` ("DN", "DN/ms", "%", "AU"), `values` in that
    unit and `raw` (the DN as read), `exposure_us` (exact exposure),
    `master_clock` (MHz), `adc` (AdcSettings), `kind` ("readings", "dark" or
    "reference": what it was taken as), the `dark` and `reference` Readings
    it was measured against (None when none), `dark_source` ("stored",
    "background": the mean of the background filters, or None in raw mode)
    and `invalid` (values that are NaN: a reference at or below its dark).

    Read with a calibration, `reconstruction` is its Spectrum and
    `wavelengths` (nm), `spectrum`, `algorithm`, `weight` and `residual` (DN)
    are its parts; all None without one.

    `save(path)` writes it to a reading file (CSV or JSON Lines by suffix);
    oru_sensor.load_reading reads one back."""

    __slots__ = ("values", "first_sequence", "last_sequence", "time", "monotonic", "shutter_speed",
                 "averages", "saturated", "saturated_indices", "dropped", "sensor_id", "gap_before", "realtime_ns",
                 "raw", "mode", "unit", "exposure_us", "master_clock", "adc", "kind", "dark", "reference",
                 "dark_source", "invalid", "reconstruction")

    def __init__(self, values, *, first_sequence, last_sequence, time, monotonic, shutter_speed, averages,
                 saturated, dropped, sensor_id, gap_before=0.0, saturated_indices=(), realtime_ns=None,
                 master_clock=1, adc=None, exposure_us=None, kind="readings"):
        self.values = values
        self.first_sequence = first_sequence
        self.last_sequence = last_sequence
        self.time = time
        self.monotonic = monotonic
        self.shutter_speed = shutter_speed
        self.averages = averages
        self.saturated = saturated
        self.saturated_indices = saturated_indices
        self.dropped = dropped
        self.sensor_id = sensor_id
        self.gap_before = gap_before
        self.realtime_ns = int(time.timestamp() * 1e9) if realtime_ns is None else realtime_ns
        self.raw, self.mode, self.unit, self.exposure_us = values, "raw", "DN", exposure_us
        self.master_clock, self.adc, self.kind = master_clock, adc, kind
        self.dark = self.reference = self.dark_source = self.reconstruction = None
        self.invalid = 0

    wavelengths = property(lambda self: self._spectrum_part("wavelengths"))
    spectrum = property(lambda self: self._spectrum_part("values"))
    algorithm = property(lambda self: self._spectrum_part("algorithm"))
    weight = property(lambda self: self._spectrum_part("weight"))
    residual = property(lambda self: self._spectrum_part("residual"))

    def _spectrum_part(self, name):
        return None if self.reconstruction is None else getattr(self.reconstruction, name)

    def measure(self, mode="raw", dark=None, reference=None, calibration=None, algorithm=None, range=None,
                step=None):
        """A copy of this reading measured again from its raw values, as
        Sensor.read would with these arguments (for a view that switches
        modes while its stream runs). Needs the reading's ADC settings."""
        import copy
        from ._measuring import Measuring
        if self.adc is None:
            raise ValueError("a reading without its ADC settings cannot be measured")
        return Measuring(mode, dark, reference, calibration, algorithm, range, step).apply(copy.copy(self), self.adc)

    def save(self, path):
        """Writes this reading, its settings and what it was measured
        against to `path`: CSV for .csv, JSON Lines for .jsonl (the library
        writes both). A raw reading saved so is a dark or reference that
        oru_sensor.load_reading reads back."""
        from ._reading_file import save_readings
        save_readings(path, [self])

    @classmethod
    def from_stream(cls, buf, info, averages, sensor_id, gap_before, flags):
        wall = datetime.datetime.fromtimestamp(info.last_realtime_ns / 1e9, tz=datetime.timezone.utc)
        return cls(values_of(buf), first_sequence=info.first_sequence, last_sequence=info.last_sequence,
                   time=wall.astimezone(), monotonic=info.last_monotonic_ns / 1e9,
                   shutter_speed=info.shutter_speed, averages=averages, saturated=info.saturated_filters,
                   dropped=info.dropped_frames, sensor_id=sensor_id, gap_before=gap_before,
                   saturated_indices=_library.saturated_indices(flags), realtime_ns=info.last_realtime_ns)

    def __repr__(self):
        return "<Reading %s seq %s..%s x%d at %s>" % (self.sensor_id, self.first_sequence, self.last_sequence,
                                                      self.averages, self.time.isoformat(timespec="milliseconds"))


class FrameStream:
    """Readings of consecutive frames of one sensor. Use it as

        with sensor.stream(averages=10) as readings:
            for r in readings: ...

    or iterate it directly. The stream starts at the first reading (or on
    entering the `with`) and stops on leaving the loop or the `with`, after
    `count` readings, or on an error (an error while stopping is then only
    logged, so that it does not hide the first). A reading that does not come
    within `timeout` seconds raises FwRecvTimeout.

    On the main thread the library's read runs on a helper thread, so that
    Ctrl-C (KeyboardInterrupt) stops the stream and ends the wait at once,
    whatever the reading's length: control is back within the stream's
    three stop commands (their pauses: 30 ms each up to shutter speed 54,
    then growing with it, 1.6 s at 3000).

    Once the connection the sensor came from is closed, the stream raises
    DeviceObjectIsNull on use, and stopping it (or dropping it) does
    nothing: the disconnect stopped it, and it never touches the sensors of a
    later connection.

    With `recover` (the default), a sensor that is removed or fails is waited
    for (the same sensor ID, for up to `recover_timeout` seconds, None for no
    limit), reopened, and the stream goes on; the next reading's `gap_before`
    says how long it was away."""

    RETRY_SECONDS = 0.2

    def __init__(self, sensor, averages=1, count=None, timeout=5.0, recover=True, recover_timeout=None,
                 measuring=None):
        averages = int(averages)
        if not 1 <= averages <= 2**31 - 1:
            raise ValueError("averages must be 1..%d, got %r" % (2**31 - 1, averages))
        if count is not None and int(count) < 0:
            raise ValueError("count must be 0 or more, got %r" % (count,))
        timeout_ms = float(timeout) * 1000.0
        if not 0 <= timeout_ms <= 2**31 - 1:
            raise ValueError("timeout must be 0..%d s, got %r" % ((2**31 - 1) // 1000, timeout))
        self._sensor = sensor
        self._conn = sensor._conn
        self._token = object()
        self._caller = _interruptible.Caller("oru-sensor stream %d" % sensor.index)
        self._averages = averages
        self._count = None if count is None else int(count)
        self._timeout_ms = int(timeout_ms)
        self._buf = (ctypes.c_double * NUM_FILTERS)()
        self._info = FrameStreamInfo()
        self._flags = (ctypes.c_ubyte * NUM_FILTERS)()
        self._on = False
        self._done = 0
        self._sensor_id = None
        self._recover = bool(recover)
        self._recover_timeout = None if recover_timeout is None else float(recover_timeout)
        self._measuring = measuring  # mode, dark, reference and calibration of every reading
        self._adc = None  # the ADC settings the stream runs at, read as it starts

    def start(self):
        if not self._on:
            check(self._open(), "starting the frame stream")

    def _open(self):
        """Starts the library's stream; its result (1 when on)."""
        if self._sensor_id is None:  # read while the sensor is surely there
            self._sensor_id = self._sensor.sensor_id
        self._adc = self._sensor.adc  # fixed while the stream is on
        result = self._sensor._call_raw(self._sensor._lib.duStartFrameStream)
        self._on = result == 1
        if self._on:
            self._conn.own_stream(self._sensor.index, self._token)
        return result

    def stop(self):
        """Stops the stream, if this object started the library's stream of
        the sensor and its connection is still open."""
        if self._on:
            self._on = False
            if self._conn.release_stream(self._sensor.index, self._token):
                self._sensor._call(self._sensor._lib.duStopFrameStream, what="stopping the frame stream")
        self._caller.close()

    close = stop

    def _stop_after_error(self):
        try:
            self.stop()
        except Exception as e:  # the error that brought us here is the one to raise
            logging.getLogger("oru_sensor").warning("stopping the frame stream after an error: %s", e)

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, exc_type, *exc):
        if exc_type is None:
            self.stop()
        else:
            self._stop_after_error()
        return False

    def __iter__(self):
        return self

    def __next__(self):
        if self._count is not None and self._done >= self._count:
            self.stop()
            raise StopIteration
        gap = 0.0
        try:
            result = self._open() if not self._on else 1
            if result == 1:
                result = self._read()
            if result < 0 and self._recover and self._sensor.state in (self.FAILED, self.REMOVED):
                gap = self._come_back()
                result = self._read()
            check(result, "reading the frame stream")
        except BaseException:
            self._stop_after_error()
            raise
        self._done += 1
        reading = Reading.from_stream(self._buf, self._info, self._averages, self._sensor_id, gap, self._flags)
        return reading if self._measuring is None else self._measuring.apply(reading, self._adc)

    FAILED, REMOVED = 2, 3

    def _read(self):
        # By index, without the library's lock: other threads' calls go on
        # while this one waits for its frames.
        index = self._sensor.index
        with self._conn.reading(index) as lib:
            args = (index, self._buf, self._averages, self._timeout_ms, ctypes.byref(self._info), self._flags)
            if _interruptible.on_main_thread():
                result = self._caller.call(lib.duReadFrameStreamMaskOf, args, self._stop_after_error)
            else:
                result = lib.duReadFrameStreamMaskOf(*args)
        if result < 0 and not self._conn.is_open:  # the disconnect woke it
            raise self._conn.closed_error(index)
        return result

    def _come_back(self):
        """Waits for the sensor to be attached again, reopens it and restarts
        the stream; returns the seconds it was away."""
        lost = time.monotonic()
        log = logging.getLogger("oru_sensor")
        log.warning("sensor %s %s; waiting for it to come back", self._sensor_id,
                    "was removed" if self._sensor.state == self.REMOVED else "failed")
        self._on = False  # the reopen closes the library's stream
        while True:
            with self._conn.calling(self._sensor.index) as lib:
                result = lib.duReconnectSensor(self._sensor.index, self._sensor_id.encode())
            if result < 0:
                check(result, "reconnecting sensor %s" % self._sensor_id)
            if result == 1:
                break
            if self._recover_timeout is not None and time.monotonic() - lost >= self._recover_timeout:
                raise FwRecvTimeout(FwRecvTimeout.code, "sensor %s did not come back within %g s"
                                    % (self._sensor_id, self._recover_timeout))
            time.sleep(self.RETRY_SECONDS)
        self.start()
        away = time.monotonic() - lost
        log.warning("sensor %s is back after %.1f s", self._sensor_id, away)
        return away

    TIMED_OUT = -9  # a read's frames did not come in time, or the sensor failed or went away

    def read_within(self, frames, timeout):
        """A reading of `frames` consecutive frames (whatever `averages` is),
        or None when they did not all come within `timeout` seconds. Unlike
        iterating, a time-out leaves the stream on (the frames it took are
        consumed; a wait for one frame that does not come takes none), so
        that a long reading can be read in slices and given up between them.
        None too when the sensor failed or was removed (its `state`
        says which; `reopen_if_back` brings it back); other errors raise.
        Starts the stream when it is off."""
        self.start()
        index = self._sensor.index
        with self._conn.reading(index) as lib:
            result = lib.duReadFrameStreamMaskOf(index, self._buf, int(frames), int(timeout * 1000),
                                                 ctypes.byref(self._info), self._flags)
        if result < 0 and not self._conn.is_open:
            raise self._conn.closed_error(index)
        if result == self.TIMED_OUT:
            return None
        check(result, "reading the frame stream")
        return Reading.from_stream(self._buf, self._info, int(frames), self._sensor_id, 0.0, self._flags)

    def reopen_if_back(self, sensor_id):
        """One look, without waiting, for the sensor `sensor_id` attached
        again: True when it is back under its index. Its stream is then off
        until the next read starts it."""
        self._sensor_id = sensor_id
        if self._on:  # the reopen closes the library's stream
            self._on = False
            self._conn.release_stream(self._sensor.index, self._token)
        with self._conn.calling(self._sensor.index) as lib:
            result = lib.duReconnectSensor(self._sensor.index, sensor_id.encode())
        if result < 0:
            check(result, "reconnecting sensor %s" % sensor_id)
        return result == 1

    def __del__(self):
        try:
            self.stop()
        except Exception:  # pragma: no cover - the library may be gone at exit
            pass
