"""oru-sensor on virtual sensors: arguments, output formats, plots, exit codes.
Run by ctest with ORU_SENSOR_EXE pointing at the program."""

import json
import os
import subprocess
import tempfile
import unittest
import xml.etree.ElementTree as ET

EXE = os.environ.get("ORU_SENSOR_EXE", "oru-sensor")
GOLDEN = os.path.join(os.path.dirname(os.path.abspath(__file__)), "golden")


def run(*args, env=None, timeout=120):
    e = dict(os.environ, ORU_VSENSOR_REALTIME="0", ORU_VSENSOR_SEED="7")
    e.update(env or {})
    return subprocess.run([EXE] + list(args), capture_output=True, text=True, env=e, timeout=timeout)


class Arguments(unittest.TestCase):
    def test_help_for_each_command(self):
        for cmd in ("list", "info", "read", "set", "convert", "doctor"):
            r = run(cmd, "--help")
            self.assertEqual(r.returncode, 0, cmd)
            self.assertIn("Usage: oru-sensor " + cmd, r.stdout)
        self.assertIn("--auto-exposure", run("read", "--help").stdout)

    def test_usage_errors_exit_2_with_one_line(self):
        for args in (["frobnicate"], [], ["read", "--format", "xml"], ["read", "-n", "0"],
                     ["read", "--shutter", "5", "--auto-exposure"], ["read", "--shutter"],
                     ["convert", "--shutter", "5", "--ms", "3"], ["read", "--bogus"],
                     ["read", "--target", "9000", "--auto-exposure"], ["read", "--target", "100"],
                     ["read", "--interval", "nan"], ["read", "--interval", "inf"], ["read", "--interval", "1e300"],
                     ["read", "--interval", "-1"], ["read", "--duration", "nan"], ["read", "-n", "2147483648"],
                     ["set"], ["set", "--gain", "5"], ["set", "--range", "300"], ["set", "--shutter", "5000"],
                     ["set", "--shutter", "-5"], ["--sensor", "all", "info"], ["read", "--format", "json",
                                                                              "--repeat", "0"]):
            r = run("--virtual", *args)
            self.assertEqual(r.returncode, 2, args)
            self.assertTrue(r.stderr.startswith("oru-sensor: "), args)
            self.assertEqual(r.stdout, "", args)


class Commands(unittest.TestCase):
    def test_output_of_each_command(self):
        cases = [
            (["--virtual=2", "list"], "index  sensor ID\n0      A4486-3-12-40-2\n1      A4486-3-13-40-2\n"),
            (["--virtual=2", "--sensor", "A4486-3-13-40-2", "info"], "sensor ID:      A4486-3-13-40-2"),
            (["--virtual=2", "--sensor", "1", "info"], "position:     x 13, y 40"),
            (["--virtual", "info"], "shutter speed:  1 (limits 1..3000)"),
            (["--virtual", "info"], "exposure time:  1.000 ms at 1 MHz"),
            (["--virtual", "info"], "ADC range:      132"),
            (["--virtual", "info"], "ADC gain:       1"),
            (["--virtual", "set", "--shutter", "3000", "--gain", "0", "--range", "200"],
             "shutter speed: 3000\nADC gain:      0\nADC range:     200\n"),
            (["--virtual", "convert", "--shutter", "1000"], "shutter speed 1000 = 912.000 ms exposure at 1 MHz\n"),
            (["--virtual", "convert", "--ms", "912"], "912.000 ms exposure = shutter speed 1726 at 1 MHz\n"),
        ]
        for args, expected in cases:
            with self.subTest(args=args):
                r = run(*args)
                self.assertEqual(r.returncode, 0, r.stderr)
                self.assertIn(expected, r.stdout)
                if expected.endswith("\n"):
                    self.assertEqual(r.stdout, expected)
        for sensor in ("5", "Z1-1-1-1-1"):
            self.assertEqual(run("--virtual=2", "--sensor", sensor, "info").returncode, 1)

    def test_library_messages_stay_off_stdout_unless_verbose(self):
        r = run("--virtual", "-v", "list")
        self.assertIn("[oru_device_api]", r.stderr)
        self.assertNotIn("[oru_device_api]", r.stdout)


# A lamp spectrum with seeded noise: the golden files pin the numbers.
SCENE = {"ORU_VSENSOR_SCENE": "lamp", "ORU_VSENSOR_NOISE": "3"}


class ReadFormats(unittest.TestCase):
    def golden(self, name, text):
        path = os.path.join(GOLDEN, name)
        if os.environ.get("ORU_UPDATE_GOLDEN"):
            with open(path, "w") as f:
                f.write(text)
        with open(path) as f:
            self.assertEqual(text, f.read(), name)

    def test_table_golden(self):
        r = run("--virtual", "read", "--shutter", "100", "-n", "3", "--repeat", "2", env=SCENE)
        self.assertEqual(r.returncode, 0, r.stderr)
        self.golden("read_table.txt", r.stdout)

    def test_csv_columns_golden(self):
        r = run("--virtual", "read", "--shutter", "40", "-n", "2", "--format", "csv-columns", env=SCENE)
        self.assertEqual(r.returncode, 0, r.stderr)
        lines = r.stdout.splitlines()
        self.assertEqual(lines[0], "filter,m0")
        self.assertEqual(len(lines), 1025)
        self.golden("read_csv.txt", r.stdout)

    def test_json_structure(self):
        with tempfile.TemporaryDirectory() as d:
            out = os.path.join(d, "r.json")
            r = run("--virtual", "read", "--shutter", "60", "--repeat", "3", "--format", "json", "-o", out)
            self.assertEqual(r.returncode, 0, r.stderr)
            self.assertEqual(r.stdout, "")
            with open(out) as f:
                doc = json.load(f)
        ms = doc["measurements"]
        self.assertEqual(len(ms), 3)
        for m in ms:
            self.assertEqual(m["sensor_id"], "A4486-3-12-40-2")
            self.assertEqual(m["shutter_speed"], 60)
            self.assertEqual(len(m["values"]), 1024)
            self.assertTrue(all(0 <= v <= 4095 for v in m["values"]))

    def test_auto_exposure_then_plot(self):
        with tempfile.TemporaryDirectory() as d:
            svg = os.path.join(d, "p.svg")
            r = run("--virtual", "read", "--auto-exposure", "-n", "2", "--plot", svg)
            self.assertEqual(r.returncode, 0, r.stderr)
            root = ET.parse(svg).getroot()
        ns = "{http://www.w3.org/2000/svg}"
        self.assertEqual(root.tag, ns + "svg")
        lines = root.findall(".//" + ns + "polyline")
        self.assertEqual(len(lines), 1)
        self.assertEqual(len(lines[0].get("points").split()), 1024)
        texts = [t.text for t in root.iter(ns + "text")]
        self.assertIn("Filter index", texts)
        self.assertIn("Filter output (DN)", texts)

    def test_many_repeats_plot_mean_with_band(self):
        with tempfile.TemporaryDirectory() as d:
            svg = os.path.join(d, "p.svg")
            r = run("--virtual", "read", "--shutter", "80", "-n", "1", "--repeat", "10", "--plot", svg)
            self.assertEqual(r.returncode, 0, r.stderr)
            root = ET.parse(svg).getroot()
        ns = "{http://www.w3.org/2000/svg}"
        self.assertEqual(len(root.findall(".//" + ns + "polygon")), 1)
        self.assertEqual(len(root.findall(".//" + ns + "polyline")[0].get("points").split()), 1024)


def csv_rows(text):
    import csv
    import io
    return list(csv.reader(io.StringIO(text)))


class Rows(unittest.TestCase):
    """Readings of the frame stream, one row or line each, as they come."""

    def check_row(self, row, sensor_id, averages):
        import datetime
        when = datetime.datetime.fromisoformat(row["time"])
        self.assertIsNotNone(when.utcoffset())
        self.assertRegex(row["time"], r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}[+-]\d\d:\d\d$")
        self.assertEqual(row["sensor_id"], sensor_id)
        self.assertEqual(int(row["last_sequence"]) - int(row["first_sequence"]), averages - 1)
        self.assertEqual(int(row["averages"]), averages)

    def test_csv_rows_follow_the_stream_frame_by_frame(self):
        r = run("--virtual", "read", "-n", "4", "--repeat", "5", "--format", "csv",
                env={"ORU_VSENSOR_PATTERN": "counter", "ORU_VSENSOR_REALTIME": "1"})
        self.assertEqual(r.returncode, 0, r.stderr)
        rows = csv_rows(r.stdout)
        header = rows[0]
        self.assertEqual(header[:8], ["time", "sensor_id", "first_sequence", "last_sequence", "shutter_speed",
                                      "averages", "saturated", "gap"])
        self.assertEqual(header[8:], ["f%d" % i for i in range(1024)])
        self.assertEqual(len(rows), 6)
        for k, values in enumerate(rows[1:]):
            row = dict(zip(header, values))
            self.check_row(row, "A4486-3-12-40-2", 4)
            # Every frame once, in order: frame k of the run reads k.
            self.assertEqual(int(row["first_sequence"]), 4 * k)
            self.assertAlmostEqual(float(row["f0"]), 4 * k + 1.5)

    def test_jsonl_for_every_sensor_in_turn(self):
        r = run("--virtual=2", "--sensor", "all", "read", "-n", "2", "--repeat", "3", "--format", "jsonl")
        self.assertEqual(r.returncode, 0, r.stderr)
        lines = r.stdout.splitlines()
        self.assertEqual(len(lines), 6)
        rows = [json.loads(line) for line in lines]
        self.assertEqual([row["sensor_id"] for row in rows], ["A4486-3-12-40-2", "A4486-3-13-40-2"] * 3)
        for row in rows:
            self.check_row(row, row["sensor_id"], 2)
            self.assertEqual(len(row["values"]), 1024)

    def test_spaced_readings_are_requests(self):
        r = run("--virtual", "read", "-n", "2", "--repeat", "2", "--interval", "0.05", "--format", "csv")
        self.assertEqual(r.returncode, 0, r.stderr)
        rows = csv_rows(r.stdout)
        self.assertEqual([row[2:4] for row in rows[1:]], [["", ""], ["", ""]])

    def test_stop_signal_leaves_whole_rows_and_exit_status(self):
        import signal
        import time
        for sig, status in ((signal.SIGINT, 130), (signal.SIGTERM, 143)):
            with self.subTest(sig=sig), tempfile.TemporaryDirectory() as d:
                out = os.path.join(d, "log.csv")
                e = dict(os.environ, ORU_VSENSOR_REALTIME="1")
                p = subprocess.Popen([EXE, "--virtual", "read", "-n", "5", "--repeat", "0", "-o", out],
                                     env=e, stderr=subprocess.PIPE, text=True)
                deadline = time.monotonic() + 30
                while time.monotonic() < deadline and (not os.path.exists(out) or os.path.getsize(out) < 50000):
                    time.sleep(0.02)
                p.send_signal(sig)
                _, err = p.communicate(timeout=30)
                self.assertEqual(p.returncode, status, err)
                with open(out) as f:
                    text = f.read()
                self.assertTrue(text.endswith("\n"))
                rows = csv_rows(text)
                self.assertGreater(len(rows), 5)
                for values in rows[1:]:
                    self.assertEqual(len(values), 8 + 1024)
                    float(values[-1])
                # Consecutive readings share and skip no frame.
                seq = [(int(v[2]), int(v[3])) for v in rows[1:]]
                for (_, last), (first, _) in zip(seq, seq[1:]):
                    self.assertEqual(first, last + 1)

    def test_lost_output_is_an_error(self):
        for args in (["read", "-o", "/dev/full", "--format", "csv"], ["read", "--plot", "/dev/full"],
                     ["read", "-o", "/nonexistent/dir/x.csv"]):
            with self.subTest(args=args):
                r = run("--virtual", *args)
                self.assertEqual(r.returncode, 1)
                self.assertRegex(r.stderr, r"^oru-sensor: cannot write \S+: ")
                self.assertEqual(r.stderr.count("\n"), 1)
                self.assertNotIn("plot written", r.stderr)
        with open("/dev/full", "w") as full:
            r = subprocess.run([EXE, "--virtual", "list"], stdout=full, stderr=subprocess.PIPE, text=True,
                               env=dict(os.environ, ORU_VSENSOR_REALTIME="0"))
        self.assertEqual(r.returncode, 1)
        self.assertIn("cannot write standard output: No space left on device", r.stderr)


class Faults(unittest.TestCase):
    def test_no_sensor(self):
        # Without --virtual the USB hardware is asked, never the virtual sensor.
        for args in (["--virtual=0", "list"], ["list"]):
            with self.subTest(args=args):
                r = run(*args, env={"ORU_VSENSOR_TRACE": "1"})
                self.assertEqual(r.returncode, 1)
                self.assertIn("no sensor found (code -1)", r.stderr)
                if args == ["list"]:
                    self.assertNotIn("[vsensor]", r.stderr)

    def test_permission_failure_points_to_doctor(self):
        r = run("--virtual", "list", env={"ORU_VSENSOR_FAULTS": "0:open-access"})
        self.assertEqual(r.returncode, 1)
        self.assertIn("permission denied", r.stderr)
        self.assertIn("oru-sensor doctor", r.stderr)

    def test_stalled_stream_reports_timeout(self):
        r = run("--virtual", "read", "--shutter", "10", env={"ORU_VSENSOR_FAULTS": "0:stall"})
        self.assertEqual(r.returncode, 1)
        self.assertIn("the sensor did not answer in time (code -9)", r.stderr)
        self.assertEqual(r.stderr.count("\n"), 1)

    def test_lost_sensor_comes_back_and_the_gap_is_recorded(self):
        # Sensor 1 of 2 fails, or is unplugged and plugged in again, while both
        # stream; sensor 0 goes on without a gap, sensor 1 is back with one.
        for faults in ("1:bulk-error", "1:unplug@2s,1:replug@3s"):
            with self.subTest(faults=faults):
                env = {"ORU_VSENSOR_FAULTS": faults, "ORU_VSENSOR_REALTIME": "1", "ORU_VSENSOR_PATTERN": "counter"}
                r = run("--virtual=2", "--sensor", "all", "read", "-n", "50", "--duration", "4", "--format", "jsonl",
                        env=env)
                self.assertEqual(r.returncode, 0, r.stderr)
                self.assertRegex(r.stderr, r"sensor A4486-3-13-40-2 (failed|was removed); waiting for it to come "
                                 r"back\noru-sensor: sensor A4486-3-13-40-2 is back after \d+\.\d s\n$")
                rows = [json.loads(line) for line in r.stdout.splitlines()]
                first = [row for row in rows if row["sensor_id"] == "A4486-3-12-40-2"]
                second = [row for row in rows if row["sensor_id"] == "A4486-3-13-40-2"]
                self.assertEqual([row["first_sequence"] for row in first], [50 * k for k in range(len(first))])
                self.assertTrue(all(row["gap"] == 0 for row in first))
                gaps = [row["gap"] for row in second if row["gap"] > 0]
                self.assertEqual(len(gaps), 1, second)
                back = next(i for i, row in enumerate(second) if row["gap"] > 0)
                self.assertLess(back, len(second) - 1)  # and it reads on
                r = run("--virtual=2", "--sensor", "all", "read", "-n", "50", "--duration", "3", "--no-recover",
                        env=env)
                self.assertEqual(r.returncode, 1)
                self.assertIn("(code -9)", r.stderr)

    def test_doctor_without_hardware(self):
        with tempfile.TemporaryDirectory() as d:
            r = run("doctor", env={"ORU_DOCTOR_SYSFS": d})
        self.assertEqual(r.returncode, 1)
        self.assertIn("no 0483:5740 device on the USB bus", r.stdout)

    def test_doctor_finds_permission_and_driver_problems(self):
        with tempfile.TemporaryDirectory() as d:
            dev = os.path.join(d, "sys", "bus", "usb", "devices", "1-1")
            os.makedirs(dev)
            for name, value in (("idVendor", "0483"), ("idProduct", "5740"), ("busnum", "1"), ("devnum", "9")):
                with open(os.path.join(dev, name), "w") as f:
                    f.write(value + "\n")
            intf = os.path.join(d, "sys", "bus", "usb", "devices", "1-1:1.0")
            os.makedirs(intf)
            os.symlink("../../../../bus/usb/drivers/cdc_acm", os.path.join(intf, "driver"))
            with open(os.path.join(intf, "bInterfaceClass"), "w") as f:
                f.write("02\n")
            mm = os.path.join(d, "proc", "321")
            os.makedirs(mm)
            with open(os.path.join(mm, "comm"), "w") as f:
                f.write("ModemManager\n")
            r = run("doctor", env={"ORU_DOCTOR_SYSFS": os.path.join(d, "sys"),
                                   "ORU_DOCTOR_DEVFS": os.path.join(d, "dev"),
                                   "ORU_DOCTOR_PROC": os.path.join(d, "proc")})
        self.assertEqual(r.returncode, 1)
        self.assertIn("ok    found 1 device(s) 0483:5740", r.stdout)
        self.assertIn("does not exist", r.stdout)
        self.assertIn("kernel driver 'cdc_acm' is bound to interface 0", r.stdout)
        self.assertIn("ModemManager is running", r.stdout)
        self.assertIn("ID_MM_DEVICE_IGNORE=1", r.stdout)
        self.assertIn("ok    bus 1 device 9: no other process holds it", r.stdout)


if __name__ == "__main__":
    unittest.main()
