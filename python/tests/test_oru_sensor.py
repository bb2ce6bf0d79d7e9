"""The Python layer on virtual sensors (drop-in USB library, no hardware)."""

import datetime
import gc
import os
import signal
import subprocess
import sys
import threading
import time
import unittest
from array import array
from unittest import mock

import oru_sensor
from oru_sensor import _library, _sensor, _stream
from oru_sensor._errors import check

N_VIRTUAL = 2
IDS = ["A4486-3-12-40-2", "A4486-3-13-40-2"]


class Connected(unittest.TestCase):
    """Each test on a connection of its own to both virtual sensors."""

    def setUp(self):
        self.sensors = self.enterContext(oru_sensor.connect(virtual=N_VIRTUAL))
        self.s = self.sensors[0]

    def test_distinct_ids_and_settings_round_trip(self):
        self.assertEqual([s.sensor_id for s in self.sensors], IDS)
        s = self.s
        self.assertEqual(s.adc, oru_sensor.AdcSettings(gain=1, range=132))
        s.adc = (0, 200)
        s.shutter_speed = 250
        self.assertEqual((s.adc, s.shutter_speed, s.shutter_speed_limits), ((0, 200), 250, (1, 3000)))

    def test_bad_arguments_raise_before_calling_good_ones_work(self):
        s, nan = self.s, float("nan")
        for i, call in enumerate([
                lambda: s.stream(averages=0), lambda: s.stream(averages=2**31), lambda: s.stream(count=-1),
                lambda: s.stream(timeout=-1), lambda: s.stream(timeout=nan), lambda: s.read_filter_data(2**32),
                lambda: s.read_filter_data(0), lambda: s.optimal_shutter_speed([1, 0]),
                lambda: s.optimal_shutter_speed([-5]), lambda: s.optimal_shutter_speed([1025]),
                lambda: s.optimal_shutter_speed([1] * 1025), lambda: s.optimal_shutter_speed(target=0),
                lambda: s.optimal_shutter_speed(target=-2**31), lambda: setattr(s, "shutter_speed", 0),
                lambda: setattr(s, "shutter_speed", 3001), lambda: setattr(s, "adc", (2, 10)),
                lambda: oru_sensor.connect(virtual=0).__enter__()]):
            with self.subTest(case=i), self.assertRaises(ValueError):
                call()
        self.assertGreater(s.optimal_shutter_speed([1, 1024], target=5000), 0)
        best = s.optimal_shutter_speed()  # the library's filters and target: it stays there, peak in the window
        self.assertEqual(s.shutter_speed, best)
        self.assertTrue(2800.0 <= max(s.read_filter_data(averages=5)) <= 4095.0)

    def test_exposure_is_exact_and_the_published_conversions_keep_their_rounding(self):
        s = self.s
        self.assertEqual((s.exposure_time(1, 1000), s.exposure_time(2, 1), s.shutter_speed_for(912.0, 1)),
                         (912.0, 0.0, 1726))
        for shutter, exact_ms, published_ms in ((1, 1.072, 1.0), (2, 1.984, 1.0), (1000, 912.16, 912.0)):
            with self.subTest(shutter=shutter):
                s.shutter_speed = shutter
                self.assertEqual((s.exposure_time_ms, s.exposure_time(1)), (exact_ms, published_ms))
        s.shutter_speed = 2
        self.assertEqual(s.read(1).exposure_us, 1984.0)

    def test_read_filter_data_shape_and_range(self):
        self.s.shutter_speed = 50
        data = self.s.read_filter_data(averages=3)
        self.assertIsInstance(data, array if _stream._np is None else _stream._np.ndarray)
        self.assertEqual(len(data), 1024)
        self.assertTrue(all(0.0 <= v <= 4095.0 for v in data))
        # A long request comes in slices of the library's requests: the same
        # values on the steady virtual scene, also without numpy.
        for np in {_stream._np, None}:
            with self.subTest(numpy=np is not None), mock.patch.object(_stream, "_np", np), \
                    mock.patch.object(_sensor, "REQUEST_SLICE_SECONDS", 0.004):
                sliced = self.s.read_filter_data(averages=5)  # slices of 2, 2 and 1 frames
                self.assertIsInstance(sliced, array if np is None else np.ndarray)
                self.assertEqual(list(sliced), list(data))

    def test_values_are_copied_whole_into_the_array_type(self):
        buf = (_stream.ctypes.c_double * 1024)(*range(1024))
        for np in {_stream._np, None}:
            with self.subTest(numpy=np is not None), mock.patch.object(_stream, "_np", np):
                values = _stream.values_of(buf)
                buf[5] = -1.0  # a copy: the next read may reuse the buffer
                self.assertEqual((values[5], values[1023], len(values)), (5.0, 1023.0, 1024))
                buf[5] = 5.0
                halves = _stream.mean_of_slices([(3, _stream.values_of(buf)), (1, array("d", [4095.0] * 1024))])
                self.assertEqual((halves[0], halves[1023]), (1023.75, 1791.0))
                # Saturated: at 4095 in every frame averaged, whatever the array type.
                self.assertEqual(_library.count_saturated(halves), 0)
                self.assertEqual(_library.count_saturated(array("d", [4095.0] * 3 + [4094.9] * 1021)), 3)

    def test_readings_carry_the_filters_any_frame_saturated(self):
        s = self.s
        s.shutter_speed = 250  # the white scene clips every filter, in a short wait
        readings = {"request": lambda: s.read(averages=2), "stream": lambda: next(iter(s.stream(averages=2)))}
        for how, take in readings.items():
            with self.subTest(how=how):
                r = take()
                self.assertGreater(r.saturated, 100)
                self.assertEqual(r.saturated, len(r.saturated_indices))
                self.assertEqual(list(r.saturated_indices), sorted(set(r.saturated_indices)))
                self.assertGreater(min(r.values[i] for i in r.saturated_indices), 4000.0)
                self.assertEqual(_library.count_saturated(r.values), sum(v >= 4095 for v in r.values))
        self.assertEqual(_library.saturated_indices(bytes([0, 1, 1, 0, 0, 1])), (1, 2, 5))

    def test_readings_come_in_order_and_the_stream_stops_on_leaving(self):
        s = self.sensors[1]
        with s.stream(averages=4, count=5) as readings:
            got = [next(readings)]
            with self.assertRaises(oru_sensor.IllDefinedInput):
                s.read_filter_data(1)  # refused while streaming
            got += list(readings)
        self.assertEqual(len(got), 5)
        for k, r in enumerate(got):
            self.assertEqual(r.first_sequence - r.dropped, 4 * k)  # no frame read twice, none lost unsaid
            self.assertEqual((r.last_sequence - r.first_sequence, len(r.values), r.averages, r.sensor_id, r.gap_before),
                             (3, 1024, 4, s.sensor_id, 0))
            self.assertLess(abs(r.time - datetime.datetime.now(datetime.timezone.utc)).total_seconds(), 60)
        self.assertEqual(len(s.read_filter_data(2)), 1024)  # stopped: requests work again
        # Iterating directly, and leaving the loop early, stops it too.
        for r in s.stream(averages=1):
            break
        self.assertEqual(s.read().averages, 10)

    def test_two_threads_on_two_sensors_each_get_their_own(self):
        results = {0: [], 1: []}

        def work(s, shutter):
            for _ in range(5):
                s.shutter_speed = shutter
                results[s.index].append((s.sensor_id, sum(s.read_filter_data(2)) / 1024))
                results[s.index] += [(r.sensor_id, sum(r.values) / 1024) for r in s.stream(averages=3, count=2)]

        threads = [threading.Thread(target=work, args=(s, shutter)) for s, shutter in zip(self.sensors, (5, 300))]
        for t in threads:
            t.start()
        for t in threads:
            t.join(120)
        self.assertFalse(any(t.is_alive() for t in threads))
        # Shutter 5 and shutter 300 lie far apart on the white scene.
        for index, (low, high) in ((0, (0, 600)), (1, (1500, 4096))):
            self.assertEqual(len(results[index]), 15)
            for sensor_id, mean in results[index]:
                self.assertEqual(sensor_id, IDS[index])
                self.assertTrue(low <= mean <= high, (index, mean))


class Process(unittest.TestCase):
    """Connections one after another, errors, and faults of a process of its own."""

    def test_objects_of_a_closed_connection_never_touch_the_next(self):
        with oru_sensor.connect(virtual=N_VIRTUAL) as old:
            old_stream = old[0].stream(averages=2)
            next(old_stream)
            with self.assertRaises(RuntimeError):  # would take the sensors away
                with oru_sensor.connect(virtual=N_VIRTUAL):
                    pass
            self.assertEqual(len(old[1].read_filter_data(1)), 1024)  # still connected
            old_sensor, left_open = old[1], old[1].stream(averages=1)
            next(left_open)
        with oru_sensor.connect(virtual=N_VIRTUAL) as new:
            with new[0].stream(averages=2) as readings:
                first = next(readings)
                for i, use in enumerate([lambda: next(old_stream), lambda: old_sensor.shutter_speed,
                                         lambda: old_sensor.read_filter_data(1), lambda: old_sensor.state,
                                         lambda: next(old_sensor.stream(count=1)), lambda: next(left_open)]):
                    with self.subTest(use=i), self.assertRaises(oru_sensor.DeviceObjectIsNull):
                        use()
                old_stream.stop()
                del old_stream, left_open
                gc.collect()
                second = next(readings)  # the new stream goes on, frame after frame
                self.assertEqual(second.first_sequence - second.dropped, first.last_sequence + 1 - first.dropped)
            # A stream stopped behind its back: the read's error is raised, the
            # stop's failure only logged.
            s = new[1]
            broken = s.stream(averages=1, recover=False)
            next(broken)
            s._call(s._lib.duStopFrameStream)
            with self.assertLogs("oru_sensor", "WARNING") as logs, self.assertRaises(oru_sensor.OruError) as cm:
                next(broken)
            self.assertTrue(str(cm.exception).startswith("reading the frame stream"), cm.exception)
            self.assertIn("stopping the frame stream after an error", logs.output[-1])
            # Closing wakes a reader on another thread; it learns why.
            errors = []
            reader = threading.Thread(target=lambda: errors.append(
                self.assertRaises(oru_sensor.DeviceObjectIsNull, next, s.stream(averages=10**7, timeout=600))))
            reader.start()
            time.sleep(0.2)
        reader.join(60)
        self.assertEqual((reader.is_alive(), len(errors)), (False, 1))

    def test_ctrl_c_ends_a_long_reading_soon(self):
        # 8000 frames take 8 s at least on the virtual sensor, paced in real time.
        script = """if True:
            import oru_sensor, signal
            signal.signal(signal.SIGUSR1, lambda *_: print("handled", flush=True))
            with oru_sensor.connect(virtual=1) as (s,):
                s.shutter_speed = 1
                try:
                    print("reading", flush=True)
                    %s
                    print("finished", flush=True)
                except KeyboardInterrupt:
                    print("interrupted", flush=True)
                print(len(s.read_filter_data(2)))"""
        for call, sig, expected in (
                ("s.read_filter_data(averages=8000)", signal.SIGINT, ["interrupted", "1024"]),
                ("next(s.stream(averages=8000, timeout=60))", signal.SIGINT, ["interrupted", "1024"]),
                # A handler that does not raise leaves the reading whole.
                ("next(s.stream(averages=1500, timeout=60))", signal.SIGUSR1, ["handled", "finished", "1024"])):
            with self.subTest(call=call, signal=sig):
                child = subprocess.Popen([sys.executable, "-c", script % call], stdout=subprocess.PIPE,
                                         stderr=subprocess.PIPE, text=True,
                                         env=dict(os.environ, ORU_VSENSOR_REALTIME="1"))
                self.assertEqual(child.stdout.readline(), "reading\n")
                time.sleep(0.5)
                child.send_signal(sig)
                sent = time.monotonic()
                out, err = child.communicate(timeout=60)
                self.assertEqual(out.split(), expected, err)
                if sig == signal.SIGINT:
                    self.assertLess(time.monotonic() - sent, 4.0)  # generous; the whole reading takes 8 s or more

    def test_reconnect_log_and_no_switch_to_hardware(self):
        with self.assertLogs("oru_sensor", level="DEBUG") as logs:
            for _ in range(2):
                with oru_sensor.connect(virtual=N_VIRTUAL) as sensors:
                    self.assertEqual(len(sensors[0].read_filter_data(1)), 1024)
                    with self.assertRaises(oru_sensor.IllDefinedInput):  # target 0, refused by the library
                        sensors[0]._call(sensors[0]._lib.duGetOptimalShutterSpeed2, None, 0, 0)
        self.assertIn("DEBUG:oru_sensor:**** [oru_device_api] Total number of sensors: %d" % N_VIRTUAL, logs.output)
        self.assertIn("WARNING:oru_sensor:[oru_device_api] ORU_BASE_EXCEPTION happened: ill-defined input",
                      logs.output)
        with self.assertRaises(RuntimeError):  # no switching between virtual sensors and hardware
            oru_sensor._library.load(None)
        with self.assertRaises(RuntimeError):  # the drop-in has made its sensors already
            oru_sensor._library.load(N_VIRTUAL + 1)

    def test_negative_results_raise_named_exceptions(self):
        oru_sensor._library.load(N_VIRTUAL)  # the words are the library's
        for code, error in ((-8, oru_sensor.SensorIdIsEmpty), (-31, oru_sensor.OruError), (-1, oru_sensor.Fail),
                            (-9, oru_sensor.FwRecvTimeout)):
            with self.subTest(code=code), self.assertRaises(error) as cm:
                check(code, "reading")
            self.assertEqual(cm.exception.code, code)
        self.assertIn("did not answer in time", str(cm.exception))
        self.assertEqual(check(5), 5)

    def test_a_lost_sensor_comes_back_with_the_gap_recorded(self):
        # The fault schedule is read when the library loads: a process of its own.
        script = """if True:
            import oru_sensor
            with oru_sensor.connect(virtual=2) as sensors:
                got = list(sensors[1].stream(averages=20, count=150, recover=%s))
                print(sum(r.gap_before > 0 for r in got), got[-1].sensor_id)"""
        for faults in ("1:bulk-error", "1:unplug@2s,1:replug@3s"):
            with self.subTest(faults=faults):
                back, lost = (subprocess.run([sys.executable, "-c", script % recover], capture_output=True, text=True,
                                             env=dict(os.environ, ORU_VSENSOR_FAULTS=faults, ORU_VSENSOR_REALTIME="1"),
                                             timeout=120) for recover in (True, False))
                self.assertEqual(back.stdout.split(), ["1", IDS[1]], back.stderr)
                self.assertIn("is back after", back.stderr)
                self.assertNotEqual(lost.returncode, 0)
                self.assertIn("FwRecvTimeout", lost.stderr)


if __name__ == "__main__":
    unittest.main()
