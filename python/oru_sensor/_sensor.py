"""Sensors and the connection context."""

import contextlib
import ctypes
from collections import namedtuple

from . import _library, _measure, _measuring
from ._connection import open_connection
from ._errors import Fail, check
from ._measuring import Measuring
from ._stream import FrameStream, Reading, mean_of_slices, values_of

NUM_FILTERS = 1024
C_INT_MAX = 2**31 - 1

AdcSettings = namedtuple("AdcSettings", "gain range")


# A request is taken in slices of about this many seconds of frames, so that
# Ctrl-C ends a long one soon (see read_filter_data).
REQUEST_SLICE_SECONDS = 0.5
# The shortest frame period: a full-speed bulk endpoint carries 19 packets of
# 64 bytes a millisecond, and a frame is 2048 bytes.
MIN_FRAME_SECONDS = 2048 / 64 / 19 / 1000.0
# The master clock readings are taken and measured at: the library's 1 MHz.
MASTER_CLOCK_MHZ = 1


class Sensor:
    """One connected sensor. Every call first makes it the active sensor,
    holding the library's lock across both, so that threads may share
    Sensor objects: each call is atomic. Once its connection is closed, every
    call raises DeviceObjectIsNull."""

    def __init__(self, connection, index):
        self._conn = connection
        self._lib = connection.lib
        self.index = index

    def _call(self, fn, *args, what=None):
        result = self._call_raw(fn, *args)
        return check(result, what) if result <= 0 else result

    @property
    def sensor_id(self):
        buf = ctypes.create_string_buffer(32)
        self._call(self._lib.duGetSensorID, buf, what="reading the sensor ID")
        return buf.value.decode("latin-1")

    @property
    def shutter_speed(self):
        return self._call(self._lib.duGetShutterSpeed, what="reading the shutter speed")

    @shutter_speed.setter
    def shutter_speed(self, value):
        lo, hi = self.shutter_speed_limits
        if not lo <= int(value) <= hi:
            raise ValueError("shutter speed %r outside %d..%d" % (value, lo, hi))
        self._call(self._lib.duSetShutterSpeed, int(value), what="setting the shutter speed")

    @property
    def shutter_speed_limits(self):
        lo, hi = ctypes.c_int(), ctypes.c_int()
        self._lib.duGetShutterSpeedLimits(ctypes.byref(lo), ctypes.byref(hi))
        return lo.value, hi.value

    @property
    def adc(self):
        gain, rng = ctypes.c_int(), ctypes.c_int()
        self._call(self._lib.duGetSensorParameters, ctypes.byref(gain), ctypes.byref(rng),
                   what="reading the ADC settings")
        return AdcSettings(gain.value, rng.value)

    @adc.setter
    def adc(self, settings):
        gain, rng = settings
        if gain not in (0, 1) or not 0 <= rng <= 255:
            raise ValueError("ADC gain must be 0 or 1 and range 0..255, got %r" % (settings,))
        self._call(self._lib.duSetSensorParameters, int(gain), int(rng), what="setting the ADC")

    def exposure_time(self, master_clock_mhz=1, shutter_speed=None):
        """Exposure time in ms of a shutter speed (default: the current one)
        by the library's published conversion, which divides in whole
        microseconds per ms (1.000 ms for shutter speed 2); see
        exact_exposure_time for the time the sensor integrates."""
        ss = self.shutter_speed if shutter_speed is None else int(shutter_speed)
        ms = ctypes.c_double()
        self._call(self._lib.duShutterSpeedToExposureTime, int(master_clock_mhz), ss, ctypes.byref(ms),
                   what="converting the shutter speed")
        return ms.value

    def exact_exposure_time(self, master_clock_mhz=1, shutter_speed=None):
        """The time in ms the sensor integrates at a shutter speed (default:
        the current one), from the library's duExactExposureTimeUs
        (1.984 ms for shutter speed 2)."""
        ss = self.shutter_speed if shutter_speed is None else int(shutter_speed)
        return _measure.exact_exposure_us(_measuring.library(), int(master_clock_mhz), ss) / 1000.0

    @property
    def exposure_time_ms(self):
        """The exact exposure at the current shutter speed, master clock 1 MHz."""
        return self.exact_exposure_time(MASTER_CLOCK_MHZ)

    def shutter_speed_for(self, exposure_ms, master_clock_mhz=1):
        ss = ctypes.c_int()
        self._call(self._lib.duExposureTimeToShutterSpeed, int(master_clock_mhz), float(exposure_ms),
                   ctypes.byref(ss), what="converting the exposure time")
        return ss.value

    def read_filter_data(self, averages=10, _saturated=None):
        """1024 filter outputs in DN, each the mean of `averages` frames.

        The library cannot stop a request once it has begun, so a request of
        more frames than come in about half a second is taken as several
        requests of the library, one after another under its lock, and their
        means are combined by their frame counts. Ctrl-C then ends it after
        the current slice: within half a second, or one frame where a frame
        takes longer, plus the request's own start and stop commands."""
        averages = int(averages)
        if not 1 <= averages <= C_INT_MAX:
            raise ValueError("averages must be 1..%d, got %d" % (C_INT_MAX, averages))
        buf = (ctypes.c_double * NUM_FILTERS)()
        with self._conn.calling(self.index):  # one shutter speed for every slice
            per_slice = averages
            if averages > 1:
                frame_seconds = max(self.exposure_time_ms / 1000.0, MIN_FRAME_SECONDS)
                per_slice = max(1, int(REQUEST_SLICE_SECONDS / frame_seconds))
            if per_slice >= averages:
                self._call(self._lib.duGetFilterData, buf, averages, what="reading filter data")
                self._add_saturated(_saturated)
                return values_of(buf)
            slices = []
            for start in range(0, averages, per_slice):
                frames = min(per_slice, averages - start)
                self._call(self._lib.duGetFilterData, buf, frames, what="reading filter data")
                self._add_saturated(_saturated)
                slices.append((frames, values_of(buf)))
            return mean_of_slices(slices)

    def read(self, averages=10, mode="raw", dark=None, reference=None, calibration=None, algorithm=None,
             range=None, step=None):
        """One request like read_filter_data, as a Reading (its sequence
        numbers are None: single requests are not part of a stream).

        mode: "raw" (DN), "dark" (DN minus the dark), "rate" (dark-corrected
        DN per ms of exact exposure), "transmittance" or "reflectance" (% of
        the reference, both dark-corrected) or "absorbance"; the library
        computes each. dark and reference: raw Readings from take_dark,
        take_reference or oru_sensor.load_reading; without a dark, the mean of
        the three background filters of the reading is its dark. A dark or
        reference taken at other settings, or saturated, raises
        MeasurementRefused (the library's line) before any frame is read.

        calibration (a Calibration or the path of one) adds the spectrum of
        the dark-corrected reading: .wavelengths, .spectrum, .algorithm,
        .weight, .residual (see Calibration.reconstruct for algorithm, range
        and step; its factorisation is kept with the Calibration object)."""
        import datetime
        import time
        measuring = Measuring(mode, dark, reference, calibration, algorithm, range, step)
        with self._conn.calling(self.index):  # the settings checked are the settings read at
            adc = self.adc
            measuring.check(self, MASTER_CLOCK_MHZ)
            saturated = set()
            values = self.read_filter_data(averages, _saturated=saturated)
            reading = Reading(values, first_sequence=None, last_sequence=None,
                              time=datetime.datetime.now(datetime.timezone.utc).astimezone(),
                              monotonic=time.monotonic(), shutter_speed=self.shutter_speed, averages=int(averages),
                              saturated=len(saturated), saturated_indices=tuple(sorted(saturated)), dropped=0,
                              sensor_id=self.sensor_id)
        return measuring.apply(reading, adc)

    def take_dark(self, averages=10):
        """A raw reading to use as `dark`: take it with the light blocked (or
        the LED driver off), at the shutter speed and ADC settings of the
        readings it is for. Saturated filters raise MeasurementRefused."""
        return self._take_stored("dark", averages)

    def take_reference(self, averages=10):
        """A raw reading of the white reference, to use as `reference` for
        the ratio modes, at the settings of the readings it is for.
        Saturated filters raise MeasurementRefused: lower the shutter speed."""
        return self._take_stored("reference", averages)

    def _take_stored(self, kind, averages):
        reading = self.read(averages)
        _measuring.refuse_saturated(reading, kind)
        reading.kind = kind
        return reading

    def _add_saturated(self, into):
        """Adds the filters the request just made saturated (any frame) to the set `into`, if given."""
        if into is not None:
            into.update(_library.request_saturated_indices(self._lib, self.index) or ())

    def stream(self, averages=1, count=None, timeout=5.0, recover=True, recover_timeout=None, mode="raw", dark=None,
               reference=None, calibration=None, algorithm=None, range=None, step=None):
        """Readings of every frame in order, each the average of `averages`
        consecutive frames; see FrameStream (also for `recover`) and read (for
        mode, dark, reference, calibration, algorithm, range and step). While
        the stream is on, reads, the shutter-speed search and shutter or ADC
        changes of this sensor raise IllDefinedInput."""
        measuring = Measuring(mode, dark, reference, calibration, algorithm, range, step)
        measuring.check(self, MASTER_CLOCK_MHZ)
        return FrameStream(self, averages, count, timeout, recover, recover_timeout, measuring)

    def optimal_shutter_speed(self, filters=None, target=None):
        """Searches the shutter speed that puts the brightest of `filters`
        (1-based filter numbers; default: the library's 824 valid filters)
        just below `target` DN (default 3500). The sensor is left at it."""
        if filters is not None:
            filters = [int(f) for f in filters]
            if not filters or min(filters) < 1 or max(filters) > NUM_FILTERS:
                raise ValueError("filters must be 1-based numbers 1..%d" % NUM_FILTERS)
            if len(filters) > NUM_FILTERS:
                raise ValueError("at most %d filters, got %d" % (NUM_FILTERS, len(filters)))
            arr = (ctypes.c_int * len(filters))(*filters)
            ptr, count = arr, len(filters)
        else:
            ptr, count = None, 0
        if target is not None and not 1 <= int(target) <= C_INT_MAX:
            raise ValueError("target must be 1..%d DN, got %r" % (C_INT_MAX, target))
        if target is None:
            result = self._call_raw(self._lib.duGetOptimalShutterSpeed, ptr, count)
        else:
            result = self._call_raw(self._lib.duGetOptimalShutterSpeed2, ptr, count, int(target))
        if result == -1:
            raise Fail(-1, "auto exposure failed: saturated even at shutter speed 1, or the search failed "
                               "(code -1)")
        check(result, "auto exposure")
        # The search leaves the sensor at this speed; make the cached value agree.
        self.shutter_speed = result
        return result

    def _call_raw(self, fn, *args):
        with self._conn.calling(self.index) as lib:
            lib.duActivateSensorWithIndex(self.index)
            return fn(*args)

    @property
    def state(self):
        """1 usable, 2 failed (transfer error), 3 removed."""
        with self._conn.calling(self.index) as lib:
            return check(lib.duGetSensorState(self.index), "reading the sensor state")

    def __repr__(self):
        return "<Sensor %d>" % self.index


@contextlib.contextmanager
def connect(virtual=None, quiet=True):
    """Connects every attached sensor and yields the list of Sensor objects;
    disconnects on leaving. `virtual=N` runs on N virtual sensors instead of
    USB hardware (fixed for the life of the process). The library's lines go
    to the logger "oru_sensor"; `quiet` is kept for older callers and has no
    effect.

    One connection at a time: the library holds one set of sensors per
    process, so connect() raises RuntimeError while another connection is
    open. The Sensor objects and streams of a closed connection raise
    DeviceObjectIsNull on use."""
    if virtual is not None and (isinstance(virtual, bool) or not isinstance(virtual, int) or virtual < 1):
        raise ValueError("virtual must be a number of sensors (1 or more) or None, got %r" % (virtual,))
    connection = open_connection(_library.load(virtual))
    try:
        yield [Sensor(connection, i) for i in range(connection.count)]
    finally:
        connection.close()
