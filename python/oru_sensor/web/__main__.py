"""python3 -m oru_sensor.web [--virtual N] [--host 127.0.0.1] [--port 8080] [--token-file FILE] ..."""

import asyncio
import logging
import signal
import socket
import sys

from .. import Calibration, OruError, connect
from ._acquisition import Acquisition
from ._measuring import Measuring
from ._options import parse
from ._server import serve
from ._reconstructions import Spectra

from aiohttp.http_exceptions import HttpProcessingError

STOP_WAIT_S = 1.2  # how long the acquisition thread gets to leave its reading at a stop


class MalformedInOneLine(logging.Filter):
    """aiohttp logs a request it cannot parse with a traceback; the client's
    mistake needs one line. Faults of the server keep theirs."""

    def filter(self, record):
        if record.exc_info and isinstance(record.exc_info[1], HttpProcessingError):
            record.msg, record.args = "refused a malformed request: %s", (record.exc_info[1],)
            record.exc_info = record.exc_text = None
        return True


def listen(args, fail):
    """The listening socket, made before the sensors are connected, so that a
    taken port costs no sensor start-up."""
    try:
        family = socket.AF_INET6 if ":" in args.host else socket.AF_INET
        return socket.create_server((args.host, args.port), family=family, reuse_port=False)
    except (OSError, OverflowError) as e:
        fail("cannot listen on %s port %d: %s" % (args.host, args.port, e.strerror or e))


async def run(acq, measuring, sock, args, ssl_context, sensor_count, bands):
    stop = asyncio.Event()
    loop = asyncio.get_running_loop()
    for sig in (signal.SIGINT, signal.SIGTERM):
        loop.add_signal_handler(sig, stop.set)

    def ready(port):
        host = "[%s]" % args.host if ":" in args.host else args.host
        scheme = "https" if ssl_context else "http"
        print("Live view of %d sensor(s) on %s://%s:%d/  (Ctrl-C stops)" % (sensor_count, scheme, host, port),
              flush=True)
        if args.token:
            print("Open it once with ?token=<the token> added; the browser then keeps a cookie.", flush=True)
        acq.start()

    await serve(acq, measuring, sock, host=args.host, token=args.token, allowed_hosts=args.allow_host, timeout=args.timeout,
                ssl_context=ssl_context, quiet=args.quiet, stop=stop, ready=ready, bands=bands)


def adc_settings(sensors):
    """Each sensor's ADC gain and range, read once: the live view leaves them
    as connecting set them. A sensor lost already counts as (0, 0)."""
    adc = {}
    for s in sensors:
        try:
            adc[s.sensor_id] = tuple(s.adc)
        except OruError:
            pass
    return adc


def calibrated(path, fail):
    """(bands for the pointer readout, the reconstructor) of --calibration FILE."""
    try:
        cal = Calibration(path)
    except ValueError as e:
        fail("--calibration: %s" % e, status=2)
    try:
        return {"sensor_id": cal.sensor_id, "bands": cal.bands()}, Spectra(cal._lib, cal)
    except ValueError as e:
        fail("--calibration: %s" % e, status=2)
    finally:
        cal.close()


def main(argv=None):
    args, ssl_context, fail = parse(sys.argv[1:] if argv is None else argv)
    logging.basicConfig(level=logging.INFO, format="%(message)s")
    logging.getLogger("aiohttp.server").addFilter(MalformedInOneLine())
    sock = listen(args, fail)
    # Until the server runs, SIGTERM ends the start-up as Ctrl-C does.
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    try:
        with connect(virtual=args.virtual) as sensors:
            bands, spectra = calibrated(args.calibration, fail) if args.calibration else (None, None)
            measuring = Measuring(adc_settings(sensors), spectra)
            acq = Acquisition(sensors, averages=args.averages, max_rate=args.max_rate)
            try:
                asyncio.run(run(acq, measuring, sock, args, ssl_context, len(sensors), bands))
            finally:
                acq.stop(STOP_WAIT_S)
    except KeyboardInterrupt:
        pass
    except (OruError, RuntimeError) as e:
        fail("%s" % e, status=1)
    print("Stopped; sensors disconnected.", flush=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
