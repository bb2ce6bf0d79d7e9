"""The library's frame-stream calls the acquisition needs and the binding
does not offer: a read that gives up after a short wait without stopping the
stream (so that a long reading can be abandoned between slices), and bringing
back a removed sensor without waiting for it. They go to the library the
binding has loaded (found by its soname), through its exported C functions."""

import ctypes

from .. import OruError

SONAME = "liboru_device.so.1"
NUM_FILTERS = 1024
USABLE, FAILED, REMOVED = 1, 2, 3
TIMED_OUT = -9  # no frames within the wait, or the sensor failed or went away


class StreamInfo(ctypes.Structure):
    """duFrameStreamInfo of the C interface."""

    _fields_ = [
        ("first_sequence", ctypes.c_uint64), ("last_sequence", ctypes.c_uint64),
        ("first_realtime_ns", ctypes.c_int64), ("last_realtime_ns", ctypes.c_int64),
        ("first_monotonic_ns", ctypes.c_int64), ("last_monotonic_ns", ctypes.c_int64),
        ("dropped_frames", ctypes.c_uint64), ("shutter_speed", ctypes.c_int32),
        ("saturated_filters", ctypes.c_int32),
    ]


class StreamCalls:
    """Call from one thread at a time (the acquisition thread)."""

    def __init__(self, sensor_count):
        lib = ctypes.CDLL(SONAME)
        c_int = ctypes.c_int
        for name, args in (("duLockSensors", []), ("duUnlockSensors", []),
                           ("duActivateSensorWithIndex", [c_int]), ("duStartFrameStream", []),
                           ("duStopFrameStream", []), ("duGetTotalSensors", []),
                           ("duGetSensorState", [c_int]), ("duReconnectSensor", [c_int, ctypes.c_char_p]),
                           ("duReadFrameStreamMaskOf", [c_int, ctypes.POINTER(ctypes.c_double), c_int, c_int,
                                                        ctypes.POINTER(StreamInfo), ctypes.c_void_p])):
            fn = getattr(lib, name)
            fn.argtypes, fn.restype = args, (None if name.endswith("lockSensors") else c_int)
        # A second copy of the library (another file with the same soname)
        # would know no sensors: refuse it rather than drive nothing.
        if lib.duGetTotalSensors() != sensor_count:
            raise RuntimeError("%s is not the library the binding connected" % SONAME)
        self._lib = lib
        self.values = (ctypes.c_double * NUM_FILTERS)()
        self.info = StreamInfo()
        self.flags = (ctypes.c_ubyte * NUM_FILTERS)()  # saturated in any frame of the last read

    @staticmethod
    def _check(result, what):
        if result < 0:
            raise OruError(result, "%s: library code %d" % (what, result))
        return result

    def _on_sensor(self, index, fn):
        self._lib.duLockSensors()
        try:
            self._check(self._lib.duActivateSensorWithIndex(index), "choosing sensor %d" % index)
            return fn()
        finally:
            self._lib.duUnlockSensors()

    def start(self, index):
        self._check(self._on_sensor(index, self._lib.duStartFrameStream), "starting the frame stream")

    def stop(self, index):
        """Never raises: -26 (it was not on) is what was wanted, and a sensor
        that cannot be chosen has no stream to stop."""
        try:
            self._on_sensor(index, self._lib.duStopFrameStream)
        except OruError:
            pass

    def state(self, index):
        return self._lib.duGetSensorState(index)

    def reconnect(self, index, sensor_id):
        """True when the sensor is back (its stream is then off)."""
        return self._check(self._lib.duReconnectSensor(index, sensor_id.encode()), "bringing back sensor %d" % index) == 1

    def read(self, index, frames, timeout_s):
        """1 with `values`, `info` and `flags` filled, or a negative library code."""
        return self._lib.duReadFrameStreamMaskOf(index, self.values, frames, int(timeout_s * 1000),
                                                 ctypes.byref(self.info), self.flags)
