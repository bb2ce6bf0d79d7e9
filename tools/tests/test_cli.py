"""oru-sensor on virtual sensors: arguments, output formats, plots, exit codes.
Run by ctest with ORU_SENSOR_EXE pointing at the program."""

import csv
import io
import json
import os
import re
import shlex
import signal
import subprocess
import tempfile
import time
import unittest
import xml.etree.ElementTree as ET

EXE = os.environ.get("ORU_SENSOR_EXE", "oru-sensor")
GOLDEN = os.path.join(os.path.dirname(os.path.abspath(__file__)), "golden")
SVG = "{http://www.w3.org/2000/svg}"
FIRST, SECOND = "A4486-3-12-40-2", "A4486-3-13-40-2"
COLUMNS = ["time", "sensor_id", "first_sequence", "last_sequence", "shutter_speed", "exposure_us", "averages", "saturated",
           "gap"]
# A lamp spectrum with seeded noise: the golden files pin the numbers.
SCENE = {"ORU_VSENSOR_SCENE": "lamp", "ORU_VSENSOR_NOISE": "3"}
INFO = ("sensor ID:      A4486-3-13-40-2\n  lot:          A4486\n  wafer:        3\n  position:     x 13, y 40\n"
        "  sensor type:  2\nshutter speed:  1 (limits 1..3000)\nexposure time:  1.072 ms at 1 MHz\n"
        "  published:    1.000 ms (duShutterSpeedToExposureTime divides in whole ms)\n"
        "ADC range:      132\nADC gain:       1\n")


def run(*args, env=None, timeout=120):
    # No configuration file of this machine's or its user's takes part.
    e = dict(os.environ, ORU_VSENSOR_REALTIME="0", ORU_VSENSOR_SEED="7",
             ORU_SENSOR_SYSTEM_CONFIG="/nonexistent/oru-sensor.conf", XDG_CONFIG_HOME="/nonexistent")
    e.update(env or {})
    return subprocess.run([EXE] + list(args), capture_output=True, text=True, env=e, timeout=timeout)


def parse(text):
    """Readings as dicts: JSON lines after their header object, or CSV rows
    under their column row ('#' lines skipped)."""
    if text.startswith("{"):
        return [row for row in map(json.loads, text.splitlines()) if "format" not in row]
    return list(csv.DictReader(line for line in io.StringIO(text) if not line.startswith("#")))


def data_lines(text):
    """The lines of a file that are not '#' header lines."""
    return [line for line in text.splitlines() if not line.startswith("#")]


def masked(text):
    """Times and the version, which change from run to run, as placeholders."""
    text = re.sub(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}([+-]\d\d:\d\d|Z)", "TIME", text)
    return re.sub(r"library_version: \S+", "library_version: VERSION", text)


def put(path, text):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w") as f:
        f.write(text)


class CliTest(unittest.TestCase):
    def setUp(self):
        self.tmp = self.enterContext(tempfile.TemporaryDirectory())

    def ok(self, *args, env=None):
        """stdout of a run that must succeed."""
        r = run(*args, env=env)
        self.assertEqual(r.returncode, 0, r.stderr)
        return r.stdout

    def check_row(self, row, sensor_id, averages):
        self.assertNotIn(None, list(row) + list(row.values()))  # every CSV row as wide as its header
        self.assertRegex(row["time"], r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}[+-]\d\d:\d\d$")
        self.assertEqual((row["sensor_id"], int(row["averages"])), (sensor_id, averages))
        self.assertEqual(int(row["last_sequence"]) - int(row["first_sequence"]), averages - 1)


class Arguments(CliTest):
    def test_help_for_each_command(self):
        for cmd in ("list", "info", "read", "set", "convert", "doctor", "dark", "reference"):
            self.assertIn("Usage: oru-sensor " + cmd, self.ok(cmd, "--help"))
        self.assertIn("--auto-exposure", self.ok("read", "--help"))

    def test_usage_errors_exit_2_with_one_line(self):
        for args in ("frobnicate", "", "read --format xml", "read -n 0", "read --shutter 5 --auto-exposure",
                     "read --shutter", "convert --shutter 5 --ms 3", "read --bogus", "read --target 100",
                     "read --target 9000 --auto-exposure", "read --interval nan", "read --interval inf",
                     "read --interval 1e300", "read --interval -1", "read --duration nan", "read -n 2147483648",
                     "set", "set --gain 5", "set --range 300", "set --shutter 5000", "set --shutter -5",
                     "--sensor all info", "read --format json --repeat 0", "convert", "convert --clock 2",
                     "convert --shutter 2355000", "convert --shutter 0", "convert --ms 0", "convert --ms nan",
                     "convert --ms -3", "convert --ms 0.5", "convert --clock 0 --ms 3", "read -o ''",
                     "read --plot ''", "--sensor '' info", "read -o x.svg --plot ./x.svg", "--virtual=11 list",
                     "read --force", "read -o x.csv --force --append", "read -o x.json --format json --append",
                     "dark", "reference --format json -o x.json", "dark -o x.csv --repeat 2", "read --step 0",
                     "reference -o x.csv --shutter 5 --auto-exposure"):
            with self.subTest(args=args):
                r = run("--virtual", *shlex.split(args))
                self.assertEqual((r.returncode, r.stdout), (2, ""))
                self.assertRegex(r.stderr, r"^oru-sensor: [^\n]+\n$")


class Commands(CliTest):
    def test_output_of_each_command(self):
        for args, expected in [
                ("--virtual=2 list", "index  sensor ID\n0      A4486-3-12-40-2\n1      A4486-3-13-40-2\n"),
                ("--virtual=2 --sensor A4486-3-13-40-2 info", INFO), ("--virtual=2 --sensor 1 info", INFO),
                ("--virtual set --shutter 3000 --gain 0 --range 200",
                 "shutter speed: 3000\nADC gain:      0\nADC range:     200\n"),
                # Arithmetic only: no sensor needed, none asked.
                ("convert --shutter 1000", "shutter speed 1000 = 912.000 ms exposure at 1 MHz\n"),
                ("convert --ms 912", "912.000 ms exposure = shutter speed 1726 at 1 MHz\n"),
                ("--virtual=0 convert --clock 2 --shutter 100", "shutter speed 100 = 45.000 ms exposure at 2 MHz\n"),
                ("convert --ms 45 --clock 2", "45.000 ms exposure = shutter speed 169 at 2 MHz\n")]:
            with self.subTest(args=args):
                self.assertEqual(self.ok(*args.split()), expected)
        for sensor, reason in (("5", "index 5 (2 connected)"), ("Z1-1-1-1-1", "ID Z1-1-1-1-1"),
                               ("99999999999999999999", "index 99999999999999999999 (2 connected)")):
            r = run("--virtual=2", "--sensor", sensor, "info")
            self.assertEqual((r.returncode, r.stderr), (1, "oru-sensor: no sensor with %s\n" % reason))
        r = run("--virtual", "-v", "list")  # the library's own lines go to stderr
        self.assertEqual(("[oru_device_api]" in r.stderr, "[oru_device_api]" in r.stdout), (True, False))


class ReadFormats(CliTest):
    def test_table_and_csv_columns_golden(self):
        for name, args in (("read_table.txt", "--shutter 100 -n 3 --repeat 2"),
                           ("read_csv.txt", "--shutter 40 -n 2 --format csv-columns")):
            with self.subTest(name=name):
                out = masked(self.ok("--virtual", "read", *args.split(), env=SCENE))
                path = os.path.join(GOLDEN, name)
                if os.environ.get("ORU_UPDATE_GOLDEN"):
                    put(path, out)
                with open(path) as f:
                    self.assertEqual(out, f.read(), name)

    def test_json_structure(self):
        out = os.path.join(self.tmp, "r.json")
        self.assertEqual(self.ok("--virtual", "read", "--shutter", "60", "--repeat", "3", "--format", "json", "-o", out),
                         "")
        with open(out) as f:
            ms = json.load(f)["measurements"]
        self.assertEqual([(m["sensor_id"], m["shutter_speed"], len(m["values"])) for m in ms],
                         [(FIRST, 60, 1024)] * 3)

    def test_saturation_is_one_rule_in_every_mode_and_the_table_warns(self):
        # Streamed or spaced out, a filter counts when any frame hit 4095 DN: every filter
        # whose average is there, and none whose average is far below it (noise 3 DN).
        for mode in ("", "--interval 0.01"):
            with self.subTest(mode=mode):
                rows = parse(self.ok("--virtual", "read", "--shutter", "200", "-n", "5", "--format", "jsonl",
                                     *mode.split(), env=SCENE))
                self.assertEqual(len(rows), 1)
                values, saturated = rows[0]["values"], rows[0]["saturated"]
                self.assertGreater(sum(v >= 4095 for v in values), 100)
                self.assertGreaterEqual(saturated, sum(v >= 4095 for v in values))
                self.assertLessEqual(saturated, sum(v >= 4060 for v in values))
        r = run("--virtual", "read", "-n", "2", env={"ORU_VSENSOR_PATTERN": "constant:4095"})
        self.assertEqual((r.returncode, r.stdout.splitlines()[0].split()[-1], r.stdout.splitlines()[1].split()[-1]),
                         (0, "sat", "1024"))
        self.assertEqual(r.stderr, "oru-sensor: warning: sensor 0 (A4486-3-12-40-2): 1024 filters saturated "
                         "(at 4095 DN in some frame); lower the shutter speed\n")

    def test_plot_of_one_reading_and_mean_with_band_of_many(self):
        for args, bands in (("--auto-exposure -n 2", 0), ("--shutter 80 -n 1 --repeat 10", 1)):
            with self.subTest(args=args):
                svg = os.path.join(self.tmp, "%d.svg" % bands)
                self.ok("--virtual", "read", *args.split(), "--plot", svg)
                root = ET.parse(svg).getroot()
            self.assertEqual(root.tag, SVG + "svg")
            self.assertEqual([len(p.get("points").split()) for p in root.iter(SVG + "polyline")], [1024])
            self.assertEqual(len(list(root.iter(SVG + "polygon"))), bands)
            self.assertLessEqual({"Filter index", "Filter output (DN)"}, {t.text for t in root.iter(SVG + "text")})


class Rows(CliTest):
    """Readings of the frame stream, one row or line each, as they come."""

    def test_jsonl_for_every_sensor_in_turn(self):
        rows = parse(self.ok("--virtual=2", "--sensor", "all", "read", "-n", "2", "--repeat", "3", "--format",
                             "jsonl"))
        # Each sensor on its own: rows come as they are read, three of each.
        self.assertEqual(sorted(row["sensor_id"] for row in rows), [FIRST] * 3 + [SECOND] * 3)
        for row in rows:
            self.check_row(row, row["sensor_id"], 2)
            self.assertEqual((len(row["values"]), row["gap"]), (1024, 0))

    def test_spaced_readings_take_fresh_frames_without_sequence_numbers(self):
        # Each from a stream of its own, whose numbers start again at 0.
        rows = parse(self.ok("--virtual", "read", "-n", "2", "--repeat", "2", "--interval", "0.05", "--format", "csv"))
        self.assertEqual([(r["first_sequence"], r["last_sequence"]) for r in rows], [("", "")] * 2)

    def test_csv_rows_follow_the_stream_until_a_stop_signal(self):
        for sig, status in ((signal.SIGINT, 130), (signal.SIGTERM, 143)):
            with self.subTest(sig=sig):
                out = os.path.join(self.tmp, "%d.csv" % sig)
                p = subprocess.Popen([EXE, "--virtual", "read", "-n", "5", "--repeat", "0", "-o", out], text=True,
                                     env=dict(os.environ, ORU_VSENSOR_REALTIME="1", ORU_VSENSOR_PATTERN="counter"),
                                     stderr=subprocess.PIPE)
                deadline = time.monotonic() + 30
                while time.monotonic() < deadline and (not os.path.exists(out) or os.path.getsize(out) < 50000):
                    time.sleep(0.02)
                p.send_signal(sig)
                _, err = p.communicate(timeout=30)
                self.assertEqual(p.returncode, status, err)
                with open(out) as f:
                    text = f.read()
                self.assertTrue(text.endswith("\n"))  # whole rows only
                self.assertEqual(data_lines(text)[0].split(","), COLUMNS + ["f%d" % i for i in range(1024)])
                rows = parse(text)
                self.assertGreater(len(rows), 4)
                for k, row in enumerate(rows):
                    self.check_row(row, FIRST, 5)
                    # Every frame once, in order: frame k of the run reads k, no gap.
                    self.assertEqual((int(row["first_sequence"]), float(row["f0"]), row["gap"]),
                                     (5 * k, 5 * k + 2, "0"))

    def test_a_stop_signal_or_the_deadline_ends_a_long_reading_at_once(self):
        # One reading of 100000 frames takes about 107 s; the run ends well before.
        out = os.path.join(self.tmp, "long.csv")
        env = dict(os.environ, ORU_VSENSOR_REALTIME="1")
        p = subprocess.Popen([EXE, "--virtual", "read", "-n", "100000", "--repeat", "0", "-o", out], text=True,
                             env=env, stderr=subprocess.PIPE)
        deadline = time.monotonic() + 30
        while time.monotonic() < deadline and (not os.path.exists(out) or os.path.getsize(out) == 0):
            time.sleep(0.02)
        time.sleep(0.3)  # into the reading
        p.send_signal(signal.SIGINT)
        _, err = p.communicate(timeout=5)
        self.assertEqual(p.returncode, 130, err)
        with open(out) as f:
            self.assertEqual(len(data_lines(f.read())), 1)  # the header, no half reading
        r = run("--virtual", "read", "-n", "15000", "--duration", "1", "--format", "csv",
                env={"ORU_VSENSOR_REALTIME": "1"}, timeout=6)
        self.assertEqual((r.returncode, len(data_lines(r.stdout))), (0, 1), r.stderr)

    def test_existing_output_is_refused_replaced_or_appended_to(self):
        path = os.path.join(self.tmp, "out.csv")
        self.ok("--virtual", "read", "-o", path)
        r = run("--virtual", "read", "-o", path)
        self.assertEqual(r.returncode, 1)
        self.assertEqual(r.stderr, "oru-sensor: %s exists; --force replaces it, --append adds to it\n" % path)
        self.ok("--virtual", "read", "-o", path, "--append", "--repeat", "2")
        with open(path) as f:
            self.assertEqual(len(parse(f.read())), 3)  # one header, three rows
        for args, code, rows in ((["--append", "--format", "jsonl"], 1, 3), (["--force"], 0, 1)):
            with self.subTest(args=args):
                r = run("--virtual", "read", "-o", path, *args)
                self.assertEqual(r.returncode, code, r.stderr)
                with open(path) as f:
                    self.assertEqual(len(parse(f.read())), rows)

    def test_lost_output_is_an_error(self):
        for args in ("read -o /dev/full --format csv", "read --plot /dev/full", "read -o /nonexistent/dir/x.csv"):
            with self.subTest(args=args):
                r = run("--virtual", *args.split())
                self.assertEqual(r.returncode, 1)
                self.assertRegex(r.stderr, r"^oru-sensor: cannot write \S+: [^\n]+\n$")
        with open("/dev/full", "w") as full:
            r = subprocess.run([EXE, "--virtual", "list"], stdout=full, stderr=subprocess.PIPE, text=True,
                               env=dict(os.environ, ORU_VSENSOR_REALTIME="0"))
        self.assertEqual(r.returncode, 1)
        self.assertIn("cannot write standard output: No space left on device", r.stderr)


class Faults(CliTest):
    def test_failures_exit_1_with_the_reason(self):
        # Without --virtual the USB hardware is asked, never the virtual sensor (its trace stays silent).
        for args, faults, expected in (("--virtual=0 list", "", r"no sensor found \(code -1\)"),
                                       ("list", "", r"no sensor found \(code -1\)"),
                                       ("--virtual list", "0:open-access", r"permission denied.*oru-sensor doctor"),
                                       ("--virtual read --shutter 10", "0:stall",
                                        r": the sensor did not answer in time \(code -9\)")):
            with self.subTest(args=args):
                r = run(*args.split(), env={"ORU_VSENSOR_TRACE": str(int(args == "list")),
                                            "ORU_VSENSOR_FAULTS": faults})
                self.assertEqual(r.returncode, 1)
                self.assertRegex(r.stderr, r"^oru-sensor: [^\n]*" + expected + r"[^\n]*\n$")
                self.assertNotIn("[vsensor]", r.stderr)

    def test_one_sensor_lost_or_failing_never_holds_up_the_others(self):
        # Sensor 1 fails, is unplugged for a while or for good, or stalls, while
        # all stream: the others read every frame in order without a gap;
        # sensor 1 is named by index and ID and either comes back with one
        # gap, or is reported while the others read on, and the run ends with 1.
        name = r"oru-sensor: sensor 1 \(A4486-3-13-40-2\)"
        away = name + r" (failed|was removed); waiting for it to come back\n"
        back = away + name + r" is back after \d+\.\d s\n$"
        for faults, sensors, seconds, status, messages in (
                ("1:bulk-error", 2, 3, 0, back), ("1:unplug@2s,1:replug@3s", 2, 4, 0, back),
                ("1:unplug", 3, 3, 0, away),
                ("1:stall", 3, 3, 1, name + r": reading filter data failed: the sensor did not answer in time "
                 r"\(code -9\)\n$")):
            with self.subTest(faults=faults):
                env = {"ORU_VSENSOR_FAULTS": faults, "ORU_VSENSOR_REALTIME": "1", "ORU_VSENSOR_PATTERN": "counter"}
                r = run("--virtual=%d" % sensors, "--sensor", "all", "read", "-n", "50", "--duration",
                        str(seconds), "--format", "jsonl", env=env)
                self.assertEqual(r.returncode, status, r.stderr)
                self.assertRegex(r.stderr, "^" + messages)
                rows = parse(r.stdout)
                for other in (FIRST, "A4486-3-14-40-2")[:sensors - 1]:
                    seen = [(row["first_sequence"], row["gap"]) for row in rows if row["sensor_id"] == other]
                    self.assertEqual(seen, [(50 * k, 0) for k in range(len(seen))])
                    self.assertGreater(len(seen), 20)  # 3 s of 54 ms readings, less the start
                second = [row["gap"] for row in rows if row["sensor_id"] == SECOND]
                if status == 0 and back in messages:
                    self.assertEqual(len([gap for gap in second if gap > 0]), 1, second)
                    self.assertEqual(second[-1], 0)  # and it reads on
                else:
                    self.assertEqual(second, [])  # lost at its first frame
        r = run("--virtual=2", "--sensor", "all", "read", "-n", "50", "--duration", "1", "--no-recover",
                env={"ORU_VSENSOR_FAULTS": "1:bulk-error", "ORU_VSENSOR_REALTIME": "1"})
        self.assertEqual(r.returncode, 1)
        self.assertRegex(r.stderr, "^" + name + r": reading filter data failed: .*\(code -9\)\n$")

    def test_whole_series_formats_keep_what_was_read(self):
        # A stall, an unplug without recovery or a stop signal ends the run
        # early: the document holds the readings taken, and the status says why.
        env = {"ORU_VSENSOR_REALTIME": "1"}
        for fmt, how, status in (("json", "0:stall@1500ms", 1), ("csv-columns", "0:unplug@1500ms", 1),
                                 ("json", "SIGTERM", 143)):
            with self.subTest(fmt=fmt, how=how):
                out = os.path.join(self.tmp, "%s-%s" % (fmt, how))
                args = [EXE, "--virtual", "read", "-n", "20", "--repeat", "100000", "--format", fmt, "-o", out]
                if "unplug" in how:
                    args.append("--no-recover")
                p = subprocess.Popen(args, text=True, stderr=subprocess.PIPE,
                                     env=dict(os.environ, ORU_VSENSOR_FAULTS=how if ":" in how else "", **env))
                if how == "SIGTERM":
                    time.sleep(1.5)
                    p.send_signal(signal.SIGTERM)
                _, err = p.communicate(timeout=30)
                self.assertEqual(p.returncode, status, err)
                with open(out) as f:
                    text = f.read()
                if fmt == "json":
                    taken = len(json.load(io.StringIO(text))["measurements"])
                else:
                    taken = len(data_lines(text)[0].split(",")) - 1
                    self.assertEqual(len(data_lines(text)), 1025)
                self.assertGreater(taken, 5)

    def test_doctor_finds_no_device_then_permission_and_driver_problems(self):
        d = self.tmp  # empty at first: no device
        r = run("doctor", env={"ORU_DOCTOR_SYSFS": d})
        self.assertEqual(r.returncode, 1)
        self.assertIn("no 0483:5740 device on the USB bus", r.stdout)
        dev = os.path.join(d, "sys", "bus", "usb", "devices", "1-1")
        for name, value in (("idVendor", "0483"), ("idProduct", "5740"), ("busnum", "1"), ("devnum", "9")):
            put(os.path.join(dev, name), value + "\n")
        put(os.path.join(dev + ":1.0", "bInterfaceClass"), "02\n")
        os.symlink("../../../../bus/usb/drivers/cdc_acm", os.path.join(dev + ":1.0", "driver"))
        put(os.path.join(d, "proc", "321", "comm"), "ModemManager\n")
        env = {"ORU_DOCTOR_SYSFS": "sys", "ORU_DOCTOR_DEVFS": "dev", "ORU_DOCTOR_PROC": "proc"}
        r = run("doctor", env={name: os.path.join(d, sub) for name, sub in env.items()})
        self.assertEqual(r.returncode, 1)
        for line in ("ok    found 1 device(s) 0483:5740", "does not exist", "ModemManager is running",
                     "kernel driver 'cdc_acm' is bound to interface 0", "ID_MM_DEVICE_IGNORE=1",
                     "ok    bus 1 device 9: no other process holds it"):
            self.assertIn(line, r.stdout)


class Config(CliTest):
    def setUp(self):
        super().setUp()
        self.system = os.path.join(self.tmp, "etc", "oru-sensor.conf")
        self.user = os.path.join(self.tmp, "xdg", "oru-sensor", "oru-sensor.conf")
        self.env = {"ORU_SENSOR_SYSTEM_CONFIG": self.system, "XDG_CONFIG_HOME": os.path.join(self.tmp, "xdg")}

    def settings(self, *args):
        """(shutter, gain, range) as info shows them."""
        text = self.ok("--virtual=2", *args, "info", env=self.env)
        return tuple(int(re.search(name + r":\s+(\d+)", text).group(1))
                     for name in ("shutter speed", "ADC gain", "ADC range"))

    def test_set_save_lasts_beyond_the_next_connect_and_show_names_the_file_and_line(self):
        put(self.user, "# mine\n[A4486-3-13-40-2]\nshutter = 7\n")
        self.ok("--virtual", "set", "--shutter", "100", "--gain", "0", "--save", env=self.env)
        self.assertEqual(self.settings(), (100, 0, 132))
        self.ok("--virtual", "set", "--shutter", "200", "--save", env=self.env)  # replaced where it stands
        with open(self.user) as f:
            self.assertEqual(f.read(), "# mine\n[A4486-3-13-40-2]\nshutter = 7\n\n[A4486-3-12-40-2]\n"
                                       "gain = 0\nshutter = 200\n")
        self.assertEqual(self.settings(), (200, 0, 132))
        shown = self.ok("config", "show", env=self.env)
        self.assertIn("#   %s (absent)\n" % self.system, shown)
        self.assertRegex(shown, r"\[A4486-3-12-40-2\]\nshutter = 200 +# {0}:7\ngain = 0 +# {0}:6\n# range"
                         .format(re.escape(self.user)))
        self.assertIn("[A4486-3-13-40-2]\nshutter = 7", shown)

    def test_each_file_overrides_the_one_before_and_the_command_line_all(self):
        put(self.system, "shutter = 5\ngain = 0\naverages = 3\n[A4486-3-12-40-2]\nrange = 100\n")
        put(self.user, "[A4486-3-12-40-2]\nshutter = 6\n[A4486-3-13-40-2]\nshutter = 8\n")
        given = os.path.join(self.tmp, "given.conf")
        put(given, "range = 200\n")
        for args, expected in ((["--sensor", "1"], (8, 0, 132)), ([], (6, 0, 100)),
                               (["--config", given], (6, 0, 200))):
            with self.subTest(args=args):
                self.assertEqual(self.settings(*args), expected)
        rows = parse(self.ok("--virtual", "read", "--format", "csv", env=self.env))
        self.assertEqual((rows[0]["shutter_speed"], rows[0]["averages"]), ("6", "3"))
        rows = parse(self.ok("--virtual", "read", "--format", "csv", "--shutter", "9", "-n", "2", env=self.env))
        self.assertEqual((rows[0]["shutter_speed"], rows[0]["averages"]), ("9", "2"))

    def test_a_configured_mode_and_dark_apply_unless_the_command_line_says_otherwise(self):
        dark = os.path.join(self.tmp, "dark.csv")
        self.ok("--virtual", "dark", "-o", dark, env=self.env)
        put(self.user, '[A4486-3-12-40-2]\nmode = "dark"\ndark = "%s"\n' % dark)
        for args, mode, with_dark in ((), "dark", True), (("--mode", "raw"), "raw", True):
            with self.subTest(args=args):
                text = self.ok("--virtual", "read", "--format", "csv", *args, env=self.env)
                self.assertIn("# mode: %s\n" % mode, text)
                self.assertEqual(re.search(r"# sensor: [^\n]* dark=\S+/\d+", text) is not None, with_dark, text)

    def test_a_broken_file_is_one_line_with_file_and_line_and_exit_2(self):
        for text, line, reason in (("shutter = 0\n", 1, "shutter needs a whole number 1..3000, got 0"),
                                   ("# c\n[A4486-3-12-40-2]\ngain = 2\n", 3, "gain needs a whole number 0..1"),
                                   ("averages = 10\nshuter = 5\n", 2, "unknown setting 'shuter'"),
                                   ("[a.b]\nshutter = 5\n", 2, "sections are sensor IDs, not a.b.shutter"),
                                   ("range = 1 2\n", 1, "range needs one value"),
                                   ("[A4486-3-12-40-2\nshutter = 5\n", 1, "unknown setting '[A4486-3-12-40-2'")):
            with self.subTest(text=text):
                put(self.user, text)
                r = run("--virtual", "info", env=self.env)
                self.assertEqual((r.returncode, r.stdout), (2, ""))
                self.assertRegex(r.stderr, r"^oru-sensor: %s:%d: %s[^\n]*\n$" % (re.escape(self.user), line,
                                                                                   re.escape(reason)))
        r = run("--virtual", "--config", os.path.join(self.tmp, "missing.conf"), "info", env=self.env)
        self.assertEqual((r.returncode, r.stdout), (2, ""))
        self.assertRegex(r.stderr, r"^oru-sensor: [^\n]*missing.conf[^\n]*\n$")


if __name__ == "__main__":
    unittest.main()
