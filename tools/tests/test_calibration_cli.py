"""Calibration files end to end: oru-vsensor-calibration's truth read by h5py,
a file h5py wrote read by `oru-sensor info --calibration`, and `oru-sensor
calibrate` from reading files and from standard input on virtual sensors.
Run by ctest with ORU_SENSOR_EXE and ORU_VSENSOR_CALIBRATION_EXE set."""

import os
import subprocess
import tempfile
import unittest

import h5py
import numpy as np

EXE = os.environ.get("ORU_SENSOR_EXE", "oru-sensor")
TRUTH_EXE = os.environ.get("ORU_VSENSOR_CALIBRATION_EXE", "oru-vsensor-calibration")
FIRST = "A4486-3-12-40-2"


def run(args, env=None, stdin=None):
    e = dict(os.environ, ORU_VSENSOR_REALTIME="0")
    e.update(env or {})
    return subprocess.run(args, capture_output=True, text=True, env=e, input=stdin, timeout=120)


class Calibration(unittest.TestCase):
    def setUp(self):
        self.tmp = self.enterContext(tempfile.TemporaryDirectory())

    def path(self, name):
        return os.path.join(self.tmp, name)

    def ok(self, args, env=None, stdin=None):
        r = run(args, env, stdin)
        self.assertEqual(r.returncode, 0, r.stderr)
        return r.stdout

    def truth(self, *args):
        out = self.path("truth.h5")
        self.ok([TRUTH_EXE, *args, "-o", out])
        with h5py.File(out, "r") as f:
            return f["response"][:], dict(f.attrs)

    def test_virtual_truth_is_an_open_hdf5_file(self):
        out = self.path("truth.h5")
        self.ok([TRUTH_EXE, "--index", "1", "-o", out])
        with h5py.File(out, "r") as f:
            self.assertEqual(f["response"].shape, (1024, 651))
            self.assertEqual(f["response"].dtype, np.float64)
            self.assertEqual(list(f["wavelength_nm"][[0, -1]]), [350.0, 1000.0])
            self.assertEqual((f["dark"].shape, f["valid_filters"].shape), ((1024,), (1024,)))
            self.assertEqual({k: f.attrs[k] for k in ("sensor_id", "source", "adc_gain", "adc_range", "master_clock")},
                             {"sensor_id": "A4486-3-13-40-2", "source": "virtual", "adc_gain": 1, "adc_range": 132,
                              "master_clock": 1})
            self.assertRegex(f.attrs["created"], r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ$")
            r = f["response"][:]
        self.assertFalse(r[1011:1014].any())  # background filters
        self.assertTrue((r[:1011].max(axis=1) > 0).all())
        by_id, _ = self.truth("--sensor-id", "A4486-3-13-40-2")
        self.assertTrue(np.array_equal(r, by_id))
        at_gain_0, attrs = self.truth("--sensor-id", "A4486-3-13-40-2", "--gain", "0")
        self.assertTrue(np.allclose(r, 2 * at_gain_0))
        self.assertEqual(attrs["adc_gain"], 0)
        for bad in (["--index", "1", "--sensor-id", FIRST], ["--index", "x"], ["--gain", "3"], []):
            with self.subTest(bad=bad):
                self.assertEqual(run([TRUTH_EXE, *bad, "-o", out] if bad else [TRUTH_EXE]).returncode, 2)

    def test_file_written_by_h5py_shows_in_info(self):
        cal = self.path("imported.h5")
        nm = np.arange(400.0, 801.0, 2.0)
        centres = np.linspace(450, 750, 1024)
        with h5py.File(cal, "w") as f:
            f["wavelength_nm"] = nm
            f["response"] = np.exp(-0.5 * ((nm[None, :] - centres[:, None]) / 20.0) ** 2).astype(np.float32)
            f.attrs["sensor_id"] = np.bytes_(FIRST)  # fixed-length text, as MATLAB writes it
            f.attrs["created"] = "2026-01-02T03:04:05Z"
            f.attrs["source"] = "imported"
            f.attrs["master_clock"] = np.int64(1)
            f.attrs["adc_gain"] = np.int16(1)
            f.attrs["adc_range"] = np.uint8(132)
        lines = self.ok([EXE, "info", "--calibration", cal]).splitlines()
        self.assertIn("sensor ID:      " + FIRST, lines)
        self.assertIn("wavelengths:    201, 400.0..800.0 nm", lines)
        self.assertIn("dark:           no", lines)
        row = next(line.split() for line in lines if line.startswith("512 "))
        half = 20.0 * np.sqrt(2 * np.log(2))
        self.assertAlmostEqual(float(row[1]), centres[512], delta=0.2)
        self.assertAlmostEqual(float(row[4]), 2 * half, delta=0.3)
        with h5py.File(cal, "a") as f:
            del f["response"]
        r = run([EXE, "info", "--calibration", cal])
        self.assertEqual(r.returncode, 1)
        self.assertEqual(r.stderr, "oru-sensor: %s: it has no dataset response\n" % cal)

    def test_sweep_of_reading_files_gives_the_true_response(self):
        steps = os.path.join(self.tmp, "steps")
        os.makedirs(steps)
        rows = ["wavelength_nm,power,reading"]
        for nm, fmt in ((500, "csv"), (600, "jsonl"), (700, "csv")):
            name = "s%d.%s" % (nm, fmt)
            self.ok([EXE, "--virtual", "read", "--shutter", "800", "--repeat", "2", "--format", fmt, "-o",
                     os.path.join(steps, name)], env={"ORU_VSENSOR_SCENE": "led:%d,fwhm=4" % nm})
            rows.append("%d,2.5,steps/%s" % (nm, name))
        dark = self.path("dark.csv")
        self.ok([EXE, "--virtual", "read", "--shutter", "800", "-o", dark], env={"ORU_VSENSOR_SCENE": "dark"})
        with open(self.path("sweep.csv"), "w") as f:
            f.write("\n".join(rows) + "\n")
        out = self.path("cal.h5")
        said = self.ok([EXE, "calibrate", "--sweep", self.path("sweep.csv"), "--dark", dark, "--grid", "500:700:100",
                        "-o", out])
        self.assertIn("3 steps, 3 wavelengths", said)
        truth, _ = self.truth()
        line = np.exp(-0.5 * ((np.arange(350, 1001)[None, :] - np.array([[500], [600], [700]])) / (4 / 2.3548)) ** 2)
        expected = truth @ line.T / 2.5  # the truth file is for ADC gain 1; per the stated power 2.5
        with h5py.File(out, "r") as f:
            got = f["response"][:]
            self.assertEqual((f.attrs["source"], f.attrs["sensor_id"]), ("sweep", FIRST))
            self.assertTrue(np.allclose(f["dark"][:], 64, atol=1))
        bright = expected > 0.2 * expected.max()
        self.assertGreater(bright.sum(), 100)
        ratio = got[bright] / expected[bright]
        self.assertAlmostEqual(float(np.median(ratio)), 1.0, delta=0.02)
        bad = self.path("bad.csv")
        with open(bad, "w") as f:
            f.write("wavelength_nm,power\n500,1\n")
        r = run([EXE, "calibrate", "--sweep", bad, "-o", out])
        self.assertEqual((r.returncode, r.stderr),
                         (1, "oru-sensor: %s: needs the columns wavelength_nm, power and reading\n" % bad))

    def test_record_takes_a_reading_per_line(self):
        env = {"ORU_VSENSOR_SCENE": "halogen"}
        free = self.path("free.h5")
        self.ok([EXE, "--virtual", "calibrate", "--record", "-o", free, "--grid", "500:600:100", "-n", "20"], env=env,
                stdin="500 1\n600 2\n\n")
        listed = self.path("listed.h5")
        self.ok([EXE, "--virtual", "calibrate", "--record", "--wavelengths", "500:600:100", "-o", listed, "--grid",
                 "500:600:100", "-n", "20"], env=env, stdin="\n2\n")
        for path in (free, listed):
            with h5py.File(path, "r") as f:
                r = f["response"][:]
                self.assertEqual(f.attrs["adc_range"], 132)
            bright = r[:, 0] > 0.5 * r[:, 0].max()
            # The same light read twice, the second time stated at twice the power.
            self.assertAlmostEqual(float(np.median(r[bright, 1] / r[bright, 0])), 0.5, delta=0.01)
        r = run([EXE, "--virtual", "calibrate", "--record", "-o", free], env=env, stdin="green\n")
        self.assertEqual(r.returncode, 1)
        self.assertIn("not a step: 'green'", r.stderr)


if __name__ == "__main__":
    unittest.main()
