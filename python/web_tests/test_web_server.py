"""The live view's server over HTTP: access, controls and their refusals, snapshots."""

import csv
import io
import json
import subprocess
import sys
import time
import unittest

from live_server import LiveServer


class Access(unittest.TestCase):
    def test_other_address_without_token_is_refused(self):
        p = subprocess.run([sys.executable, "-m", "oru_sensor.web", "--virtual", "1", "--host", "0.0.0.0"],
                           capture_output=True, text=True, timeout=20)
        self.assertEqual(p.returncode, 2)
        self.assertIn("without --token", p.stderr)

    def test_token_once_in_the_query_then_the_cookie(self):
        srv = LiveServer("--virtual", "1", "--token", "s3 cret;x")
        try:
            self.assertEqual(srv.request("api/status")[0], 403)
            self.assertEqual(srv.request("api/status?token=wrong")[0], 403)
            self.assertEqual(srv.request("api/shutter", '{"shutter_speed": 5}')[0], 403)
            status, headers, _ = srv.request("?token=s3%20cret%3Bx")
            self.assertEqual(status, 200)
            cookie = headers["Set-Cookie"].split(";")[0]
            self.assertEqual(srv.request("api/status", headers={"Cookie": cookie})[0], 200)
            self.assertEqual(srv.request("api/shutter", '{"shutter_speed": 5}', {"Cookie": cookie})[0], 200)
        finally:
            code, out, _ = srv.stop()
        self.assertEqual(code, 0)
        self.assertIn("sensors disconnected", out)


class Controls(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.srv = LiveServer("--virtual", "2")

    @classmethod
    def tearDownClass(cls):
        code, _, err = cls.srv.stop()
        assert code == 0, err

    def post(self, path, body):
        status, _, data = self.srv.request(path, json.dumps(body))
        return status, json.loads(data)

    def test_bad_values_get_400_with_a_message(self):
        for path, body in [("api/shutter", {"shutter_speed": 0}), ("api/shutter", {"shutter_speed": 3001}),
                           ("api/shutter", {"shutter_speed": "fast"}), ("api/shutter", {}),
                           ("api/averages", {"averages": 0}), ("api/averages", {"averages": 2.5}),
                           ("api/sensor", {"sensor": 2}), ("api/pause", {"paused": "yes"})]:
            with self.subTest(path=path, body=body):
                status, data = self.post(path, body)
                self.assertEqual(status, 400)
                self.assertTrue(data["error"])
        self.assertEqual(self.srv.request("api/shutter", "not json")[0], 400)
        self.assertEqual(self.srv.request("api/shutter", "{}", {"Content-Type": "text/plain"})[0], 415)
        self.assertEqual(self.srv.request("api/snapshot?format=xml")[0], 400)

    def test_controls_reach_the_sensor_while_it_streams(self):
        self.assertEqual(self.post("api/averages", {"averages": 2})[0], 200)
        status, data = self.post("api/sensor", {"sensor": 1})
        self.assertEqual((status, data["sensor_id"]), (200, "A4486-3-13-40-2"))
        status, data = self.post("api/shutter", {"shutter_speed": 7})
        self.assertEqual((status, data["shutter_speed"]), (200, 7))
        # A snapshot taken later comes from the new sensor, shutter speed and averages.
        deadline = time.monotonic() + 10
        while True:
            status, _, body = self.srv.request("api/snapshot?format=json")
            snap = json.loads(body) if status == 200 else {}
            if snap.get("shutter_speed") == 7 or time.monotonic() > deadline:
                break
            time.sleep(0.05)
        self.assertEqual((snap["sensor_id"], snap["shutter_speed"], snap["averages"]), ("A4486-3-13-40-2", 7, 2))
        self.assertEqual(len(snap["values"]), 1024)
        _, _, body = self.srv.request("api/snapshot?format=csv")
        rows = list(csv.DictReader(io.StringIO(body.decode())))
        self.assertEqual(len(rows), 1)
        self.assertRegex(rows[0]["time"], r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}[+-]\d\d:\d\d$")
        self.assertEqual(list(rows[0])[:7], ["time", "sensor_id", "first_sequence", "last_sequence",
                                             "shutter_speed", "averages", "saturated"])
        self.assertEqual(list(rows[0])[-1], "f1023")
        self.assertEqual(int(rows[0]["last_sequence"]) - int(rows[0]["first_sequence"]), 1)
        # Paused, the stream is off and the sensor takes changes at once.
        self.assertTrue(self.post("api/pause", {"paused": True})[1]["paused"])
        self.assertEqual(self.post("api/shutter", {"shutter_speed": 9})[1]["shutter_speed"], 9)
        self.assertFalse(self.post("api/pause", {"paused": False})[1]["paused"])
        self.post("api/sensor", {"sensor": 0})

    def test_a_page_that_vanishes_is_forgotten(self):
        import socket
        host, port = self.srv.base[7:-1].rsplit(":", 1)
        for _ in range(5):
            s = socket.create_connection((host, int(port)), timeout=5)
            s.sendall(b"GET /api/events HTTP/1.1\r\nHost: x\r\n\r\n")
            got = b""
            while b"event: status" not in got:
                got += s.recv(4096)
            s.close()
        # Each one is dropped at its next write; two new pages both get readings.
        time.sleep(1.0)
        pages = [socket.create_connection((host, int(port)), timeout=5) for _ in range(2)]
        for s in pages:
            s.sendall(b"GET /api/events HTTP/1.1\r\nHost: x\r\n\r\n")
        for s in pages:
            got = b""
            while got.count(b"event: reading") < 2:
                got += s.recv(65536)
        self.assertEqual(json.loads(self.srv.request("api/status")[2])["pages"], 2)
        for s in pages:
            s.close()


if __name__ == "__main__":
    unittest.main()
