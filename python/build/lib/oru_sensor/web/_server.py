"""HTTP side of the live view: the page's files, the reading stream
(server-sent events), status, snapshots and the controls (POST, JSON)."""

import hmac
import http.server
import json
import os
import queue
import urllib.parse

from .._errors import OruError
from . import _rows

STATIC = os.path.join(os.path.dirname(os.path.abspath(__file__)), "static")
FILES = {"/": ("index.html", "text/html; charset=utf-8"),
         "/app.js": ("app.js", "text/javascript; charset=utf-8"),
         "/style.css": ("style.css", "text/css; charset=utf-8")}
COOKIE = "oru_token"
KEEPALIVE_S = 15.0
MAX_BODY = 4096


class BadValue(ValueError):
    """A control value the page sent that cannot be used; answered with 400."""


def _int_in(body, key, lo, hi):
    v = body.get(key)
    if isinstance(v, bool) or not isinstance(v, (int, float, str)):
        raise BadValue("%s must be a whole number %d..%d" % (key, lo, hi))
    try:
        n = int(str(v).strip())
    except ValueError:
        raise BadValue("%s must be a whole number %d..%d, got %r" % (key, lo, hi, v)) from None
    if not lo <= n <= hi:
        raise BadValue("%s must be %d..%d, got %d" % (key, lo, hi, n))
    return n


class Handler(http.server.BaseHTTPRequestHandler):
    server_version = "oru-live/1"
    protocol_version = "HTTP/1.1"

    # set on the server object: acq (Acquisition), token (str or None), quiet (bool)

    def log_message(self, fmt, *args):
        if not self.server.quiet:
            super().log_message(fmt, *args)

    # -- plumbing ----------------------------------------------------------

    def _send(self, code, body, ctype="application/json", headers=()):
        if isinstance(body, str):
            body = body.encode()
        self.send_response(code)
        self.send_header("Content-Type", ctype)
        self.send_header("Content-Length", str(len(body)))
        self.send_header("Cache-Control", "no-store")
        self.send_header("X-Content-Type-Options", "nosniff")
        for k, v in headers:
            self.send_header(k, v)
        self.end_headers()
        if self.command != "HEAD":
            self.wfile.write(body)

    def _json(self, code, obj):
        self._send(code, json.dumps(obj))

    def _error(self, code, message):
        self._json(code, {"error": message})

    def _authorized(self, query):
        """With a token, the first request brings it as ?token=, later ones as the cookie."""
        token = self.server.token
        if token is None:
            return True, ()
        given = query.get("token", [None])[0]
        if given is not None and hmac.compare_digest(given.encode(), token.encode()):
            cookie = "%s=%s; Path=/; HttpOnly; SameSite=Strict" % (COOKIE, urllib.parse.quote(token, safe=""))
            return True, (("Set-Cookie", cookie),)
        for part in self.headers.get("Cookie", "").split(";"):
            name, _, value = part.strip().partition("=")
            if name == COOKIE and hmac.compare_digest(urllib.parse.unquote(value).encode(), token.encode()):
                return True, ()
        return False, ()

    def _route(self):
        url = urllib.parse.urlsplit(self.path)
        query = urllib.parse.parse_qs(url.query)
        ok, headers = self._authorized(query)
        if not ok:
            self._error(403, "a token is needed: open the address with ?token=... as printed by the server")
            return None, None, None
        return url.path, query, headers

    # -- GET ---------------------------------------------------------------

    def do_HEAD(self):
        self.do_GET()

    def do_GET(self):
        path, query, headers = self._route()
        if path is None:
            return
        acq = self.server.acq
        if path in FILES:
            name, ctype = FILES[path]
            with open(os.path.join(STATIC, name), "rb") as f:
                self._send(200, f.read(), ctype, headers)
        elif path == "/api/status":
            self._send(200, json.dumps(acq.status()), headers=headers)
        elif path == "/api/snapshot":
            fmt = query.get("format", ["json"])[0]
            if fmt not in ("csv", "json"):
                return self._error(400, "format must be csv or json")
            reading = acq.latest
            if reading is None:
                return self._error(409, "no reading yet")
            stamp = reading.time.strftime("%Y%m%dT%H%M%S")
            disposition = ("Content-Disposition", 'attachment; filename="%s-%s.%s"' % (reading.sensor_id, stamp, fmt))
            if fmt == "csv":
                self._send(200, _rows.as_csv(reading), "text/csv; charset=utf-8", (disposition,) + tuple(headers))
            else:
                self._send(200, _rows.as_json(reading), "application/json", (disposition,) + tuple(headers))
        elif path == "/api/events":
            self._events()
        else:
            self._error(404, "no such page")

    def _events(self):
        acq = self.server.acq
        q = acq.subscribe()
        try:
            self.send_response(200)
            self.send_header("Content-Type", "text/event-stream")
            self.send_header("Cache-Control", "no-store")
            self.send_header("Connection", "close")
            self.end_headers()
            self.close_connection = True
            self.wfile.write(acq.status_message())
            self.wfile.flush()
            while True:
                try:
                    message = q.get(timeout=KEEPALIVE_S)
                except queue.Empty:
                    message = b": keep-alive\n\n"
                if message is None:  # the server is stopping
                    return
                self.wfile.write(message)
                self.wfile.flush()
        except (BrokenPipeError, ConnectionResetError, TimeoutError, OSError):
            pass  # the page went away
        finally:
            acq.unsubscribe(q)

    # -- POST --------------------------------------------------------------

    def do_POST(self):
        path, _, headers = self._route()
        if path is None:
            return
        # A JSON body cannot be sent cross-site without the browser asking first.
        if self.headers.get_content_type() != "application/json":
            return self._error(415, "controls take a JSON body (Content-Type: application/json)")
        try:
            length = int(self.headers.get("Content-Length", "0"))
        except ValueError:
            length = -1
        if not 0 <= length <= MAX_BODY:
            return self._error(400, "body missing or too large")
        try:
            body = json.loads(self.rfile.read(length) or b"{}")
            if not isinstance(body, dict):
                raise ValueError
        except ValueError:
            return self._error(400, "the body is not a JSON object")
        action = CONTROLS.get(path)
        if action is None:
            return self._error(404, "no such control")
        acq = self.server.acq
        try:
            result = action(acq, body)
        except BadValue as e:
            return self._error(400, str(e))
        except OruError as e:
            return self._error(502, "the sensor refused: %s" % e)
        status = acq.status()
        status.update(result or {})
        self._send(200, json.dumps(status), headers=headers)


def _set_shutter(acq, body):
    lo, hi = acq.call(lambda: acq.sensor.shutter_speed_limits)
    ss = _int_in(body, "shutter_speed", lo, hi)

    def change():
        acq.restart_stream()
        acq.sensor.shutter_speed = ss
    acq.call(change)


def _set_averages(acq, body):
    n = _int_in(body, "averages", 1, 1000)

    def change():
        acq.restart_stream()
        acq.averages = n
    acq.call(change)


def _set_sensor(acq, body):
    n = _int_in(body, "sensor", 0, len(acq.sensors) - 1)

    def change():
        acq.restart_stream()
        acq.index = n
        acq.latest = None
    acq.call(change)


def _auto_exposure(acq, body):
    def search():
        acq.restart_stream()
        return acq.sensor.optimal_shutter_speed()
    return {"auto_exposure": acq.call(search)}


def _pause(acq, body):
    paused = body.get("paused")
    if not isinstance(paused, bool):
        raise BadValue("paused must be true or false")

    def change():
        if paused:
            acq.restart_stream()
        acq.paused = paused
    acq.call(change)


CONTROLS = {"/api/shutter": _set_shutter, "/api/averages": _set_averages, "/api/sensor": _set_sensor,
            "/api/auto-exposure": _auto_exposure, "/api/pause": _pause}


class Server(http.server.ThreadingHTTPServer):
    daemon_threads = True
    allow_reuse_address = True

    def __init__(self, address, acq, token=None, quiet=False):
        self.acq = acq
        self.token = token
        self.quiet = quiet
        if ":" in address[0]:
            self.address_family = __import__("socket").AF_INET6
        super().__init__(address, Handler)
