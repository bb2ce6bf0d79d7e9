"""Blocking library calls that Ctrl-C can end. Python runs a signal's handler
(KeyboardInterrupt) on the main thread only, and only between two steps of
Python code: while that thread waits inside the library, nothing happens. So
on the main thread the call runs on a helper thread while the main thread
waits on a lock, which a signal does interrupt; the caller's `cancel` then
wakes the call (stopping the stream does) and the exception goes on."""

import _thread
import threading

# Waiting for a cancelled call to end: cancelling wakes it at once, so this
# only bounds a stalled machine.
CANCEL_WAIT_SECONDS = 5.0


def on_main_thread():
    return threading.current_thread() is threading.main_thread()


class Caller:
    """Runs calls on a helper thread of its own, started at the first call."""

    def __init__(self, name):
        self._name = name
        self._helper = None  # used by one calling thread at a time

    def call(self, fn, args, cancel):
        """fn(*args), interruptible: on an exception raised by a signal
        handler meanwhile, cancel() is called, the call is waited for, and
        the exception is raised."""
        helper = self._helper
        if helper is None:
            helper = self._helper = _Helper(self._name)
        helper.job = (fn, args)
        helper.go.release()
        try:
            helper.done.acquire()
        except BaseException:
            cancel()
            if not helper.wait_done():
                self._helper = None  # still inside the library: left to finish alone
            raise
        (result, error), helper.outcome = helper.outcome, None
        if error is not None:
            raise error
        return result

    def close(self):
        """Ends the helper thread (after its current call)."""
        helper, self._helper = self._helper, None
        if helper is not None:
            helper.job = None
            helper.go.release()


class _Helper:
    def __init__(self, name):
        # Handed between the two threads: the caller releases `go` once `job`
        # is set, the helper releases `done` once `outcome` is set.
        self.go = _thread.allocate_lock()
        self.done = _thread.allocate_lock()
        self.go.acquire()
        self.done.acquire()
        self.job = None
        self.outcome = None
        threading.Thread(target=self._serve, name=name, daemon=True).start()

    def wait_done(self):
        """Waits for a cancelled call to end; a second Ctrl-C meanwhile does
        not leave it inside the library. False when it did not end in time."""
        for _ in range(int(CANCEL_WAIT_SECONDS / 0.1)):
            try:
                if self.done.acquire(timeout=0.1):
                    self.outcome = None
                    return True
            except BaseException:
                pass
        return False

    def _serve(self):
        while True:
            self.go.acquire()
            if self.job is None:
                return
            fn, args = self.job
            try:
                self.outcome = (fn(*args), None)
            except BaseException as e:  # handed to the caller
                self.outcome = (None, e)
            self.done.release()
