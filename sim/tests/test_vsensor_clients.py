"""Clients written by others, run on the drop-in libusb: pyusb (libusb1
backend) and lsusb. ctest puts the drop-in first on LD_LIBRARY_PATH and sets
ORU_VSENSOR_* per test class."""
import os
import subprocess
import time
import unittest

import usb.backend.libusb1
import usb.core

VID, PID = 0x0483, 0x5740
IN_CLASS, OUT_CLASS = 0xA1, 0x21
START, STOP = 70, 71


def sensors():
    backend = usb.backend.libusb1.get_backend()
    return list(usb.core.find(find_all=True, idVendor=VID, idProduct=PID, backend=backend))


def streaming(dev, request):
    # pyusb claims interface wIndex & 0xff for interface requests; the
    # protocol puts 1 there, so these go through the backend directly.
    dev._ctx.backend.ctrl_transfer(dev._ctx.handle, OUT_CLASS, request, 0, 1, usb.util.create_buffer(0), 1000)


@unittest.skipUnless(os.environ.get("ORU_VSENSOR_COUNT") == "2", "run by ctest (vsensor_pyusb)")
class Pyusb(unittest.TestCase):
    def test_two_sensors_answer_and_stream(self):
        devs = sensors()
        self.assertEqual(len(devs), 2)
        self.assertEqual(sorted(d.port_numbers for d in devs), [(1,), (2,)])
        for n, dev in enumerate(sorted(devs, key=lambda d: d.port_numbers)):
            dev.set_configuration()
            self.assertEqual(dev.parent.idVendor, 0x1D6B)
            # A write answers its byte and the matching read gives it back (every
            # register pair and the identity are checked through the library).
            self.assertEqual(list(dev.ctrl_transfer(IN_CLASS, 54, 0x5A + n, 0, 1)), [0x5A + n])
            self.assertEqual(list(dev.ctrl_transfer(IN_CLASS, 53, 0, 0, 1)), [0x5A + n])
            streaming(dev, START)
            for k in range(50):
                frame = dev.read(0x81, 2048, 2000)
                self.assertEqual(len(frame), 2048)
                # Counter pattern: every filter is the frame number, 12 bits left-aligned.
                self.assertEqual({(frame[2 * i] << 4) | (frame[2 * i + 1] >> 4) for i in range(1024)}, {k})
            streaming(dev, STOP)
            # Waiting for a frame that does not come costs no CPU.
            cpu, wall = time.process_time(), time.monotonic()
            with self.assertRaises(usb.core.USBTimeoutError):
                dev.read(0x81, 2048, 500)
            cpu, wall = time.process_time() - cpu, time.monotonic() - wall
            self.assertGreaterEqual(wall, 0.45)
            self.assertLess(cpu / wall, 0.05)
            usb.util.dispose_resources(dev)

    def test_lsusb_lists_both_sensors_verbosely(self):
        run = subprocess.run(["lsusb", "-v", "-d", "0483:5740"], capture_output=True, text=True, timeout=60)
        self.assertEqual(run.returncode, 0, run.stderr)
        self.assertEqual(run.stderr, "")  # a qualifier request that does not stall would be reported
        self.assertEqual(run.stdout.count("ID 0483:5740"), 2)
        for line in ["idVendor           0x0483", "idProduct          0x5740", "bEndpointAddress     0x81  EP 1 IN",
                     "wMaxPacketSize     0x0040  1x 64 bytes"]:
            self.assertEqual(run.stdout.count(line), 2, line)


@unittest.skipUnless(os.environ.get("ORU_VSENSOR_FAULTS"), "run by ctest (vsensor_pyusb_replug)")
class TimedReplug(unittest.TestCase):
    def test_sensor_goes_and_comes_back_with_a_new_address(self):
        # ORU_VSENSOR_FAULTS=1:unplug@300ms,1:replug@900ms
        before = {d.port_numbers: d.address for d in sensors()}
        self.assertEqual(len(before), 2)
        seen = []
        deadline = time.monotonic() + 10
        while len(seen) < 3:
            self.assertLess(time.monotonic(), deadline, seen)
            count = len(sensors())
            if not seen or seen[-1] != count:
                seen.append(count)
            time.sleep(0.02)
        self.assertEqual(seen, [2, 1, 2])
        after = {d.port_numbers: d.address for d in sensors()}
        self.assertEqual(after[(1,)], before[(1,)])
        self.assertNotEqual(after[(2,)], before[(2,)])


if __name__ == "__main__":
    unittest.main()
