"""The acquisition thread: reads the frame stream of the chosen sensor and
hands each reading to every connected page."""

import json
import queue
import threading
import time

from .._errors import OruError

READ_TIMEOUT_S = 1.0   # one stream read beyond its frames' time; bounds how long a control waits
CLIENT_QUEUE = 4       # readings waiting per page; a slow page loses the oldest ones


class Acquisition:
    """Owns the sensors while the server runs.

    Every call into the binding goes through `self.lock`, from the
    acquisition thread and from the HTTP handler threads alike. The fields
    below the lock are written by the thread that holds it.
    """

    def __init__(self, sensors, averages=1, max_rate=25.0):
        self.sensors = sensors
        self.ids = [s.sensor_id for s in sensors]
        self.lock = threading.Lock()
        self._waiting = 0                  # handlers waiting for `lock`; guarded by _waiting_lock
        self._waiting_lock = threading.Lock()
        # Guarded by `lock`:
        self.index = 0
        self.averages = int(averages)
        self.paused = False
        self.error = None
        self._stream = None
        self.latest = None                 # the last Reading
        self.rate = 0.0                    # readings per second from the sensor
        # Written by the acquisition thread only, read without lock (plain attributes):
        self._min_interval = 1.0 / max_rate
        self._clients = set()              # queues of the pages; guarded by _clients_lock
        self._clients_lock = threading.Lock()
        self._stop = threading.Event()
        self._thread = threading.Thread(target=self._run, name="acquisition", daemon=True)

    # -- the binding, one caller at a time ---------------------------------

    def call(self, fn):
        """Runs fn() under the binding lock, ahead of the acquisition thread's next read."""
        with self._waiting_lock:
            self._waiting += 1
        try:
            with self.lock:
                return fn()
        finally:
            with self._waiting_lock:
                self._waiting -= 1

    def restart_stream(self):
        """Stops the stream (with `lock` held) so that the sensor accepts
        changes; the acquisition thread starts it again at its next read."""
        if self._stream is not None:
            stream, self._stream = self._stream, None
            try:
                stream.stop()
            except OruError:
                pass

    @property
    def sensor(self):
        return self.sensors[self.index]

    # -- the pages ---------------------------------------------------------

    def subscribe(self):
        q = queue.Queue(CLIENT_QUEUE)
        with self._clients_lock:
            self._clients.add(q)
        return q

    def unsubscribe(self, q):
        with self._clients_lock:
            self._clients.discard(q)

    def client_count(self):
        with self._clients_lock:
            return len(self._clients)

    def _publish(self, message):
        with self._clients_lock:
            clients = list(self._clients)
        for q in clients:
            try:
                q.put_nowait(message)
            except queue.Full:
                try:  # drop the oldest: the page wants the newest trace
                    q.get_nowait()
                    q.put_nowait(message)
                except (queue.Empty, queue.Full):
                    pass

    # -- the thread --------------------------------------------------------

    def start(self):
        self._thread.start()

    def stop(self):
        self._stop.set()
        self._thread.join(READ_TIMEOUT_S * 5)
        with self.lock:
            self.restart_stream()
        self._publish(None)

    def _let_handlers_in(self):
        deadline = time.monotonic() + READ_TIMEOUT_S
        while self._waiting and time.monotonic() < deadline and not self._stop.is_set():
            time.sleep(0.002)

    def _read_one(self):
        with self.lock:
            if self.paused:
                return None
            if self._stream is None:
                # Long exposures times many averages need longer than one second per reading.
                s = self.sensor
                frames_s = self.averages * s.exposure_time(1, s.shutter_speed) / 1000.0
                self._stream = s.stream(self.averages, timeout=READ_TIMEOUT_S + 1.5 * frames_s)
            reading = next(self._stream)
            self.latest = reading
            self.error = None
            return reading

    def _run(self):
        last_published = 0.0
        last_count_time, count = time.monotonic(), 0
        while not self._stop.is_set():
            self._let_handlers_in()
            try:
                reading = self._read_one()
            except StopIteration:
                continue
            except Exception as e:  # shown on the page; the next read starts the stream again
                with self.lock:
                    self._stream = None
                    self.error = str(e)
                self._publish(self.status_message())
                self._stop.wait(0.5)
                continue
            if reading is None:
                self._stop.wait(0.1)
                continue
            now = time.monotonic()
            if reading.first_sequence == 0:  # a new stream: the pause before it is no rate
                last_count_time, count = now, 0
            count += 1
            if now - last_count_time >= 1.0:
                self.rate = count / (now - last_count_time)
                last_count_time, count = now, 0
            if now - last_published >= self._min_interval:
                last_published = now
                self._publish(self.reading_message(reading))

    # -- messages ----------------------------------------------------------

    def reading_message(self, r):
        data = {
            "sensor_id": r.sensor_id, "last_sequence": r.last_sequence, "shutter_speed": r.shutter_speed,
            "averages": r.averages, "saturated": r.saturated, "dropped": r.dropped,
            "rate": round(self.rate, 1), "time": r.time.isoformat(timespec="milliseconds"),
            "values": [round(float(v), 1) for v in r.values],
        }
        return b"event: reading\ndata: " + json.dumps(data, separators=(",", ":")).encode() + b"\n\n"

    def status_message(self):
        return b"event: status\ndata: " + json.dumps(self.status()).encode() + b"\n\n"

    def status(self):
        """What the page shows beside the trace; the shutter speed is read back from the sensor."""
        def read():
            s = self.sensor
            ss = s.shutter_speed
            lo, hi = s.shutter_speed_limits
            return {
                "sensors": self.ids, "sensor": self.index, "sensor_id": self.ids[self.index],
                "shutter_speed": ss, "shutter_limits": [lo, hi], "exposure_ms": s.exposure_time(1, ss),
                "averages": self.averages, "paused": self.paused, "rate": round(self.rate, 1),
                "dropped": self.latest.dropped if self.latest is not None else 0, "error": self.error,
                "pages": self.client_count(),
            }
        return self.call(read)
