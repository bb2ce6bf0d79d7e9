"""Measuring with oru-sensor on virtual sensors: dark and reference files,
the modes of `read` in every format, and spectra from the virtual sensor's
true calibration. The numbers are the library's (its own tests check the
formulas); these check that the command line wires them up. Run by ctest
with the system's Python (pandas, h5py), ORU_SENSOR_EXE and
ORU_VSENSOR_CALIBRATION_EXE."""

import io
import json
import os
import re
import subprocess
import tempfile
import unittest
import xml.etree.ElementTree as ET

import numpy as np
import pandas as pd

EXE = os.environ.get("ORU_SENSOR_EXE", "oru-sensor")
TRUTH_EXE = os.environ.get("ORU_VSENSOR_CALIBRATION_EXE", "oru-vsensor-calibration")
FIRST, SECOND = "A4486-3-12-40-2", "A4486-3-13-40-2"
SVG = "{http://www.w3.org/2000/svg}"
FILTERS = ["f%d" % i for i in range(1024)]
# A steady lamp with shot noise and 2 DN of read noise.
LAMP = {"ORU_VSENSOR_SCENE": "halogen", "ORU_VSENSOR_NOISE": "2"}
DARK = {"ORU_VSENSOR_SCENE": "dark", "ORU_VSENSOR_NOISE": "2"}


def run(*args, env=None):
    e = dict(os.environ, ORU_VSENSOR_REALTIME="0", ORU_VSENSOR_SEED="7")
    e.update(env or {})
    return subprocess.run([EXE] + list(args), capture_output=True, text=True, env=e, timeout=120)


def comments(path):
    with open(path) as f:
        return [line.rstrip("\n") for line in f if line.startswith("#")]


class MeasuringTest(unittest.TestCase):
    def setUp(self):
        self.tmp = self.enterContext(tempfile.TemporaryDirectory())

    def path(self, name):
        return os.path.join(self.tmp, name)

    def ok(self, *args, env=None):
        r = run(*args, env=env)
        self.assertEqual(r.returncode, 0, r.stderr)
        return r.stdout

    def refused(self, args, env, pattern):
        """A run that ends with exit status 1 and one line matching pattern."""
        r = run(*args, env=env)
        self.assertEqual(r.returncode, 1, r.stderr)
        self.assertRegex(r.stderr, r"^oru-sensor: [^\n]*" + pattern + r"[^\n]*\n$")


class DarkAndReference(MeasuringTest):
    def take(self, kind, name, env, *args):
        out = self.path(name)
        self.ok("--virtual", kind, "--shutter", "20", "-n", "20", "-o", out, *args, env=env)
        return out

    def test_transmittance_of_the_reference_scene_is_100_percent(self):
        dark = self.take("dark", "dark.csv", DARK)
        ref = self.take("reference", "ref.jsonl", LAMP)  # either format is a stored reading
        with open(ref) as f:
            header, row = (json.loads(line) for line in f)
        self.assertEqual((header["kind"], header["mode"], row["sensor_id"], row["averages"]),
                         ("reference", "raw", FIRST, 20))
        out = self.path("t.csv")
        self.ok("--virtual", "read", "--shutter", "20", "-n", "20", "--repeat", "3", "--mode", "transmittance",
                "--dark", dark, "--reference", ref, "-o", out, env=dict(LAMP, ORU_VSENSOR_SEED="8"))
        lines = comments(out)
        self.assertIn("# mode: transmittance", lines)
        self.assertIn("# unit: %", lines)
        sensor = next(line for line in lines if line.startswith("# sensor: "))
        self.assertRegex(sensor, r"^# sensor: %s master_clock=1 adc_gain=1 adc_range=132 "
                         r"dark=\S+Z/20 reference=\S+Z/20$" % FIRST)
        table = pd.read_csv(out, comment="#")
        self.assertEqual(len(table), 3)
        self.assertEqual(set(table["exposure_us"]), {18400.0})  # 20 x 912 + 160 at 1 MHz
        lit = np.array(row["values"][:1011]) > 1000  # well above the dark's 64 DN, below 4095
        self.assertGreater(lit.sum(), 200)
        percent = table[FILTERS[:1011]].to_numpy()[:, lit]
        self.assertAlmostEqual(float(np.median(percent)), 100.0, delta=0.2)
        # Shot noise of 1000 DN and more, over 20 frames: about 0.7 % at most.
        self.assertLess(float(np.std(percent)), 1.0)

    def test_rate_at_two_shutter_speeds_agrees(self):
        rates = []
        for shutter in ("15", "30"):
            out = self.path("rate%s.csv" % shutter)
            self.ok("--virtual", "read", "--shutter", shutter, "-n", "20", "--mode", "rate", "-o", out, env=LAMP)
            self.assertIn("# unit: DN/ms", comments(out))
            rates.append(pd.read_csv(out, comment="#")[FILTERS[:1011]].to_numpy()[0])
        lit = rates[1] > 5  # DN per ms
        self.assertGreater(lit.sum(), 200)
        ratio = rates[1][lit] / rates[0][lit]
        self.assertAlmostEqual(float(np.median(ratio)), 1.0, delta=0.005)

    def test_what_does_not_fit_is_refused_with_one_line(self):
        dark = self.take("dark", "dark.csv", DARK)
        ref = self.take("reference", "ref.csv", LAMP)
        bright = self.path("bright.csv")
        for args, env, pattern in (
                (["read", "--shutter", "50", "--dark", dark], DARK,
                 r"sensor 0 \(%s\): the dark was taken at another shutter speed" % FIRST),
                (["read", "--shutter", "20", "--mode", "absorbance", "--dark", dark], LAMP,
                 r"this mode needs a reference reading"),
                (["read", "--mode", "bogus"], LAMP, r"unknown mode bogus"),
                (["--virtual=2", "--sensor", "1", "read", "--shutter", "20", "--dark", dark], DARK,
                 r"no reading of sensor %s" % SECOND),
                (["read", "--dark", self.path("missing.csv")], DARK, r"missing\.csv: No such file"),
                (["reference", "--shutter", "100", "-o", bright], LAMP,
                 r"the reference has \d+ saturated filters and is not saved")):
            with self.subTest(args=args):
                self.refused(["--virtual"] + args if not args[0].startswith("--virtual") else args, env, pattern)
        self.assertFalse(os.path.exists(bright))
        r = run("--virtual", "dark", "-o", dark, env=DARK)
        self.assertEqual((r.returncode, r.stderr),
                         (1, "oru-sensor: %s exists; --force replaces it, --append adds to it\n" % dark))
        self.ok("--virtual", "read", "--shutter", "20", "--mode", "reflectance", "--dark", dark, "--reference", ref,
                env=LAMP)

    def test_every_format_carries_the_metadata_and_each_sensor_its_own_dark(self):
        # One dark file holding both sensors; each sensor's readings take its own.
        dark = self.path("dark2.csv")
        self.ok("--virtual=2", "--sensor", "all", "dark", "--shutter", "100", "-o", dark, env=DARK)
        base = ["--virtual=2", "--sensor", "all", "read", "--shutter", "100", "-n", "4", "--repeat", "2", "--dark",
                dark]
        for fmt in ("jsonl", "json", "csv-columns", "csv", "table"):
            with self.subTest(fmt=fmt):
                out = self.ok(*base, "--format", fmt, env=DARK)
                if fmt == "jsonl":
                    header, *rows = (json.loads(line) for line in out.splitlines())
                elif fmt == "json":
                    header = json.loads(out)
                    rows = header.pop("measurements")
                    self.assertEqual(len({row["time_s"] for row in rows}) >= 1, True)
                if fmt in ("jsonl", "json"):
                    self.assertEqual((header["mode"], [s["sensor_id"] for s in header["sensors"]]),
                                     ("dark", [FIRST, SECOND]))
                    self.assertRegex(header["sensors"][1]["dark"]["taken"], r"Z$")
                    self.assertRegex(header["library_version"], r"^\d+\.\d+\.\d+$")
                    for row in rows:
                        self.assertLessEqual({"time", "first_sequence", "last_sequence", "shutter_speed",
                                              "exposure_us", "averages", "saturated", "gap"}, set(row))
                    values = np.array([row["values"][:1011] for row in rows])
                elif fmt == "csv-columns":
                    self.assertIn("# mode: dark", out)
                    self.assertEqual(len(re.findall(r"^# m\d: time=\S+[+-]\d\d:\d\d sensor_id=\S+ first_sequence=\d+ "
                                                    r"last_sequence=\d+ shutter_speed=100 exposure_us=91360\.000 "
                                                    r"averages=4 saturated=0 gap=0$", out, re.M)), 4)
                    table = pd.read_csv(io.StringIO(out), comment="#")
                    self.assertEqual(list(table.columns), ["filter", "m0", "m1", "m2", "m3"])
                    values = table[["m0", "m1", "m2", "m3"]].to_numpy()[:1011].T
                elif fmt == "csv":
                    table = pd.read_csv(io.StringIO(out), comment="#")
                    self.assertEqual(sorted(table["sensor_id"]), [FIRST, FIRST, SECOND, SECOND])
                    values = table[FILTERS[:1011]].to_numpy()
                else:
                    self.assertEqual(out.splitlines()[0].split()[4:7], ["min", "DN", "mean"])
                    values = np.array([[float(line.split()[5])] for line in out.splitlines()[1:]])
                # Dark minus dark: noise around 0, negative values kept.
                self.assertEqual(len(values), 4)
                self.assertLess(float(np.abs(values.mean())), 0.5)
                if fmt != "table":
                    self.assertLess(float(values.min()), 0)


class Spectra(MeasuringTest):
    def setUp(self):
        super().setUp()
        self.cal = self.path("cal.h5")
        r = subprocess.run([TRUTH_EXE, "-o", self.cal], capture_output=True, text=True, timeout=60)
        self.assertEqual(r.returncode, 0, r.stderr)

    def test_an_led_shows_one_peak_at_its_wavelength_on_a_wavelength_axis(self):
        # As it comes (shutter speed 1: about 10 DN of light), and well exposed with noise.
        for args, noise in (([], "0"), (["--auto-exposure"], "2")):
            with self.subTest(args=args):
                out, svg = self.path("s%s.csv" % noise), self.path("s%s.svg" % noise)
                self.ok("--virtual", "read", *args, "--spectrum", self.cal, "--plot", svg, "-o", out,
                        env={"ORU_VSENSOR_SCENE": "led:529", "ORU_VSENSOR_NOISE": noise})
                table = pd.read_csv(out, comment="#")
                nm = [c for c in table.columns if c.startswith("nm_")]
                spectrum = table[nm].to_numpy()[0]
                peak = float(nm[int(np.argmax(spectrum))][3:])
                self.assertAlmostEqual(peak, 529.0, delta=1.5)
                # One peak: no other local maximum reaches a fifth of its height.
                s = spectrum
                tops = [i for i in range(1, len(s) - 1) if s[i] >= s[i - 1] and s[i] > s[i + 1] and s[i] > 0.2 * s.max()]
                self.assertEqual(len(tops), 1, [nm[i] for i in tops])
        lines = comments(out)
        self.assertIn("# algorithm: TNNLS-LCurve", lines)
        self.assertIn("# calibration: " + self.cal, lines)
        self.assertEqual((nm[0], nm[-1], len(nm)), ("nm_350", "nm_1000", 651))
        self.assertGreater(table["weight"][0], 0)
        self.assertGreater(table["filters_used"][0], 900)
        root = ET.parse(svg).getroot()
        texts = {t.text for t in root.iter(SVG + "text")}
        self.assertIn("Wavelength (nm)", texts)
        self.assertLessEqual({"400", "600", "800", "1000"}, texts)
        self.assertEqual([len(p.get("points").split()) for p in root.iter(SVG + "polyline")], [651])

    def test_range_step_and_json_lines(self):
        out = self.ok("--virtual", "read", "--spectrum", self.cal, "--algorithm", "NNLS-L1", "--range", "400:700",
                      "--step", "2", "--format", "jsonl", env={"ORU_VSENSOR_SCENE": "led:610"})
        header, row = (json.loads(line) for line in out.splitlines())
        self.assertEqual((header["algorithm"], header["wavelengths_nm"][0], header["wavelengths_nm"][-1],
                          len(header["wavelengths_nm"])), ("NNLS-L1", 400, 700, 151))
        self.assertEqual(len(row["spectrum"]), 151)
        self.assertNotIn("values", row)
        self.assertAlmostEqual(header["wavelengths_nm"][int(np.argmax(row["spectrum"]))], 610, delta=2)
        self.assertLessEqual({"weight", "residual_dn", "filters_used", "exposure_us"}, set(row))

    def test_bad_input_gives_one_line(self):
        other = self.path("other.h5")
        self.assertEqual(subprocess.run([TRUTH_EXE, "--index", "1", "-o", other]).returncode, 0)
        lamp = {"ORU_VSENSOR_SCENE": "halogen"}
        for args, env, pattern in (
                (["--spectrum", other], lamp, r"other\.h5 is the calibration of sensor %s, not of %s \(--force" %
                 (SECOND, FIRST)),
                (["--spectrum", self.cal, "--range", "300:700"], lamp, r"cal\.h5: .*range"),
                (["--spectrum", self.cal, "--range", "700"], lamp, r"--range needs START:END"),
                (["--spectrum", self.cal, "--algorithm", "NNLS-SC"], lamp, r"not provided"),
                (["--spectrum", self.cal, "--mode", "transmittance"], lamp, r"this mode needs a reference"),
                (["--spectrum", self.cal], {"ORU_VSENSOR_PATTERN": "constant:4095"}, r"sensor 0 .*: .*filter")):
            with self.subTest(args=args):
                self.refused(["--virtual", "read"] + args, env, pattern)
        self.ok("--virtual", "read", "--spectrum", other, "--force", env=lamp)
        at_gain_0 = self.path("gain0.h5")
        self.assertEqual(subprocess.run([TRUTH_EXE, "--gain", "0", "-o", at_gain_0]).returncode, 0)
        r = run("--virtual", "read", "--repeat", "2", "--spectrum", at_gain_0, env=lamp)
        self.assertEqual((r.returncode, r.stderr.count("\n")), (0, 1), r.stderr)
        self.assertIn("warning: %s: the calibration was made at another master clock, ADC gain" % FIRST, r.stderr)
        # Each sensor takes its own calibration.
        out = self.ok("--virtual=2", "--sensor", "all", "read", "--spectrum", other, "--spectrum", self.cal,
                      "--format", "table", env=lamp)
        self.assertEqual(out.splitlines()[0].split()[-2:], ["nm", "sat"])
        self.assertEqual(len(out.splitlines()), 3)


if __name__ == "__main__":
    unittest.main()
