"""The acquisition thread: the only caller of the sensors while the server
runs. It applies what the pages asked for, reads the shown sensor's frame
stream in slices and publishes its latest state and reading. The HTTP side
leaves requests and reads what was published; neither waits for the other."""

import logging
import threading
import time

from .. import OruError, Reading, _library

USABLE, REMOVED = 1, 3
TIMED_OUT = -9

SLICE_S = 0.25   # longest wait for frames in one call: a control or a stop is seen within about this
RETRY_S = 0.5    # a failed step is tried again after this
POLL_S = 1.0     # the sensors' states are refreshed, and lost ones looked for, this often
STALL_S = 3.0    # no frame for this long beyond the frames' own time: the stream is restarted
STATES = {USABLE: "usable", 2: "failed", REMOVED: "removed"}

log = logging.getLogger("oru_sensor.web")


class Acquisition:
    """Shared state, all guarded by `_lock`, which is held only to copy or
    set these fields, never across a call into the library. The requests
    (`_want_*`, `_generation`) are written by the HTTP side; everything else
    by the acquisition thread."""

    def __init__(self, sensors, averages=1, max_rate=25.0):
        self._sensors = sensors
        self._streams = [s.stream(recover=False) for s in sensors]  # the thread's own
        self.limits = sensors[0].shutter_speed_limits
        self.ids = [s.sensor_id for s in sensors]
        self._lock = threading.Lock()
        self._wake = threading.Condition(self._lock)
        # Requests.
        self._want_index = 0
        self._want_averages = int(averages)
        self._want_paused = False
        self._want_shutter = {}          # sensor index -> shutter speed to set
        self._want_auto = False
        self._generation = 0             # counts requests; a reading begun under an older one is abandoned
        self._stop = False
        # Published by the thread.
        self._view = [self._sensor_view(s) for s in sensors]
        self._applied = 0                # the generation whose requests are in effect
        self._busy = None
        self._error = None
        self._rate = 0.0
        self._dropped = 0
        self._latest = None
        self._auto_result = None
        self._listeners = []             # called by the thread: ("status", dict), ("reading", (Reading, rate))
        # The thread's own, unshared.
        self._min_interval = 1.0 / max_rate
        self._started = self._last_told = 0.0
        self._count = 0
        self._thread = threading.Thread(target=self._run, name="acquisition", daemon=True)

    @staticmethod
    def _sensor_view(s):
        try:
            ss = s.shutter_speed
            return {"state": "usable", "shutter_speed": ss, "exposure_ms": s.exact_exposure_time(1, ss)}
        except OruError:  # lost already: the state poll says so and brings it back
            return {"state": "failed", "shutter_speed": 1, "exposure_ms": 1.0}

    # -- the HTTP side ------------------------------------------------------

    def add_listener(self, fn):
        self._listeners.append(fn)

    def request(self, sensor=None, shutter_speed=None, averages=None, paused=None, auto_exposure=False):
        """Records a request (values already checked) and returns the status at once."""
        with self._lock:
            if sensor is not None:
                self._want_index = sensor
            if shutter_speed is not None:
                self._want_shutter[self._want_index] = shutter_speed
            if averages is not None:
                self._want_averages = averages
            if paused is not None:
                self._want_paused = paused
            if auto_exposure:
                self._want_auto = True
                self._auto_result = None
            self._generation += 1
            self._wake.notify_all()
            return self._status()

    def status(self):
        with self._lock:
            return self._status()

    def latest(self):
        with self._lock:
            return self._latest

    def _status(self):
        i = self._want_index
        view = self._view[i]
        wanted = self._want_shutter.get(i)
        return {
            "sensors": self.ids, "states": [v["state"] for v in self._view], "sensor": i,
            "sensor_id": self.ids[i], "state": view["state"],
            "shutter_speed": view["shutter_speed"] if wanted is None else wanted,
            "exposure_ms": view["exposure_ms"] if wanted is None else None,
            "shutter_limits": list(self.limits), "averages": self._want_averages, "paused": self._want_paused,
            "pending": self._applied != self._generation, "busy": self._busy, "error": self._error,
            "rate": round(self._rate, 1), "dropped": self._dropped, "auto_exposure": self._auto_result,
        }

    # -- the thread ---------------------------------------------------------

    def start(self):
        self._thread.start()

    def stop(self, timeout):
        """Asks the thread to end and waits for it at most `timeout` seconds.
        The streams are left on: disconnecting ends them at less cost."""
        with self._lock:
            self._stop = True
            self._wake.notify_all()
        self._thread.join(timeout)

    def _tell(self, kind, data):
        for fn in self._listeners:
            fn(kind, data)

    def _publish(self, **fields):
        """Sets published fields; the pages hear of it when something changed."""
        with self._lock:
            if all(getattr(self, "_" + k) == v for k, v in fields.items()):
                return
            for k, v in fields.items():
                setattr(self, "_" + k, v)
            status = self._status()
        self._tell("status", status)

    def _set_view(self, index, **fields):
        with self._lock:
            if all(self._view[index][k] == v for k, v in fields.items()):
                return
            self._view[index] = dict(self._view[index], **fields)
            status = self._status()
        self._tell("status", status)

    def _pause(self, seconds, generation=None):
        """Waits, ending early on a stop or a new request."""
        with self._lock:
            if not self._stop and (generation is None or generation == self._generation):
                self._wake.wait(seconds)

    def _take_requests(self):
        with self._lock:
            if self._stop:
                return None
            return {"index": self._want_index, "averages": self._want_averages, "paused": self._want_paused,
                    "shutter": dict(self._want_shutter), "auto": self._want_auto, "generation": self._generation}

    def _superseded(self, generation):
        with self._lock:
            return self._stop or generation != self._generation

    def _run(self):
        on = None            # the sensor whose stream is on
        next_poll = 0.0
        while True:
            want = self._take_requests()
            if want is None:
                return
            try:
                if time.monotonic() >= next_poll:
                    next_poll = time.monotonic() + POLL_S
                    if on in self._poll_states():
                        on = None
                on = self._step(want, on)
            except Exception as e:  # shown on the page; the step is tried again
                log.warning("%s", e)
                self._publish(error=str(e), busy=None, applied=want["generation"])
                if on is not None and self._state(on) == USABLE:
                    self._stop_stream(on)
                on = None
                self._pause(RETRY_S)

    def _state(self, index):
        try:
            return self._sensors[index].state
        except OruError:  # no sensor under that index any more
            return REMOVED

    def _stop_stream(self, index):
        """Never raises: a stream that was not on is what was wanted, and a
        sensor that cannot be chosen has no stream to stop."""
        try:
            self._streams[index].stop()
        except OruError:
            pass

    def _poll_states(self):
        """Refreshes the sensors' states and brings back any that was lost
        and is attached again; returns the indices brought back (their
        streams are off)."""
        back = set()
        for i in range(len(self._sensors)):
            code = self._state(i)
            if code != USABLE and self._streams[i].reopen_if_back(self.ids[i]):
                code = USABLE
                back.add(i)
            state = STATES.get(code, "removed")
            if state != self._view[i]["state"]:
                log.warning("sensor %s is %s", self.ids[i], state)
                self._set_view(i, state=state)
        return back

    def _step(self, want, on):
        """One round: apply the requests, then take one reading. Returns the
        sensor whose stream is on afterwards."""
        index = want["index"]
        # A lost sensor's new shutter speed waits until it is back.
        changes = {i: ss for i, ss in want["shutter"].items() if self._state(i) == USABLE}
        if on is not None and (on != index or on in changes or want["auto"] or want["paused"]
                               or self._state(on) != USABLE):
            if self._state(on) == USABLE:
                self._publish(busy="stopping the stream")
                self._stop_stream(on)
            on = None
        for i, ss in changes.items():
            self._publish(busy="setting the shutter speed")
            self._sensors[i].shutter_speed = ss
            self._set_view(i, shutter_speed=ss, exposure_ms=self._sensors[i].exact_exposure_time(1, ss))
            with self._lock:
                if self._want_shutter.get(i) == ss:
                    del self._want_shutter[i]
        if want["auto"]:
            self._auto_exposure(index)
        if self._state(index) != USABLE:  # shown as such until the state poll brings it back
            self._publish(applied=want["generation"], busy=None, rate=0.0)
            self._pause(POLL_S, want["generation"])
            return None
        self._publish(applied=want["generation"], busy=None)
        if want["paused"]:
            self._pause(RETRY_S, want["generation"])
            return None
        if on is None:
            self._streams[index].start()
            self._started = time.monotonic()
            self._count = 0
            self._publish(rate=0.0)
            on = index
        reading = self._read(index, want["averages"], want["generation"])
        if reading is not None:
            self._count += 1
            elapsed = time.monotonic() - self._started
            with self._lock:
                self._latest = reading
                self._rate = self._count / elapsed if elapsed > 0 else 0.0
                self._dropped = reading.dropped
                self._error = None
            now = time.monotonic()
            if now - self._last_told >= self._min_interval:
                self._last_told = now
                self._tell("reading", (reading, round(self._rate, 1)))
        return on

    def _auto_exposure(self, index):
        """The library's search runs as one call: a stop or a request waits for its end."""
        self._publish(busy="auto exposure")
        try:
            result = self._sensors[index].optimal_shutter_speed()
        finally:
            with self._lock:
                self._want_auto = False
        self._set_view(index, shutter_speed=result, exposure_ms=self._sensors[index].exact_exposure_time(1, result))
        self._publish(auto_result=result)

    def _read(self, index, averages, generation):
        """One reading of `averages` frames, read in slices of at most about
        SLICE_S, so that it is abandoned (None) soon after a new request, a
        stop or the sensor's loss. A reading of several slices is the weighted
        mean of the slices' means; its saturated filters are those the
        library flagged in any slice, as for every reading."""
        frame_s = max(self._view[index]["exposure_ms"], 0.1) / 1000.0
        per_slice = max(1, int(SLICE_S / frame_s))
        mean, done, first, saturated = None, 0, None, set()
        last_frame = time.monotonic()
        while done < averages:
            if self._superseded(generation):
                return None
            k = min(per_slice, averages - done)
            # One frame at a time may take longer than a slice: wait in
            # slices, which take nothing from the stream when they time out.
            part = self._streams[index].read_within(k, SLICE_S if k == 1 else k * frame_s + SLICE_S)
            if part is None and self._state(index) == USABLE:
                if time.monotonic() - last_frame > k * frame_s + STALL_S:
                    raise OruError(TIMED_OUT, "no frames from sensor %s for %.0f s"
                                   % (self.ids[index], time.monotonic() - last_frame))
                continue
            if part is None:
                return None  # removed or failed: the next round brings it back
            last_frame = time.monotonic()
            saturated.update(part.saturated_indices)
            if first is None:
                first = part.first_sequence
            if mean is None:
                mean = list(part.values)
            else:
                weight = k / (done + k)
                for i, v in enumerate(part.values):
                    mean[i] += (v - mean[i]) * weight
            done += k
        return Reading(mean, first_sequence=first, last_sequence=part.last_sequence, time=part.time,
                       monotonic=part.monotonic, shutter_speed=part.shutter_speed, averages=averages,
                       saturated=len(saturated), saturated_indices=tuple(sorted(saturated)), dropped=part.dropped,
                       sensor_id=self.ids[index])
