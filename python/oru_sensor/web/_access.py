"""Who may use the server, checked on every request in this order:

1. the token, when one is set: as `?token=` once (answered by a cookie and a
   redirect to the address without it), then the cookie, or from scripts an
   `Authorization: Bearer` header;
2. the Host header: one of the names this server is reached by, so that a
   web page whose own name was made to point at this machine (DNS
   rebinding) is refused;
3. for requests that change something: sent from the page itself (Origin or
   Sec-Fetch-Site), with a JSON body, which a page of another site cannot
   send without the browser asking this server first.

Refusals close the connection, so that no unread body is taken for a request.
"""

import hashlib
import hmac
import ipaddress
import json
import logging
import re

from aiohttp import abc, web

COOKIE = "oru_session"
LOOPBACK_NAMES = {"localhost", "localhost.", "ip6-localhost"}
SAFE_METHODS = {"GET", "HEAD"}
PORT = re.compile(r"[0-9]{1,5}")


def refuse(status, message):
    """An error answer that ends its connection."""
    resp = web.Response(status=status, text=json.dumps({"error": message}) + "\n", content_type="application/json")
    resp.force_close()
    return resp


def host_name(host_header):
    """The name in a Host header, without port or brackets, in lower case; None if malformed."""
    host = (host_header or "").strip().lower()
    if host.startswith("["):
        name, bracket, rest = host[1:].partition("]")
        if not bracket or rest and not rest.startswith(":"):
            return None
        port = rest[1:]
    else:
        name, _, port = host.partition(":")
    if port and not PORT.fullmatch(port):
        return None
    return name or None


def is_ip(name):
    try:
        ipaddress.ip_address(name)
        return True
    except ValueError:
        return False


class Access:
    """The checks, as one aiohttp middleware."""

    def __init__(self, bound_host, allowed_hosts=(), token=None, tls=False):
        self.names = set(LOOPBACK_NAMES) | {h.lower() for h in allowed_hosts}
        bound = bound_host.lower()
        # Bound to every address, the machine is reached by any of its
        # addresses; an address cannot be rebound to another machine, a name can.
        self.any_address = bound in ("0.0.0.0", "::", "")
        self.names.add(bound)
        self.token = token
        self.cookie_value = (hmac.new(token.encode(), b"live-view session", hashlib.sha256).hexdigest()
                             if token else None)
        self.scheme = "https" if tls else "http"

    def host_allowed(self, name):
        if name is None:
            return False
        if name in self.names:
            return True
        if is_ip(name):
            return ipaddress.ip_address(name).is_loopback or self.any_address
        return False

    def _token_ok(self, request):
        auth = request.headers.get("Authorization", "")
        if auth.startswith("Bearer ") and hmac.compare_digest(auth[7:].strip().encode(), self.token.encode()):
            return True
        cookie = request.cookies.get(COOKIE, "")
        return hmac.compare_digest(cookie.encode(), self.cookie_value.encode())

    def _same_origin(self, request):
        origin = request.headers.get("Origin")
        if origin is not None:
            return origin.lower() == "%s://%s" % (self.scheme, request.headers.get("Host", "").lower())
        site = request.headers.get("Sec-Fetch-Site")
        # Browsers send Origin on every POST; a client without either is no browser.
        return site is None or site == "same-origin"

    @web.middleware
    async def check(self, request, handler):
        if self.token is not None:
            given = request.query.get("token")
            if given is not None and request.method in SAFE_METHODS:
                if not hmac.compare_digest(given.encode(), self.token.encode()):
                    return refuse(403, "wrong token")
                query = {k: v for k, v in request.query.items() if k != "token"}
                resp = web.Response(status=303, headers={"Location": str(request.rel_url.with_query(query))})
                resp.set_cookie(COOKIE, self.cookie_value, path="/", httponly=True, samesite="Strict",
                                secure=self.scheme == "https")
                return resp
            if not self._token_ok(request):
                return refuse(403, "a token is needed: open the address printed by the server with ?token=...")
        if not self.host_allowed(host_name(request.headers.get("Host"))):
            return refuse(421, "this server is not reached by that name; start it with --allow-host NAME")
        if request.method not in SAFE_METHODS:
            if not self._same_origin(request):
                return refuse(403, "controls are taken only from this server's own page")
            if request.content_type != "application/json":
                return refuse(415, "controls take a JSON body (Content-Type: application/json)")
        return await handler(request)


class AccessLog(abc.AbstractAccessLogger):
    """One line a request: client, method, path (never the query, which may hold the token), status."""

    def log(self, request, response, time):
        self.logger.info("%s %s %s %d", request.remote, request.method, request.path, response.status)


def access_logger(quiet):
    logger = logging.getLogger("oru_sensor.web.access")
    logger.disabled = quiet
    return logger
