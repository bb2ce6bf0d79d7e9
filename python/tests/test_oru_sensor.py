"""The Python layer on virtual sensors (drop-in USB library, no hardware)."""

import os
import subprocess
import sys
import unittest
from array import array

import oru_sensor

N_VIRTUAL = 2


class ConnectedTest(unittest.TestCase):
    def test_context_yields_sensors_with_distinct_ids(self):
        with oru_sensor.connect(virtual=N_VIRTUAL) as sensors:
            self.assertEqual(len(sensors), N_VIRTUAL)
            ids = [s.sensor_id for s in sensors]
            self.assertEqual(len(set(ids)), N_VIRTUAL)
            for text in ids:
                self.assertRegex(text, r"^.\d+-\d+-\d+-\d+-\d+$")

    def test_shutter_speed_round_trip_and_limits(self):
        with oru_sensor.connect(virtual=N_VIRTUAL) as sensors:
            s = sensors[1]
            s.shutter_speed = 250
            self.assertEqual(s.shutter_speed, 250)
            self.assertEqual(s.shutter_speed_limits, (1, 3000))
            with self.assertRaises(ValueError):
                s.shutter_speed = 0
            with self.assertRaises(ValueError):
                s.shutter_speed = 3001

    def test_adc_settings(self):
        with oru_sensor.connect(virtual=N_VIRTUAL) as sensors:
            s = sensors[0]
            self.assertEqual(s.adc, oru_sensor.AdcSettings(gain=1, range=132))
            s.adc = (0, 200)
            self.assertEqual(s.adc, (0, 200))
            with self.assertRaises(ValueError):
                s.adc = (2, 10)

    def test_exposure_conversions_keep_the_library_rounding(self):
        with oru_sensor.connect(virtual=N_VIRTUAL) as sensors:
            s = sensors[0]
            self.assertEqual(s.exposure_time(1, 1000), 912.0)
            self.assertEqual(s.exposure_time(2, 1), 0.0)
            self.assertEqual(s.shutter_speed_for(912.0, 1), 1726)
            s.shutter_speed = 1000
            self.assertEqual(s.exposure_time_ms, 912.0)

    def test_read_filter_data_shape_and_range(self):
        with oru_sensor.connect(virtual=N_VIRTUAL) as sensors:
            s = sensors[0]
            s.shutter_speed = 50
            data = s.read_filter_data(averages=3)
            self.assertEqual(len(data), 1024)
            self.assertTrue(all(0.0 <= v <= 4095.0 for v in data))
            s.shutter_speed = 100
            brighter = s.read_filter_data(averages=3)
            self.assertGreater(max(brighter), max(data))  # a longer exposure collects more light
            try:
                import numpy
                self.assertIsInstance(data, numpy.ndarray)
            except ImportError:
                self.assertIsInstance(data, array)
            with self.assertRaises(ValueError):
                s.read_filter_data(0)

    def test_optimal_shutter_speed_lands_in_window(self):
        with oru_sensor.connect(virtual=N_VIRTUAL) as sensors:
            s = sensors[0]
            best = s.optimal_shutter_speed()
            self.assertGreaterEqual(best, 1)
            self.assertEqual(s.shutter_speed, best)
            peak = max(s.read_filter_data(averages=5))
            self.assertGreaterEqual(peak, 2800.0)
            self.assertLessEqual(peak, 4095.0)
            with self.assertRaises(ValueError):
                s.optimal_shutter_speed(filters=[0, 1])

    def test_reconnect_in_one_process(self):
        for _ in range(2):
            with oru_sensor.connect(virtual=N_VIRTUAL) as sensors:
                self.assertEqual(len(sensors[0].read_filter_data(1)), 1024)


class StreamTest(unittest.TestCase):
    def test_readings_come_in_order_and_the_stream_stops_on_leaving(self):
        import datetime
        with oru_sensor.connect(virtual=N_VIRTUAL) as sensors:
            s = sensors[1]
            with s.stream(averages=4, count=5) as readings:
                got = [next(readings)]
                with self.assertRaises(oru_sensor.IllDefinedInput):
                    s.read_filter_data(1)  # refused while streaming
                got += list(readings)
            self.assertEqual(len(got), 5)
            self.assertEqual(got[0].first_sequence - got[0].dropped, 0)
            for prev, r in zip(got, got[1:]):
                self.assertEqual(r.first_sequence, prev.last_sequence + 1 + r.dropped - prev.dropped)
                self.assertEqual(r.gap_before, 0)
            for r in got:
                self.assertEqual(r.last_sequence - r.first_sequence, 3)
                self.assertEqual((len(r.values), r.averages, r.sensor_id), (1024, 4, s.sensor_id))
                self.assertIsNotNone(r.time.utcoffset())
                self.assertLess(abs(r.time - datetime.datetime.now(datetime.timezone.utc)).total_seconds(), 60)
            self.assertEqual(len(s.read_filter_data(2)), 1024)  # stopped: requests work again
            # Iterating directly, and leaving the loop early, stops it too.
            for r in s.stream(averages=1):
                break
            self.assertEqual(s.read().averages, 10)

    def test_bad_arguments_raise_before_calling(self):
        with oru_sensor.connect(virtual=N_VIRTUAL) as sensors:
            s = sensors[0]
            cases = [
                ("stream averages 0", lambda: s.stream(averages=0)),
                ("stream averages 2**31", lambda: s.stream(averages=2**31)),
                ("stream count -1", lambda: s.stream(count=-1)),
                ("stream timeout -1", lambda: s.stream(timeout=-1)),
                ("stream timeout nan", lambda: s.stream(timeout=float("nan"))),
                ("read averages 2**32", lambda: s.read_filter_data(2**32)),
                ("read averages 0", lambda: s.read_filter_data(0)),
                ("filter 0", lambda: s.optimal_shutter_speed([1, 0])),
                ("filter -5", lambda: s.optimal_shutter_speed([-5])),
                ("filter 1025", lambda: s.optimal_shutter_speed([1025])),
                ("1025 filters", lambda: s.optimal_shutter_speed([1] * 1025)),
                ("target 0", lambda: s.optimal_shutter_speed(target=0)),
                ("target INT_MIN", lambda: s.optimal_shutter_speed(target=-2**31)),
                ("virtual 0", lambda: oru_sensor.connect(virtual=0).__enter__()),
            ]
            for what, call in cases:
                with self.subTest(what), self.assertRaises(ValueError):
                    call()
            self.assertGreater(s.optimal_shutter_speed([1, 1024], target=5000), 0)


    def test_a_lost_sensor_comes_back_with_the_gap_recorded(self):
        # The fault schedule is read when the library loads: a process of its own.
        script = """if True:
            import oru_sensor
            with oru_sensor.connect(virtual=2) as sensors:
                got = list(sensors[1].stream(averages=20, count=150, recover=%s))
                print(sum(r.gap_before > 0 for r in got), got[-1].sensor_id)"""
        for faults in ("1:bulk-error", "1:unplug@2s,1:replug@3s"):
            with self.subTest(faults=faults):
                env = dict(os.environ, ORU_VSENSOR_FAULTS=faults, ORU_VSENSOR_REALTIME="1")
                back = subprocess.run([sys.executable, "-c", script % True], env=env, capture_output=True,
                                      text=True, timeout=120)
                self.assertEqual(back.stdout.split(), ["1", "A4486-3-13-40-2"], back.stderr)
                self.assertIn("is back after", back.stderr)
                lost = subprocess.run([sys.executable, "-c", script % False], env=env, capture_output=True,
                                      text=True, timeout=120)
                self.assertNotEqual(lost.returncode, 0)
                self.assertIn("FwRecvTimeout", lost.stderr)


class ThreadsTest(unittest.TestCase):
    def test_two_threads_on_two_sensors_each_get_their_own(self):
        import threading
        with oru_sensor.connect(virtual=N_VIRTUAL) as sensors:
            ids = [s.sensor_id for s in sensors]
            dark = {}
            results = {}

            def work(s, shutter, rounds):
                got = []
                for _ in range(rounds):
                    s.shutter_speed = shutter
                    got.append((s.sensor_id, sum(s.read_filter_data(2)) / 1024))
                    with s.stream(averages=3, count=2) as readings:
                        got += [(r.sensor_id, sum(r.values) / 1024) for r in readings]
                results[s.index] = got

            threads = [threading.Thread(target=work, args=(sensors[0], 5, 15)),
                       threading.Thread(target=work, args=(sensors[1], 300, 15))]
            for t in threads:
                t.start()
            for t in threads:
                t.join(120)
            self.assertFalse(any(t.is_alive() for t in threads))
            # Shutter 5 and shutter 300 lie far apart on the white scene.
            for index, (low, high) in ((0, (0, 600)), (1, (1500, 4096))):
                self.assertEqual(len(results[index]), 45)
                for sensor_id, mean in results[index]:
                    self.assertEqual(sensor_id, ids[index])
                    self.assertTrue(low <= mean <= high, (index, mean))

    def test_library_lines_go_to_logging(self):
        with self.assertLogs("oru_sensor", level="DEBUG") as logs:
            with oru_sensor.connect(virtual=N_VIRTUAL) as sensors:
                s = sensors[0]
                with self.assertRaises(oru_sensor.IllDefinedInput):  # target 0, refused by the library
                    s._call(s._lib.duGetOptimalShutterSpeed2, None, 0, 0)
        self.assertIn("DEBUG:oru_sensor:**** [oru_device_api] Total number of sensors: %d" % N_VIRTUAL, logs.output)
        self.assertIn("WARNING:oru_sensor:[oru_device_api] ORU_BASE_EXCEPTION happened: ill-defined input",
                      logs.output)


class ErrorMappingTest(unittest.TestCase):
    def test_negative_results_raise_named_exceptions(self):
        from oru_sensor._errors import check
        with self.assertRaises(oru_sensor.FwRecvTimeout) as cm:
            check(-9, "reading")
        self.assertEqual(cm.exception.code, -9)
        self.assertIn("did not answer in time", str(cm.exception))
        with self.assertRaises(oru_sensor.SensorIdIsEmpty):
            check(-8)
        with self.assertRaises(oru_sensor.OruError):
            check(-31)
        with self.assertRaises(oru_sensor.Fail):
            check(-1)
        self.assertEqual(check(5), 5)

    def test_switching_between_virtual_and_hardware_is_refused(self):
        oru_sensor._library.load(N_VIRTUAL)
        with self.assertRaises(RuntimeError):
            oru_sensor._library.load(None)
        with self.assertRaises(RuntimeError):  # the drop-in has made its sensors already
            oru_sensor._library.load(N_VIRTUAL + 1)


if __name__ == "__main__":
    unittest.main()
