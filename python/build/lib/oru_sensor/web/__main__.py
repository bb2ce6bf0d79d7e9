"""python3 -m oru_sensor.web [--virtual N] [--host 127.0.0.1] [--port 8080] [--token TOKEN]"""

import argparse
import ipaddress
import signal
import sys
import threading
import urllib.parse

from .. import connect
from ._acquisition import Acquisition
from ._server import Server


def is_loopback(host):
    if host == "localhost":
        return True
    try:
        return ipaddress.ip_address(host).is_loopback
    except ValueError:
        return False


def parse(argv):
    p = argparse.ArgumentParser(prog="python3 -m oru_sensor.web",
                                description="Live view of the sensors in a browser.")
    p.add_argument("--virtual", type=int, metavar="N", help="run on N virtual sensors instead of USB hardware")
    p.add_argument("--host", default="127.0.0.1", help="address to listen on (default 127.0.0.1)")
    p.add_argument("--port", type=int, default=8080, help="port (default 8080; 0 picks a free one)")
    p.add_argument("--token", help="secret every request must carry; needed for any address but loopback")
    p.add_argument("--averages", type=int, default=1, help="frames per reading at start (default 1)")
    p.add_argument("--max-rate", type=float, default=25.0, help="readings per second sent to a page (default 25)")
    p.add_argument("--quiet", action="store_true", help="do not log requests")
    args = p.parse_args(argv)
    if not is_loopback(args.host) and not args.token:
        p.exit(2, "oru_sensor.web: refusing to listen on %s without --token: anyone on the network could "
                  "control the sensor. Give --token SECRET, or use --host 127.0.0.1.\n" % args.host)
    if args.token is not None and not args.token.strip():
        p.exit(2, "oru_sensor.web: --token must not be empty\n")
    if not 1 <= args.averages <= 1000:
        p.exit(2, "oru_sensor.web: --averages must be 1..1000\n")
    if not 0 < args.max_rate <= 1000:
        p.exit(2, "oru_sensor.web: --max-rate must be above 0 and at most 1000\n")
    return args


def main(argv=None):
    args = parse(sys.argv[1:] if argv is None else argv)
    # Ctrl-C and SIGTERM both end the serve loop; the with-blocks then stop the stream and disconnect.
    stop = threading.Event()
    signal.signal(signal.SIGTERM, lambda *_: stop.set())
    signal.signal(signal.SIGINT, lambda *_: stop.set())
    with connect(virtual=args.virtual) as sensors:
        acq = Acquisition(sensors, averages=args.averages, max_rate=args.max_rate)
        server = Server((args.host, args.port), acq, token=args.token, quiet=args.quiet)
        host, port = server.server_address[:2]
        shown = "[%s]" % host if ":" in host else host
        query = "/?token=%s" % urllib.parse.quote(args.token, safe="") if args.token else "/"
        print("Live view of %d sensor(s) on http://%s:%d%s  (Ctrl-C stops)" % (len(sensors), shown, port, query),
              flush=True)
        acq.start()
        serving = threading.Thread(target=server.serve_forever, kwargs={"poll_interval": 0.2}, daemon=True)
        serving.start()
        try:
            while not stop.wait(0.5):
                pass
        finally:
            server.shutdown()
            acq.stop()
            server.server_close()
    print("Stopped; sensors disconnected.", flush=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
