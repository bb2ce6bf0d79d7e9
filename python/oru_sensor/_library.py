"""Finding and loading liboru_device (and, for virtual sensors, the drop-in
USB library that must be in the process before it). The library's own lines
go to the `logging` module, logger "oru_sensor": errors at WARNING, the rest
at DEBUG."""

import atexit
import ctypes
import ctypes.util
import logging
import os
import sysconfig

_HERE = os.path.dirname(os.path.abspath(__file__))
try:  # present in an installed package
    from ._paths import LIBDIR as _LIBDIR
except ImportError:
    _LIBDIR = None
_loaded = None          # the ctypes library
_loaded_virtual = None  # None: real USB; otherwise the virtual sensor count asked for


def _candidates_library():
    env = os.environ.get("ORU_DEVICE_LIBRARY")
    if env:
        yield env
    yield os.path.join(_HERE, "liboru_device.so.1")
    if _LIBDIR:
        yield os.path.join(_LIBDIR, "liboru_device.so.1")
    yield os.path.join(_HERE, "..", "..", "build", "liboru_device.so.1")  # source checkout
    found = ctypes.util.find_library("oru_device")
    if found:
        yield found
    yield "liboru_device.so.1"


def _candidates_dropin(libdir_hint):
    env = os.environ.get("ORU_VSENSOR_LIBRARY")
    if env:
        yield env
    yield os.path.join(_HERE, "virtual-sensor", "libusb-1.0.so.0")
    yield os.path.join(_HERE, "..", "..", "build", "virtual-sensor", "libusb-1.0.so.0")
    if libdir_hint:
        yield os.path.join(libdir_hint, "oru_device", "virtual-sensor", "libusb-1.0.so.0")
        yield os.path.join(libdir_hint, "virtual-sensor", "libusb-1.0.so.0")
    # Where the liboru-device1 package puts it, for a module installed by pip.
    multiarch = sysconfig.get_config_var("MULTIARCH")
    if multiarch:
        for prefix in ("/usr", "/usr/local"):
            yield os.path.join(prefix, "lib", multiarch, "oru_device", "virtual-sensor", "libusb-1.0.so.0")


def _first(paths, mode):
    errors = []
    for p in paths:
        if os.sep in p and not os.path.exists(p):
            continue
        try:
            return ctypes.CDLL(p, mode=mode), p
        except OSError as e:
            errors.append("%s: %s" % (p, e))
    raise OSError("cannot load: " + "; ".join(errors) if errors else "no candidate found")


def _declare(lib):
    c_int, c_double = ctypes.c_int, ctypes.c_double
    p_int, p_double = ctypes.POINTER(c_int), ctypes.POINTER(c_double)
    sigs = {
        "duConnect": ([], c_int),
        "duDisconnect": ([], c_int),
        "duGetSensorList": ([], ctypes.POINTER(ctypes.c_void_p)),
        "duGetMaxSensorCount": ([], c_int),
        "duActivateSensorWithIndex": ([c_int], c_int),
        "duActivateSensorWithID": ([ctypes.c_char_p], c_int),
        "duGetTotalSensors": ([], c_int),
        "duGetSensorID": ([ctypes.c_char_p], c_int),
        "duGetShutterSpeed": ([], c_int),
        "duGetShutterSpeedLimits": ([p_int, p_int], c_int),
        "duShutterSpeedToExposureTime": ([c_int, c_int, p_double], c_int),
        "duExposureTimeToShutterSpeed": ([c_int, c_double, p_int], c_int),
        "duSetShutterSpeed": ([c_int], c_int),
        "duGetOptimalShutterSpeed2": ([p_int, c_int, c_int], c_int),
        "duGetOptimalShutterSpeed": ([p_int, c_int], c_int),
        "duGetFilterData": ([p_double, c_int], c_int),
        "duSetSensorParameters": ([c_int, c_int], c_int),
        "duGetSensorParameters": ([p_int, p_int], c_int),
        "duStartFrameStream": ([], c_int),
        "duStopFrameStream": ([], c_int),
        "duReadFrameStream": ([p_double, c_int, c_int, ctypes.c_void_p], c_int),
        "duReadFrameStreamOf": ([c_int, p_double, c_int, c_int, ctypes.c_void_p], c_int),
        "duGetSensorState": ([c_int], c_int),
        "duReconnectSensor": ([c_int, ctypes.c_char_p], c_int),
        "duLockSensors": ([], None),
        "duUnlockSensors": ([], None),
        "duSetLogHandler": ([_LOG_HANDLER, ctypes.c_void_p], None),
        "duGetErrorText": ([c_int], ctypes.c_char_p),
        "duCountSaturatedFilters": ([p_double, c_int], c_int),
        "duReadFrameStreamMaskOf": ([c_int, p_double, c_int, c_int, ctypes.c_void_p, ctypes.c_void_p], c_int),
        "duGetLastRequestSaturation": ([c_int, ctypes.c_void_p], c_int),
    }
    for name, (args, res) in sigs.items():
        fn = getattr(lib, name)
        fn.argtypes = args
        fn.restype = res
    return lib


_LOG_HANDLER = ctypes.CFUNCTYPE(None, ctypes.c_int, ctypes.c_char_p, ctypes.c_void_p)
_logger = logging.getLogger("oru_sensor")


def _forward_line(level, line, _user):
    # Called from the library's threads too (its event thread for the bulk
    # transfer lines); ctypes takes the GIL for us.
    _logger.log(logging.WARNING if level else logging.DEBUG, "%s", line.decode("latin-1", "replace"))


_forward = _LOG_HANDLER(_forward_line)  # kept alive for as long as the library may call it


def _route_lines_to_logging(lib):
    lib.duSetLogHandler(_forward, None)
    # Before the interpreter goes away, hand the lines back to the library.
    atexit.register(lib.duSetLogHandler, _LOG_HANDLER(), None)


def load(virtual=None):
    """Loads the library once per process. `virtual` is a number of virtual
    sensors, or None for real USB devices; the choice cannot change later in
    the same process, because the USB library is bound at load time."""
    global _loaded, _loaded_virtual
    if _loaded is not None:
        if (virtual is None) != (_loaded_virtual is None):
            raise RuntimeError("liboru_device is already loaded %s; start a new process to switch"
                               % ("for virtual sensors" if _loaded_virtual is not None else "for USB hardware"))
        if virtual is not None and virtual != _loaded_virtual:
            raise RuntimeError("liboru_device is already loaded for %d virtual sensors; start a new process "
                               "for %d" % (_loaded_virtual, virtual))
        return _loaded
    if virtual is not None:
        os.environ["ORU_VSENSOR_COUNT"] = str(virtual)
        hint = os.path.dirname(os.environ.get("ORU_DEVICE_LIBRARY", "")) or _LIBDIR
        _first(_candidates_dropin(hint), ctypes.RTLD_GLOBAL)
    lib, _ = _first(_candidates_library(), ctypes.RTLD_GLOBAL)
    _loaded, _loaded_virtual = _declare(lib), virtual
    _route_lines_to_logging(_loaded)
    return _loaded


def error_text(result):
    """The library's words for a result; "error" while it is not loaded."""
    if _loaded is None:
        return "error"
    return _loaded.duGetErrorText(result).decode("ascii", "replace")


def count_saturated(values):
    """Values at full scale (4095 DN or more), by the library's count: the
    saturated filters of one frame, but of an average only those saturated in
    every frame. A reading's own count comes from its flags (see
    saturated_indices)."""
    try:  # ctypes arrays, numpy float64 arrays and array('d'): no per-value copy
        buf = (ctypes.c_double * len(values)).from_buffer_copy(values)
    except (TypeError, ValueError):
        buf = (ctypes.c_double * len(values))(*[float(v) for v in values])
    return _loaded.duCountSaturatedFilters(buf, len(values))


def saturated_indices(flags):
    """The filters a reading's saturation flags (1024 bytes from the library:
    1 where any frame of the reading hit 4095 DN) mark, in order."""
    raw, found, at = bytes(flags), [], 0
    while True:
        at = raw.find(1, at)
        if at < 0:
            return tuple(found)
        found.append(at)
        at += 1


def request_saturated_indices(lib, index):
    """The saturated filters of the last request on sensor `index`
    (duGetLastRequestSaturation), or None when the library knows none."""
    flags = (ctypes.c_ubyte * 1024)()
    return saturated_indices(flags) if lib.duGetLastRequestSaturation(index, flags) >= 0 else None
