"""HTTP side of the live view, on aiohttp: the page's files, the reading
stream (server-sent events), status, snapshots and the controls (POST, JSON).
Handlers only read what the acquisition thread published and leave requests
for it; none waits for a sensor."""

import asyncio
import json
import os

from aiohttp import web

from . import _rows
from ._access import Access, AccessLog, access_logger, refuse
from ._connections import Warden
from ._values import BadValue, flag, json_object, whole_number

STATIC = os.path.join(os.path.dirname(os.path.abspath(__file__)), "static")
FILES = {"/": ("index.html", "text/html"), "/app.js": ("app.js", "text/javascript"),
         "/style.css": ("style.css", "text/css")}
MAX_BODY = 4096
MAX_AVERAGES = 1000
KEEPALIVE_S = 15.0   # a comment on a quiet event stream, so that proxies keep it
SHUTDOWN_S = 0.5    # open requests get this long to finish when the server stops
CLIENT_QUEUE = 4     # messages waiting per page; a slow page loses the oldest
HEADERS = {"Cache-Control": "no-store", "X-Content-Type-Options": "nosniff", "X-Frame-Options": "DENY",
           "Content-Security-Policy": "default-src 'self'; img-src 'self' data:; frame-ancestors 'none'"}


class Pages:
    """The open event streams; touched on the event loop's thread only."""

    def __init__(self, loop):
        self._loop = loop
        self._queues = set()

    def __len__(self):
        return len(self._queues)

    def hear(self, kind, data):
        """Called by the acquisition thread, also while the server stops."""
        try:
            self._loop.call_soon_threadsafe(self._send, kind, data)
        except RuntimeError:  # the event loop has ended: no page is left to tell
            pass

    def _send(self, kind, data):
        message = None if kind == "end" else _event(kind, data)
        for q in self._queues:
            if q.full():
                q.get_nowait()
            q.put_nowait(message)

    def open(self):
        q = asyncio.Queue(CLIENT_QUEUE)
        self._queues.add(q)
        return q

    def close(self, q):
        self._queues.discard(q)


def _event(kind, data):
    return ("event: %s\ndata: %s\n\n" % (kind, json.dumps(data, separators=(",", ":")))).encode()


def _json(obj, status=200):
    return web.Response(status=status, text=json.dumps(obj), content_type="application/json")


class Handlers:
    def __init__(self, acq, pages, warden, bands, measuring):
        self.acq = acq
        self.bands = bands
        self.measuring = measuring
        self.pages = pages
        self.warden = warden

    def status(self):
        s = self.measuring.status(self.acq.status())
        s["pages"] = len(self.pages)
        return s

    @web.middleware
    async def guard(self, request, handler):
        """Marks the connection busy while its request is handled, and
        answers every failure in one line of JSON."""
        g = self.warden.handling(request.transport)
        if g is not None:
            g.begin()
        try:
            resp = await handler(request)
        except web.HTTPException as e:
            resp = refuse(e.status, e.reason if e.status != 413 else "the body is larger than %d bytes" % MAX_BODY)
        except BadValue as e:
            resp = refuse(400, str(e))
        finally:
            if g is not None:
                g.end()
        if not resp.prepared:  # an event stream sent its headers itself
            resp.headers.update(HEADERS)
        return resp

    async def file(self, request):
        name, ctype = FILES[request.path]
        with open(os.path.join(STATIC, name), "rb") as f:
            return web.Response(body=f.read(), content_type=ctype, charset="utf-8")

    async def get_status(self, request):
        return _json(self.status())

    async def get_bands(self, request):
        """Where each filter sees light, from the calibration the server was
        given (the library's per-filter centroid and half-maximum band)."""
        if self.bands is None:
            return refuse(404, "no calibration: start the live view with --calibration FILE")
        return _json(self.bands)

    async def snapshot(self, request):
        fmt = request.query.get("format", "json")
        if fmt not in ("csv", "json"):
            raise BadValue("format must be csv or json")
        reading = self.acq.latest()
        if reading is None:
            return refuse(409, "no reading yet")
        stamp = reading.time.strftime("%Y%m%dT%H%M%S")
        body = _rows.as_csv(reading) if fmt == "csv" else _rows.as_json(reading)
        return web.Response(text=body, content_type="text/csv" if fmt == "csv" else "application/json",
                            headers={"Content-Disposition": 'attachment; filename="%s-%s.%s"'
                                     % (reading.sensor_id, stamp, fmt)})

    async def stored(self, request):
        """The sensor's kept dark or reference as the library's CSV file."""
        kind, sensor_id = request.match_info["kind"], self.acq.status()["sensor_id"]
        kept = self.measuring.file(kind, sensor_id)
        if kept is None:
            return refuse(404, "no %s kept for sensor %s: take one first" % (kind, sensor_id))
        body, taken = kept
        return web.Response(text=body, content_type="text/csv", headers={
            "Content-Disposition": 'attachment; filename="%s-%s-%s.csv"' % (sensor_id, kind,
                                                                            taken.strftime("%Y%m%dT%H%M%S"))})

    def _take(self, kind, body):
        """Keeps the latest reading as the shown sensor's dark or reference,
        when it was taken at the settings now in effect."""
        s = self.acq.status()
        if flag(body.get("clear", False), "clear"):
            self.measuring.keep(kind, (s["sensor_id"], None))
            return
        r = self.acq.latest()
        if s["pending"] or r is None or (r.sensor_id, r.shutter_speed) != (s["sensor_id"], s["shutter_speed"]):
            raise BadValue("no reading at the current settings yet: take the %s again in a moment" % kind)
        self.measuring.keep(kind, r)

    async def events(self, request):
        q = self.pages.open()
        resp = web.StreamResponse(headers=dict(HEADERS, **{"Content-Type": "text/event-stream"}))
        timeout = self.warden.timeout
        try:
            await resp.prepare(request)
            message = _event("status", self.status())
            while message is not None:
                # A page that stops reading is dropped instead of holding the server.
                await asyncio.wait_for(resp.write(message), timeout)
                try:
                    message = await asyncio.wait_for(q.get(), KEEPALIVE_S)
                except asyncio.TimeoutError:
                    message = b": keep-alive\n\n"
        except (ConnectionError, asyncio.TimeoutError):
            pass
        finally:
            self.pages.close(q)
        resp.force_close()
        return resp

    async def control(self, request):
        try:
            body = await asyncio.wait_for(request.read(), self.warden.timeout)
        except asyncio.TimeoutError:
            return refuse(408, "the body did not arrive in %g s" % self.warden.timeout)
        body = json_object(body)
        acq = self.acq
        kind = request.match_info["name"]
        if kind == "shutter":
            lo, hi = acq.limits
            s = acq.request(shutter_speed=whole_number(body.get("shutter_speed"), "shutter_speed", lo, hi))
        elif kind == "averages":
            s = acq.request(averages=whole_number(body.get("averages"), "averages", 1, MAX_AVERAGES))
        elif kind == "sensor":
            s = acq.request(sensor=whole_number(body.get("sensor"), "sensor", 0, len(acq.ids) - 1))
        elif kind == "pause":
            s = acq.request(paused=flag(body.get("paused"), "paused"))
        elif kind == "auto-exposure":
            s = acq.request(auto_exposure=True)
        elif kind in ("mode", "algorithm"):
            value = body.get(kind)
            self.measuring.choose(**{kind: value if isinstance(value, str) else ""})
            s = acq.status()
        elif kind in ("dark", "reference"):
            self._take(kind, body)
            s = acq.status()
        else:
            return refuse(404, "no such control")
        s = self.measuring.status(s)
        s["pages"] = len(self.pages)
        return _json(s, 202)

    async def missing(self, request):
        return refuse(404, "no such page")


def make_app(acq, pages, warden, access, measuring, bands=None):
    h = Handlers(acq, pages, warden, bands, measuring)
    app = web.Application(middlewares=[h.guard, access.check], client_max_size=MAX_BODY)
    for path in FILES:
        app.router.add_get(path, h.file)
    app.router.add_get("/api/status", h.get_status)
    app.router.add_get("/api/snapshot", h.snapshot)
    app.router.add_get("/api/bands", h.get_bands)
    app.router.add_get("/api/events", h.events)
    app.router.add_get("/api/{kind:dark|reference}", h.stored)
    app.router.add_post("/api/{name}", h.control)
    app.router.add_route("*", "/{tail:.*}", h.missing)
    return app


async def serve(acq, measuring, sock, *, host, token, allowed_hosts, timeout, ssl_context, quiet, stop, ready,
                bands=None):
    """Serves until `stop` (an asyncio.Event) is set; calls `ready(port)` once listening."""
    loop = asyncio.get_running_loop()
    pages = Pages(loop)

    def hear(kind, data):  # on the acquisition thread: the library's numbers for the pages
        if kind == "reading":
            data = measuring.event(*data)
        elif kind == "status":
            data = measuring.status(data)
        pages.hear(kind, data)

    acq.add_listener(hear)
    warden = Warden(timeout)
    access = Access(host, allowed_hosts, token, tls=ssl_context is not None)
    runner = web.AppRunner(make_app(acq, pages, warden, access, measuring, bands), access_log_class=AccessLog,
                           access_log=access_logger(quiet), keepalive_timeout=timeout, lingering_time=timeout)
    await runner.setup()
    warden.make_protocol = runner.server
    server = await loop.create_server(warden, sock=sock, ssl=ssl_context,
                                      ssl_handshake_timeout=timeout if ssl_context else None)
    try:
        ready(server.sockets[0].getsockname()[1])
        await stop.wait()
    finally:
        server.close()
        pages.hear("end", None)
        await runner.server.shutdown(SHUTDOWN_S)
        await runner.cleanup()
