"""Starts `python3 -m oru_sensor.web` on virtual sensors for a test and stops it."""

import os
import re
import subprocess
import sys
import urllib.request


class LiveServer:
    def __init__(self, *args, env=None):
        e = dict(os.environ)
        e.update(env or {})
        self.proc = subprocess.Popen([sys.executable, "-m", "oru_sensor.web", "--port", "0", "--quiet"] + list(args),
                                     stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=e, text=True)
        line = self.proc.stdout.readline()
        m = re.search(r"http://([^/]+)/", line)
        if not m:
            self.proc.kill()
            raise RuntimeError("server did not start: %r %s" % (line, self.proc.stderr.read()))
        self.base = "http://%s/" % m.group(1)

    def stop(self):
        """Ctrl-C; returns what it printed on leaving."""
        self.proc.send_signal(2)
        out, err = self.proc.communicate(timeout=15)
        return self.proc.returncode, out, err

    def request(self, path, body=None, headers=None, method=None):
        """(status, headers, body bytes); HTTP errors are answers too."""
        data = None if body is None else body.encode()
        h = {"Content-Type": "application/json"} if body is not None else {}
        h.update(headers or {})
        req = urllib.request.Request(self.base + path, data=data, headers=h, method=method)
        try:
            with urllib.request.urlopen(req, timeout=20) as r:
                return r.status, r.headers, r.read()
        except urllib.error.HTTPError as e:
            return e.code, e.headers, e.read()
