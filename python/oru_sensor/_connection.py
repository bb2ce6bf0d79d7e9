"""One connection of the process to its sensors, from duConnect to
duDisconnect. The library numbers the sensors of every connection from 0, so
the Sensor and stream objects of a connection keep it and refuse to act once
it is closed: they never reach the sensors a later connection opened under
the same index."""

import contextlib
import threading

from ._errors import DeviceObjectIsNull, NoDeviceInSystem, check

# How long closing waits for stream reads to leave the library; the
# disconnect wakes them, so they leave at once unless the machine stalls.
CLOSE_WAIT_SECONDS = 5.0

_open_lock = threading.Lock()  # guards _current: held by open_connection and Connection.close
_current = None  # the open connection of the process, or None


class Connection:
    def __init__(self, lib, count):
        self.lib = lib
        self.count = count
        # _open, _reads and _streams are written under _cond, by any thread;
        # _open turns False once, in close, while the library's lock is held
        # too, so a call made under that lock sees the connection open for its
        # whole length.
        self._cond = threading.Condition()
        self._open = True
        self._reads = 0      # stream reads inside the library (they wait without its lock)
        self._streams = {}   # sensor index -> the token of the FrameStream that started its stream

    @property
    def is_open(self):
        return self._open

    def closed_error(self, index):
        return DeviceObjectIsNull(DeviceObjectIsNull.code, "sensor %d: its connection is closed (code %d)"
                                  % (index, DeviceObjectIsNull.code))

    @contextlib.contextmanager
    def calling(self, index):
        """Holds the library's lock (recursive) and checks that the connection is open."""
        self.lib.duLockSensors()
        try:
            if not self._open:
                raise self.closed_error(index)
            yield self.lib
        finally:
            self.lib.duUnlockSensors()

    @contextlib.contextmanager
    def reading(self, index):
        """Counts a stream read while it is inside the library, so that close
        returns only once it has left."""
        with self._cond:
            if not self._open:
                raise self.closed_error(index)
            self._reads += 1
        try:
            yield self.lib
        finally:
            with self._cond:
                self._reads -= 1
                self._cond.notify_all()

    def own_stream(self, index, token):
        with self._cond:
            self._streams[index] = token

    def release_stream(self, index, token):
        """True when the stream of `token` started sensor `index`'s library
        stream and the connection is open (close forgets every stream): only
        then may it stop that stream. (A token, not the stream: a dropped
        stream must be collected.)"""
        with self._cond:
            if self._streams.get(index) is not token:
                return False
            del self._streams[index]
            return True

    def close(self):
        global _current
        with _open_lock:
            self.lib.duLockSensors()
            try:
                with self._cond:
                    if not self._open:
                        return
                    self._open = False
                    self._streams.clear()
                self.lib.duDisconnect()  # wakes the stream readers
            finally:
                self.lib.duUnlockSensors()
            with self._cond:
                self._cond.wait_for(lambda: self._reads == 0, CLOSE_WAIT_SECONDS)
            if _current is self:
                _current = None


def open_connection(lib):
    """Connects every attached sensor. Raises RuntimeError while another
    connection of the process is open: a second duConnect would take its
    sensors away."""
    global _current
    with _open_lock:
        if _current is not None:
            raise RuntimeError("a connection to the sensors is already open in this process; leave its `with` "
                               "block first (all sensors belong to one connection)")
        n = lib.duConnect()
        if n == -1:  # duConnect's own result for "no sensor"
            raise NoDeviceInSystem(NoDeviceInSystem.code, "no sensor found")
        check(n, "connecting")
        _current = Connection(lib, n)
        return _current
