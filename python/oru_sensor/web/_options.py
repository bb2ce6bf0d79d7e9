"""The command line of the live view, every value checked before a sensor is touched."""

import argparse
import ipaddress
import os
import ssl

from ._values import BadValue, decimal_number, whole_number

TOKEN_ENV = "ORU_WEB_TOKEN"
MAX_VIRTUAL = 10  # the library serves at most 10 sensors


def is_loopback(host):
    if host == "localhost":
        return True
    try:
        return ipaddress.ip_address(host).is_loopback
    except ValueError:
        return False


def _checked(convert, name, lo, hi):
    def check(text):
        try:
            return convert(text, name, lo, hi)
        except BadValue as e:
            raise argparse.ArgumentTypeError(str(e)) from None
    return check


def _token_from(args, fail):
    """--token, else --token-file, else the environment; None for none."""
    if args.token is not None:
        token = args.token
    elif args.token_file is not None:
        try:
            with open(args.token_file, encoding="utf-8") as f:
                token = f.readline().strip()
        except (OSError, UnicodeDecodeError) as e:
            fail("cannot read the token file %s: %s" % (args.token_file, getattr(e, "strerror", None) or e))
    else:
        token = os.environ.get(TOKEN_ENV)
    if token is not None and (not token.strip() or not token.isascii() or not token.isprintable()):
        fail("the token must be printable ASCII and not empty")
    return token


def _tls(args, fail):
    if (args.tls_cert is None) != (args.tls_key is None):
        fail("--tls-cert and --tls-key go together")
    if args.tls_cert is None:
        return None
    context = ssl.create_default_context(ssl.Purpose.CLIENT_AUTH)
    try:
        context.load_cert_chain(args.tls_cert, args.tls_key)
    except (OSError, ssl.SSLError) as e:
        fail("cannot load the TLS certificate or key: %s" % (getattr(e, "strerror", None) or e))
    return context


def parse(argv):
    """(options, TLS context or None, fail(message, status=2))."""
    p = argparse.ArgumentParser(prog="python3 -m oru_sensor.web", description="Live view of the sensors in a browser.")
    p.add_argument("--virtual", type=_checked(whole_number, "--virtual", 1, MAX_VIRTUAL), metavar="N",
                   help="run on N (1..10) virtual sensors instead of USB hardware")
    p.add_argument("--host", default="127.0.0.1", help="address to listen on (default 127.0.0.1)")
    p.add_argument("--port", type=_checked(whole_number, "--port", 0, 65535), default=8080, help="port (default 8080; 0 picks a free one)")
    p.add_argument("--allow-host", action="append", default=[], metavar="NAME",
                   help="a further name the server is reached by (Host header), e.g. pi.local; repeatable")
    p.add_argument("--token", help="secret every client must give; visible in ps: prefer --token-file or %s" % TOKEN_ENV)
    p.add_argument("--token-file", metavar="FILE", help="read the secret from the first line of FILE")
    p.add_argument("--tls-cert", metavar="FILE", help="serve HTTPS with this certificate (PEM); needs --tls-key")
    p.add_argument("--tls-key", metavar="FILE", help="the certificate's private key (PEM)")
    p.add_argument("--timeout", type=_checked(decimal_number, "--timeout", 0.5, 600), default=5.0, metavar="S",
                   help="seconds a connection may stay idle or take to send a request (default 5)")
    p.add_argument("--averages", type=_checked(whole_number, "--averages", 1, 1000), default=1, help="frames per reading at start (default 1)")
    p.add_argument("--max-rate", type=_checked(decimal_number, "--max-rate", 0.01, 1000), default=25.0, help="readings per second sent to a page (default 25)")
    p.add_argument("--calibration", metavar="FILE",
                   help="a calibration file (HDF5): the pointer readout then says where each filter sees light")
    p.add_argument("--quiet", action="store_true", help="do not log requests")
    args = p.parse_args(argv)

    def fail(message, status=2):
        p.exit(status, "oru_sensor.web: %s\n" % message)

    args.token = _token_from(args, fail)
    if not is_loopback(args.host) and not args.token:
        fail("refusing to listen on %s without a token: anyone on the network could control the sensor. "
             "Give --token-file FILE (or %s), or use --host 127.0.0.1." % (args.host, TOKEN_ENV))
    return args, _tls(args, fail), fail
