"""Exceptions for the library's negative results, one class per error code."""

from . import _library


class OruError(Exception):
    """A call into liboru_device returned a negative result. The message
    carries the library's words for the code (duGetErrorText)."""

    code = None

    def __init__(self, code, message=None):
        self.code = code
        super().__init__(message or "%s (code %d)" % (_library.error_text(code), code))


class Fail(OruError):
    code = -1


class UndefinedFail(OruError):
    code = 0


class MemoryIsNull(OruError):
    code = -2


class NoDeviceInSystem(OruError):
    code = -3


class FailToConnectDevice(OruError):
    code = -4


class FailToCreateDeviceObj(OruError):
    code = -5


class FailToInitializeDevice(OruError):
    code = -6


class DeviceObjectIsNull(OruError):
    code = -7


class SensorIdIsEmpty(OruError):
    code = -8


class FwRecvTimeout(OruError):
    code = -9


class WrongReply(OruError):
    code = -23


class IllDefinedInput(OruError):
    code = -24


class InitializationRequired(OruError):
    code = -26


_BY_CODE = {cls.code: cls for cls in (
    Fail, UndefinedFail, MemoryIsNull, NoDeviceInSystem, FailToConnectDevice, FailToCreateDeviceObj,
    FailToInitializeDevice, DeviceObjectIsNull, SensorIdIsEmpty, FwRecvTimeout, WrongReply,
    IllDefinedInput, InitializationRequired)}


def check(result, what=None):
    """Returns `result` when it is a success, raises the matching OruError otherwise."""
    if result > 0:
        return result
    cls = _BY_CODE.get(result, OruError)
    err = cls(result)
    if what:
        err.args = ("%s: %s" % (what, err.args[0]),)
    raise err
