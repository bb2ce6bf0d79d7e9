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
            self.assertIn("usage: oru-sensor", r.stdout)
        self.assertIn("--auto-exposure", run("read", "--help").stdout)

    def test_usage_errors_exit_2_with_one_line(self):
        for args in (["frobnicate"], [], ["read", "--format", "xml"], ["read", "-n", "0"],
                     ["read", "--shutter", "5", "--auto-exposure"], ["read", "--shutter"],
                     ["convert", "--shutter", "5", "--ms", "3"], ["read", "--bogus"], ["read", "--target", "9000",
                                                                                       "--auto-exposure"]):
            r = run("--virtual", *args)
            self.assertEqual(r.returncode, 2, args)
            self.assertTrue(r.stderr.startswith("oru-sensor: "), args)
            self.assertEqual(r.stdout, "", args)


class Commands(unittest.TestCase):
    def test_list_two_sensors(self):
        r = run("--virtual=2", "list")
        self.assertEqual(r.returncode, 0, r.stderr)
        self.assertEqual(r.stdout, "index  sensor ID\n0      A4486-3-12-40-2\n1      A4486-3-13-40-2\n")

    def test_sensor_by_id_and_index(self):
        r = run("--virtual=2", "--sensor", "A4486-3-13-40-2", "info")
        self.assertEqual(r.returncode, 0, r.stderr)
        self.assertIn("sensor ID:      A4486-3-13-40-2", r.stdout)
        self.assertIn("position:     x 13, y 40", r.stdout)
        self.assertEqual(run("--virtual=2", "--sensor", "5", "info").returncode, 1)
        self.assertEqual(run("--virtual=2", "--sensor", "Z1-1-1-1-1", "info").returncode, 1)

    def test_info_reports_start_up_settings(self):
        r = run("--virtual", "info")
        self.assertEqual(r.returncode, 0, r.stderr)
        self.assertIn("shutter speed:  1 (limits 1..3000)", r.stdout)
        self.assertIn("exposure time:  1.000 ms at 1 MHz", r.stdout)
        self.assertIn("ADC range:      132", r.stdout)
        self.assertIn("ADC gain:       1", r.stdout)

    def test_set_clamps_through_the_library(self):
        r = run("--virtual", "set", "--shutter", "5000", "--gain", "2", "--range", "300")
        self.assertEqual(r.returncode, 0, r.stderr)
        self.assertEqual(r.stdout, "shutter speed: 3000\nADC gain:      0\nADC range:     132\n")

    def test_convert_both_ways(self):
        r = run("--virtual", "convert", "--shutter", "1000")
        self.assertEqual(r.stdout, "shutter speed 1000 = 912.000 ms exposure at 1 MHz\n")
        r = run("--virtual", "convert", "--ms", "912")
        self.assertEqual(r.stdout, "912.000 ms exposure = shutter speed 1726 at 1 MHz\n")

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

    def test_csv_golden(self):
        r = run("--virtual", "read", "--shutter", "40", "-n", "2", "--format", "csv", env=SCENE)
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


class Faults(unittest.TestCase):
    def test_no_sensor(self):
        r = run("--virtual=0", "list")
        self.assertEqual(r.returncode, 1)
        self.assertIn("no sensor found (code -1)", r.stderr)

    def test_stalled_stream_reports_timeout(self):
        r = run("--virtual", "read", "--shutter", "10", env={"ORU_VSENSOR_FAULTS": "0:stall"})
        self.assertEqual(r.returncode, 1)
        self.assertIn("the sensor did not answer in time (code -9)", r.stderr)
        self.assertEqual(r.stderr.count("\n"), 1)

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
            r = run("doctor", env={"ORU_DOCTOR_SYSFS": os.path.join(d, "sys"),
                                   "ORU_DOCTOR_DEVFS": os.path.join(d, "dev")})
        self.assertEqual(r.returncode, 1)
        self.assertIn("ok    found 1 device(s) 0483:5740", r.stdout)
        self.assertIn("does not exist", r.stdout)
        self.assertIn("kernel driver 'cdc_acm' is bound to interface 0", r.stdout)
        self.assertIn("ok    bus 1 device 9: no other process holds it", r.stdout)


if __name__ == "__main__":
    unittest.main()
