"""Bounds on connections, below the HTTP library: at most PER_CLIENT open
connections per client address (TOTAL in all), and a deadline on every
connection while no request of it is being handled: `timeout` seconds idle,
or `timeout` seconds from the first byte of a request to the end of its
headers. A request's body is timed by its handler; a response that runs on
(the reading stream) keeps its connection open while it is written."""

import asyncio

PER_CLIENT = 16
TOTAL = 128


class Warden:
    """Makes the protocol objects the event loop's server asks for. Runs on
    the event loop's thread only, so it needs no lock."""

    def __init__(self, timeout):
        self.make_protocol = None  # the HTTP library's protocol factory, set before the first connection
        self.timeout = timeout
        self._per_client = {}   # client address -> open connections
        self._guards = {}       # transport -> _Guard
        self.refused = 0        # connections closed at once for being too many

    def __call__(self):
        return _Guard(self, self.make_protocol())

    def handling(self, transport):
        """The guard of a request's connection, for its handler."""
        return self._guards.get(transport)

    def _admit(self, guard, transport):
        peer = transport.get_extra_info("peername")
        host = peer[0] if peer else ""
        if self._per_client.get(host, 0) >= PER_CLIENT or len(self._guards) >= TOTAL:
            self.refused += 1
            transport.abort()
            return None
        self._per_client[host] = self._per_client.get(host, 0) + 1
        self._guards[transport] = guard
        return host

    def _release(self, host, transport):
        self._guards.pop(transport, None)
        left = self._per_client.get(host, 1) - 1
        if left > 0:
            self._per_client[host] = left
        else:
            self._per_client.pop(host, None)


class _Guard(asyncio.Protocol):
    """Stands between the transport and the HTTP library's protocol object,
    passing everything on, and closes the connection when its deadline passes."""

    def __init__(self, warden, inner):
        self._warden = warden
        self._inner = inner
        self._transport = None
        self._host = None
        self._busy = 0          # requests of this connection being handled
        self._receiving = False
        self._timer = None

    # -- what the HTTP side tells it -----------------------------------------

    def begin(self):
        self._busy += 1
        self._cancel()

    def end(self):
        self._busy -= 1
        if self._busy == 0:
            self._arm(receiving=False)

    # -- deadlines -------------------------------------------------------------

    def _cancel(self):
        if self._timer is not None:
            self._timer.cancel()
            self._timer = None

    def _arm(self, receiving):
        self._cancel()
        self._receiving = receiving
        if self._transport is not None:
            loop = asyncio.get_running_loop()
            self._timer = loop.call_later(self._warden.timeout, self._expire)

    def _expire(self):
        self._timer = None
        if self._transport is not None and self._busy == 0:
            # Nothing waits to be sent on an idle connection; a slow sender gets a reset.
            if self._receiving:
                self._transport.abort()
            else:
                self._transport.close()

    # -- asyncio.Protocol -------------------------------------------------------

    def connection_made(self, transport):
        self._host = self._warden._admit(self, transport)
        if self._host is None:
            return
        self._transport = transport
        self._inner.connection_made(transport)
        self._arm(receiving=False)

    def connection_lost(self, exc):
        self._cancel()
        if self._transport is None:
            return
        self._warden._release(self._host, self._transport)
        self._transport = None
        self._inner.connection_lost(exc)

    def data_received(self, data):
        if self._transport is None:
            return
        if self._busy == 0 and not self._receiving:
            self._arm(receiving=True)
        self._inner.data_received(data)

    def eof_received(self):
        return self._inner.eof_received() if self._transport is not None else None

    def pause_writing(self):
        self._inner.pause_writing()

    def resume_writing(self):
        self._inner.resume_writing()
