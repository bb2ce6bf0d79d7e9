"""Measurement modes, darks and references, reading files and spectra in
Python: wired to the library's functions (their arithmetic is tested in C)."""

import json
import os
import subprocess
import sys
import tempfile
import unittest

import oru_sensor
from oru_sensor import _measuring

CALIBRATION_EXE = os.environ.get("ORU_VSENSOR_CALIBRATION_EXE")


def refusal_text(refusal):
    return _measuring.library().duMeasureRefusalText(refusal).decode()


class OnTheWhiteScene(unittest.TestCase):
    """The steady, noise-free test scene: every reading alike."""

    def setUp(self):
        self.s, self.other = self.enterContext(oru_sensor.connect(virtual=2))
        self.s.shutter_speed = 100
        self.tmp = self.enterContext(tempfile.TemporaryDirectory())

    def test_a_dark_or_reference_that_does_not_fit_is_refused_in_the_library_s_words(self):
        s = self.s
        dark = s.take_dark(2)
        s.adc = (0, 132)
        other_adc_reference = s.take_reference(2)
        s.adc = (1, 132)
        for mode, kwargs, refusal in (
                ("dark", dict(dark=s.read(2, mode="dark", dark=dark)), None),  # not a raw reading
                ("dark", dict(dark=other_adc_reference), 4),  # DU_REFUSAL_DARK_SETTINGS
                ("transmittance", dict(dark=dark, reference=other_adc_reference), 5),  # _REFERENCE_SETTINGS
                ("absorbance", dict(dark=dark), 3)):  # DU_REFUSAL_NEEDS_REFERENCE
            for call in (lambda: s.read(2, mode=mode, **kwargs), lambda: s.stream(mode=mode, **kwargs)):
                with self.subTest(mode=mode, refusal=refusal):
                    with self.assertRaises(ValueError if refusal is None else oru_sensor.MeasurementRefused) as cm:
                        call()
                    if refusal is not None:
                        self.assertEqual((str(cm.exception), cm.exception.refusal), (refusal_text(refusal), refusal))
        s.shutter_speed = 200  # the white scene saturates every filter
        with self.assertRaises(oru_sensor.MeasurementRefused) as cm:
            s.take_reference(1)
        self.assertEqual(str(cm.exception), refusal_text(7))  # DU_REFUSAL_REFERENCE_SATURATED
        with self.assertRaises(ValueError):
            s.read(1, mode="percent")
        s.shutter_speed = 100
        self.assertEqual(s.read(2, dark=other_adc_reference).mode, "raw")  # raw mode subtracts nothing

    def test_readings_carry_mode_exposure_and_identity_and_files_round_trip(self):
        s = self.s
        dark, reference = s.take_dark(2), s.take_reference(3)
        measured = s.read(2, mode="dark", dark=dark, reference=reference)
        with s.stream(averages=2, count=2, mode="dark", dark=dark) as readings:
            streamed = list(readings)
        for r in [measured] + streamed:
            self.assertEqual((r.mode, r.unit, r.dark, r.reference, r.dark_source, r.exposure_us, r.adc),
                             ("dark", "DN", dark, None, "stored", 91360.0, (1, 132)))
            self.assertEqual((min(r.values), max(r.values), max(r.raw)), (0.0, 0.0, 2224.0))
        self.assertEqual((dark.kind, reference.kind, measured.kind), ("dark", "reference", "readings"))
        again = streamed[0].measure("transmittance", dark=dark, reference=reference)  # from its raw values
        self.assertEqual((again.mode, again.unit, again.reference, again.invalid, streamed[0].mode),
                         ("transmittance", "%", reference, 1024, "dark"))  # the white scene: reference = dark
        for suffix in (".csv", ".jsonl"):
            with self.subTest(suffix=suffix):
                path, measured_path = (os.path.join(self.tmp, name + suffix) for name in ("ref", "measured"))
                reference.save(path)
                loaded = oru_sensor.load_reading(path)
                self.assertEqual((list(loaded.values), loaded.shutter_speed, loaded.adc, loaded.averages,
                                  loaded.sensor_id, loaded.mode),
                                 (list(reference.values), 100, (1, 132), 3, reference.sensor_id, "raw"))
                self.assertLess(abs(loaded.realtime_ns - reference.realtime_ns), 1e6)  # files keep ms
                self.assertEqual(s.read(2, mode="transmittance", dark=dark, reference=loaded).reference, loaded)
                measured.save(measured_path)
                with open(measured_path) as f:
                    head = f.read(1000)
                self.assertIn("dark" if suffix == ".jsonl" else "dark=", head)
                self.assertIn(oru_sensor.__version__, head)
                with self.assertRaises(oru_sensor.IllDefinedInput) as cm:  # a dark-mode file is no dark
                    oru_sensor.load_reading(measured_path)
                self.assertIn("mode dark", str(cm.exception))
        # One file, two sensors: each found by its ID; one mode per file.
        both, path = [dark, self.other.take_dark(1)], os.path.join(self.tmp, "both.jsonl")
        oru_sensor.save_readings(path, both)
        self.assertEqual(oru_sensor.load_reading(path, self.other.sensor_id).averages, 1)
        for bad in ([dark, measured], []):
            with self.subTest(readings=len(bad)), self.assertRaises(ValueError):
                oru_sensor.save_readings(path, bad)
        with self.assertRaises(ValueError):
            measured.save(os.path.join(self.tmp, "measured.txt"))

    @unittest.skipUnless(CALIBRATION_EXE, "oru-vsensor-calibration is not built")
    def test_reconstruction_refusals_come_from_the_library(self):
        path = os.path.join(self.tmp, "cal.h5")
        subprocess.run([CALIBRATION_EXE, "--index", "1", "-o", path], check=True, capture_output=True)
        cal, values = oru_sensor.Calibration(path), self.s.read(2, mode="dark").values
        for kwargs, code in ((dict(algorithm="NNLS-SC"), -2), (dict(algorithm="nonsense"), -2),
                             (dict(range=(200, 300)), -3), (dict(step=0.5), -3),
                             (dict(algorithm="tikhonov-gcv", sensor_id=self.s.sensor_id), -4)):
            with self.subTest(**kwargs), self.assertRaises(oru_sensor.ReconstructionError) as cm:
                cal.reconstruct(values, 100, **kwargs)
            self.assertTrue(str(cm.exception) and cm.exception.code in (code, 0), (cm.exception.code, cm.exception))
        with self.assertRaises(ValueError):  # spectra are of dark-corrected DN
            self.s.read(2, mode="transmittance", reference=self.s.take_reference(2), calibration=cal)
        self.assertIn("TNNLS-GCV", cal.algorithms())


# A process of its own: the virtual sensors' scenes are read as the library
# loads. Sensor 0 sees nothing, sensor 1 a green LED.
SCENE_SCRIPT = """if True:
    import json, sys, numpy, oru_sensor
    out = {"version": oru_sensor.__version__}  # before connecting: must not bind the library to USB
    with oru_sensor.connect(virtual=2) as (blocked, lit):
        lit.shutter_speed = lit.optimal_shutter_speed()
        blocked.shutter_speed = lit.shutter_speed
        dark, reference = blocked.take_dark(10), lit.take_reference(10)
        lit_filters = reference.raw - dark.raw > 1000
        for mode in oru_sensor.MODES:
            out[mode] = float(numpy.mean(lit.read(10, mode=mode, dark=dark, reference=reference).values[lit_filters]))
        r = lit.read(10, mode="dark", dark=dark)
        out["dark"] = float(numpy.max(numpy.abs(r.values - (r.raw - dark.raw))))  # of its own raw values
        rate = lit.read(10, mode="rate", dark=dark).values[lit_filters]
        lit.shutter_speed = blocked.shutter_speed = lit.shutter_speed // 2
        half = lit.read(10, mode="rate", dark=blocked.take_dark(10)).values[lit_filters]
        out["rate ratio"] = float(numpy.mean(half) / numpy.mean(rate))
        cal = oru_sensor.Calibration(sys.argv[1])
        for algorithm in ("TNNLS-LCurve", "NNLS-L1"):
            r = lit.read(10, calibration=cal, algorithm=algorithm)
            out[algorithm] = [r.wavelengths[int(numpy.argmax(r.spectrum))], r.algorithm, r.weight, r.residual,
                              cal.reconstructor(algorithm) is cal.reconstructor(algorithm)]
        spectrum = cal.reconstruct(lit.read(10, mode="dark").values, lit.shutter_speed, algorithm="NNLS-L1",
                                   range=(450, 650), step=2, sensor_id=lit.sensor_id)
        out["ranged"] = [spectrum.wavelengths[0], spectrum.wavelengths[-1], len(spectrum.values)]
    print(json.dumps(out))"""


@unittest.skipUnless(CALIBRATION_EXE, "oru-vsensor-calibration is not built")
class OnSpectralScenes(unittest.TestCase):
    def test_modes_and_spectra_of_a_green_led(self):
        with tempfile.TemporaryDirectory() as tmp:
            cal = os.path.join(tmp, "cal.h5")
            subprocess.run([CALIBRATION_EXE, "--index", "1", "-o", cal], check=True, capture_output=True)
            child = subprocess.run([sys.executable, "-c", SCENE_SCRIPT, cal], capture_output=True, text=True,
                                   timeout=120, env=dict(os.environ, ORU_VSENSOR_SCENE="0=dark;1=led:529",
                                            ORU_VSENSOR_BRIGHTNESS="30"))  # short exposures: a fast test
        self.assertEqual(child.returncode, 0, child.stderr)
        out = json.loads(child.stdout)
        self.assertRegex(out["version"], r"^\d+\.\d+\.\d+$")
        # Means over the lit filters, of readings with shot noise.
        for mode, expected, tolerance in (("dark", 0, 1e-9), ("transmittance", 100, 1),
                                          ("reflectance", 100, 1), ("absorbance", 0, 0.005), ("rate ratio", 1, 0.01)):
            with self.subTest(mode=mode):
                self.assertLessEqual(abs(out[mode] - expected), tolerance, out)
        for algorithm in ("TNNLS-LCurve", "NNLS-L1"):
            with self.subTest(algorithm=algorithm):
                peak, name, weight, residual, cached = out[algorithm]
                self.assertLessEqual(abs(peak - 529), 1.5)
                self.assertEqual((name, cached), (algorithm, True))
                self.assertTrue(weight > 0 and 0 <= residual < 50, (weight, residual))
        self.assertEqual(out["ranged"], [450, 650, 101])


if __name__ == "__main__":
    unittest.main()
