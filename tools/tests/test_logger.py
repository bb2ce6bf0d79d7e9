"""oru-sensor log on virtual sensors: rotating files read back (CSV, and HDF5
with h5py, also after SIGKILL), and a real mosquitto broker that goes away
and comes back while the logger runs. Run by ctest with ORU_SENSOR_EXE
pointing at the program, under Debian's python3 (which has h5py)."""

import csv
import glob
import json
import os
import queue
import shutil
import signal
import socket
import subprocess
import tempfile
import threading
import time
import unittest

import h5py

EXE = os.environ.get("ORU_SENSOR_EXE", "oru-sensor")
ENV = dict(os.environ, ORU_VSENSOR_REALTIME="1", ORU_VSENSOR_PATTERN="counter",
           ORU_SENSOR_SYSTEM_CONFIG="/nonexistent/oru-sensor.conf", XDG_CONFIG_HOME="/nonexistent")
IDS = ("A4486-3-12-40-2", "A4486-3-13-40-2")
AVERAGES = 10


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def wait_for(condition, what, timeout=30):
    """Polls until condition() is true; the bound only keeps a hang from
    lasting, it is not a speed check."""
    end = time.monotonic() + timeout
    while not condition():
        if time.monotonic() > end:
            raise AssertionError("gave up waiting for " + what)
        time.sleep(0.05)


class Lines:
    """The lines of a process's standard output, collected by a thread."""

    def __init__(self, args):
        self.proc = subprocess.Popen(args, stdout=subprocess.PIPE, text=True)
        self.lines = queue.Queue()
        threading.Thread(target=self._pump, daemon=True).start()
        self.seen = []

    def _pump(self):
        for line in self.proc.stdout:
            self.lines.put(line.rstrip("\n"))

    def collect(self):
        while not self.lines.empty():
            self.seen.append(self.lines.get())
        return self.seen

    def stop(self):
        self.proc.kill()
        self.proc.wait()


class Broker:
    def __init__(self, tmp, port):
        self.conf = os.path.join(tmp, "mosquitto.conf")
        with open(self.conf, "w") as f:
            f.write("listener %d 127.0.0.1\nallow_anonymous true\npersistence false\n" % port)
        self.port = port
        self.proc = None

    def start(self):
        self.proc = subprocess.Popen(["mosquitto", "-c", self.conf], stderr=subprocess.DEVNULL)
        wait_for(self._listening, "mosquitto to listen")

    def _listening(self):
        with socket.socket() as s:
            return s.connect_ex(("127.0.0.1", self.port)) == 0

    def kill(self):
        self.proc.kill()
        self.proc.wait()

    def subscribe(self):
        return Lines(["mosquitto_sub", "-h", "127.0.0.1", "-p", str(self.port), "-q", "1", "-v", "-t", "lab/#"])


def csv_rows(path):
    with open(path) as f:
        return list(csv.DictReader(line for line in f if not line.startswith("#")))


class LoggerTest(unittest.TestCase):
    def setUp(self):
        self.tmp = self.enterContext(tempfile.TemporaryDirectory())
        self.dir = os.path.join(self.tmp, "log")

    def start(self, *args, sensors=1):
        proc = subprocess.Popen([EXE, "--virtual=%d" % sensors, "log", "--dir", self.dir, "-n", str(AVERAGES)] +
                                list(args), stderr=subprocess.PIPE, text=True, env=ENV)
        self.addCleanup(lambda: proc.poll() is None and proc.kill())
        return proc

    def stop(self, proc):
        proc.send_signal(signal.SIGINT)
        _, err = proc.communicate(timeout=30)
        self.assertEqual(proc.returncode, 128 + signal.SIGINT, err)
        return err

    def files(self, sensor_id, ext):
        return sorted(glob.glob(os.path.join(self.dir, "%s_*.%s" % (sensor_id, ext))))

    def assert_no_sequence_gap(self, firsts):
        self.assertGreater(len(firsts), 0)
        self.assertEqual(firsts, list(range(firsts[0], firsts[0] + AVERAGES * len(firsts), AVERAGES)))


class Files(LoggerTest):
    def test_csv_rotates_into_complete_files_per_sensor_with_every_reading_once(self):
        proc = self.start("--rotate", "1s", "--status-every", "0.5", sensors=2)
        wait_for(lambda: len(self.files(IDS[1], "csv")) >= 3, "three files of the second sensor")
        err = self.stop(proc)
        self.assertRegex(err, r"oru-sensor: log: A4486-3-12-40-2 \d+\.\d readings/s, 0 frames dropped, 0 "
                              r"reconnects; A4486-3-13-40-2 ")
        for sensor_id in IDS:
            firsts = []
            for path in self.files(sensor_id, "csv"):
                with open(path) as f:
                    self.assertTrue(f.readline().startswith("# oru-sensor readings"), path)
                rows = csv_rows(path)
                self.assertEqual({row["sensor_id"] for row in rows}, {sensor_id})
                firsts += [int(row["first_sequence"]) for row in rows]
            self.assert_no_sequence_gap(firsts)
            self.assertEqual(firsts[0], 0)

    def test_hdf5_is_followed_while_written_and_readable_after_sigkill(self):
        proc = self.start("--format", "hdf5", "--rotate", "1s")

        def rows_of_open_file():
            paths = self.files(IDS[0], "h5")
            if not paths:
                return 0
            with h5py.File(paths[-1], "r", swmr=True) as f:
                return f["values"].shape[0]
        wait_for(lambda: len(self.files(IDS[0], "h5")) >= 2 and rows_of_open_file() > 0, "a second file with rows")
        proc.kill()
        proc.wait()
        paths = self.files(IDS[0], "h5")
        firsts = []
        for i, path in enumerate(paths):
            # Closed files open as any HDF5 file; the one the kill cut needs SWMR.
            with h5py.File(path, "r", swmr=(i == len(paths) - 1)) as f:
                n = f["values"].shape[0]
                self.assertEqual(f["values"].shape, (n, 1024))
                self.assertEqual([f[name].shape[0] for name in ("time", "sequence", "saturated", "gap")], [n] * 4)
                self.assertEqual((f.attrs["sensor_id"], f.attrs["averages"], f.attrs["shutter_speed"],
                                  f.attrs["exposure_us"], f.attrs["mode"]), (IDS[0], AVERAGES, 1, 1072.0, "raw"))
                self.assertEqual(set(f.attrs) >= {"master_clock", "adc_gain", "adc_range", "library_version"},
                                 True)
                self.assertTrue(all(f["sequence"][:, 1] - f["sequence"][:, 0] == AVERAGES - 1))
                self.assertTrue(all(f["time"][1:] >= f["time"][:-1]))
                self.assertEqual(f["values"].compression, "gzip")
                firsts += [int(s) for s in f["sequence"][:, 0]]
        self.assert_no_sequence_gap(firsts)

    def notify_socket(self, **env):
        """The notification socket as systemd gives it to a Type=notify
        service with WatchdogSec=0.4s."""
        path = os.path.join(self.tmp, "notify")
        sock = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.addCleanup(sock.close)
        sock.bind(path)
        sock.settimeout(30)
        env.update(NOTIFY_SOCKET=path, WATCHDOG_USEC="400000")
        ENV.update(env)
        self.addCleanup(lambda: [ENV.pop(k) for k in env])
        return sock

    def test_systemd_hears_ready_status_watchdog_and_stopping(self):
        sock = self.notify_socket()
        proc = self.start("--status-every", "0.3")
        messages = []
        while not any(m.startswith("STATUS=%s " % IDS[0]) for m in messages) or "WATCHDOG=1" not in messages:
            messages.append(sock.recv(4096).decode())
        self.stop(proc)
        while "STOPPING=1" not in messages:
            messages.append(sock.recv(4096).decode())
        self.assertEqual(messages[0], "READY=1\nSTATUS=logging")
        self.assertRegex(next(m for m in messages if m.startswith("STATUS=A")),
                         r"^STATUS=A4486-3-12-40-2 \d+\.\d readings/s, 0 frames dropped, 0 reconnects$")

    def test_watchdog_goes_on_while_the_logger_waits_for_an_unplugged_sensor(self):
        sock = self.notify_socket(ORU_VSENSOR_FAULTS="0:unplug@1s")
        proc = self.start("--status-every", "0.25")
        # Four status lines in a row without readings: the sensor has been
        # away longer than the 0.8 s a stuck loop is given.
        idle = 0
        while idle < 4:
            message = sock.recv(4096).decode()
            if message.startswith("STATUS=A"):
                idle = idle + 1 if " 0.0 readings/s" in message else 0
        # A ping comes twice as often as a status line.
        following = [sock.recv(4096).decode() for _ in range(6)]
        self.stop(proc)
        self.assertIn("WATCHDOG=1", following)

    def test_bad_options_are_usage_errors(self):
        for args in (["--rotate", "10"], ["--keep", "5 GB"], ["--format", "xml"], ["--mqtt", "http://h/p"],
                     ["--mqtt", "mqtt://h:99999/p"], ["--mqtt", "mqtt://h"], ["--publish-every", "5"]):
            with self.subTest(args=args):
                r = subprocess.run([EXE, "--virtual", "log", "--dir", self.dir] + args, capture_output=True,
                                   text=True, env=ENV, timeout=60)
                self.assertEqual((r.returncode, r.stdout), (2, ""), r.stderr)


@unittest.skipUnless(shutil.which("mosquitto") and shutil.which("mosquitto_sub"), "needs mosquitto")
class Mqtt(LoggerTest):
    def test_broker_outage_loses_no_file_reading_and_publishing_resumes(self):
        broker = Broker(self.tmp, free_port())
        broker.start()
        self.addCleanup(lambda: broker.proc.poll() is None and broker.kill())
        before = broker.subscribe()
        self.addCleanup(before.stop)
        proc = self.start("--mqtt", "mqtt://127.0.0.1:%d/lab" % broker.port, "--publish-every", "20",
                          "--status-every", "0.3", "--rotate", "1s")
        reading_topic, status_topic = "lab/%s/reading" % IDS[0], "lab/%s/status" % IDS[0]

        def has(sub, topic, test=lambda payload: True):
            return any(line.startswith(topic + " ") and test(line.split(" ", 1)[1]) for line in sub.collect())
        wait_for(lambda: has(before, reading_topic) and has(before, status_topic), "readings and status")
        reading = json.loads(next(line for line in before.collect() if line.startswith(reading_topic)).split(" ", 1)[1])
        self.assertEqual((reading["sensor_id"], reading["averages"], reading["exposure_us"], reading["adc_range"]),
                         (IDS[0], AVERAGES, 1072.0, 132))
        self.assertEqual(set(reading["summary"]), {"min", "max", "mean", "saturated"})
        self.assertNotIn("values", reading)

        broker.kill()
        time.sleep(2)  # the outage: the logger keeps writing files meanwhile
        broker.start()
        after = broker.subscribe()
        self.addCleanup(after.stop)
        wait_for(lambda: has(after, reading_topic), "readings after the outage")
        wait_for(lambda: has(after, status_topic, lambda p: p != "offline" and json.loads(p)["mqtt_reconnects"] >= 1),
                 "a status that counts the reconnect")
        err = self.stop(proc)
        self.assertIn("mqtt away (reconnecting)", err)
        # What came while the broker was away waited in the queue and went out.
        self.assertRegex(err, r"mqtt connected, 1 reconnect, 0 not published\n$")
        firsts = [int(row["first_sequence"]) for path in self.files(IDS[0], "csv") for row in csv_rows(path)]
        self.assert_no_sequence_gap(firsts)
        # A clean stop leaves "offline" as the retained status.
        last = subprocess.run(["mosquitto_sub", "-h", "127.0.0.1", "-p", str(broker.port), "-t", status_topic, "-C",
                               "1", "-W", "10"], capture_output=True, text=True, timeout=30)
        self.assertEqual(last.stdout, "offline\n")

    def test_last_will_says_offline_when_the_logger_is_killed(self):
        broker = Broker(self.tmp, free_port())
        broker.start()
        self.addCleanup(broker.kill)
        proc = self.start("--mqtt", "mqtt://127.0.0.1:%d/lab/" % broker.port, "--publish-values", "all",
                          "--status-every", "0.3")
        sub = broker.subscribe()
        self.addCleanup(sub.stop)
        topic = "lab/%s/" % IDS[0]
        wait_for(lambda: any(line.startswith(topic + "status {") for line in sub.collect()), "the status")
        reading = next(line for line in sub.collect() if line.startswith(topic + "reading "))
        self.assertEqual(len(json.loads(reading.split(" ", 1)[1])["values"]), 1024)
        proc.kill()
        proc.wait()
        wait_for(lambda: sub.collect()[-1] == topic + "status offline", "the last will")


if __name__ == "__main__":
    unittest.main()
