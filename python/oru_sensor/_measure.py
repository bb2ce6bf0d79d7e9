"""Measurement modes, stored darks and references, and reading files: thin
wrappers of the library's measurement functions, which do all the arithmetic
and write and parse the files."""

import ctypes

from ._errors import IllDefinedInput, OruError

NUM_FILTERS = 1024
MODES = ("raw", "dark", "rate", "transmittance", "reflectance", "absorbance")
FILE_CSV, FILE_JSONL = 1, 2
KIND_READINGS, KIND_DARK, KIND_REFERENCE = 0, 1, 2
MAX_FILE_SENSORS = 16


class ReadingSettings(ctypes.Structure):
    """The settings a reading was taken at (duReadingSettings)."""

    _fields_ = [("shutter_speed", ctypes.c_int32), ("master_clock", ctypes.c_int32),
                ("adc_gain", ctypes.c_int32), ("adc_range", ctypes.c_int32)]

    def __repr__(self):
        return "ReadingSettings(shutter_speed=%d, master_clock=%d, adc_gain=%d, adc_range=%d)" % (
            self.shutter_speed, self.master_clock, self.adc_gain, self.adc_range)


class StoredReading(ctypes.Structure):
    """A dark or reference reading with its settings (duStoredReading)."""

    _fields_ = [("values", ctypes.c_double * NUM_FILTERS), ("settings", ReadingSettings),
                ("averages", ctypes.c_int32), ("saturated_filters", ctypes.c_int32),
                ("taken_realtime_ns", ctypes.c_int64)]


class MeasureResult(ctypes.Structure):
    _fields_ = [("refusal", ctypes.c_int32), ("dark_source", ctypes.c_int32), ("saturated_count", ctypes.c_int32),
                ("invalid_count", ctypes.c_int32), ("sample_dark_level", ctypes.c_double),
                ("exposure_us", ctypes.c_double)]


class SensorMetadata(ctypes.Structure):
    _fields_ = [("sensor_id", ctypes.c_char * 32), ("settings", ReadingSettings),
                ("dark_taken_ns", ctypes.c_int64), ("dark_averages", ctypes.c_int32),
                ("reference_taken_ns", ctypes.c_int64), ("reference_averages", ctypes.c_int32)]


class FileHeader(ctypes.Structure):
    _fields_ = [("kind", ctypes.c_int32), ("mode", ctypes.c_int32), ("sensor_count", ctypes.c_int32),
                ("sensors", SensorMetadata * MAX_FILE_SENSORS)]


class ReadingRow(ctypes.Structure):
    _fields_ = [("sensor_id", ctypes.c_char_p), ("realtime_ns", ctypes.c_int64),
                ("first_sequence", ctypes.c_int64), ("last_sequence", ctypes.c_int64),
                ("shutter_speed", ctypes.c_int32), ("master_clock", ctypes.c_int32), ("averages", ctypes.c_int32),
                ("saturated_filters", ctypes.c_int32), ("gap_s", ctypes.c_double),
                ("values", ctypes.POINTER(ctypes.c_double))]


class MeasurementRefused(IllDefinedInput):
    """The library refused a measurement: a dark or reference taken at other
    settings, or saturated, or a ratio mode without a reference. The message
    is the library's line (duMeasureRefusalText); `refusal` its number."""

    def __init__(self, refusal, message):
        self.refusal = refusal
        super().__init__(self.code, message)


def refused(lib, refusal):
    return MeasurementRefused(refusal, lib.duMeasureRefusalText(refusal).decode())


def declare(lib):
    """Prototypes of the measurement functions on the loaded library."""
    c_int, c_char_p, p = ctypes.c_int, ctypes.c_char_p, ctypes.POINTER
    sigs = {
        "duGetLibraryVersion": ([], c_char_p),
        "duExactExposureTimeUs": ([c_int, c_int, p(ctypes.c_double)], c_int),
        "duMeasure": ([c_int, p(ctypes.c_double), p(ReadingSettings), ctypes.c_void_p, p(StoredReading),
                       p(StoredReading), p(ctypes.c_double), p(MeasureResult)], c_int),
        "duMeasureRefusalText": ([c_int], c_char_p),
        "duMeasureModeUnit": ([c_int], c_char_p),
        "duFormatFileHeader": ([c_int, p(FileHeader), ctypes.c_char_p, c_int], c_int),
        "duFormatReadingRow": ([c_int, p(ReadingRow), ctypes.c_char_p, c_int], c_int),
        "duLoadStoredReading": ([c_char_p, c_char_p, p(StoredReading), ctypes.c_char_p, ctypes.c_char_p, c_int],
                                c_int),
    }
    for name, (args, res) in sigs.items():
        fn = getattr(lib, name)
        fn.argtypes, fn.restype = args, res
    return lib


def mode_number(mode):
    if mode not in MODES:
        raise ValueError("mode must be one of %s, not %r" % (", ".join(MODES), mode))
    return MODES.index(mode)


def mode_unit(lib, mode):
    return lib.duMeasureModeUnit(mode_number(mode)).decode()


def exact_exposure_us(lib, master_clock, shutter_speed):
    us = ctypes.c_double()
    if lib.duExactExposureTimeUs(master_clock, shutter_speed, ctypes.byref(us)) != 1:
        raise ValueError("no exposure for shutter speed %r at master clock %r" % (shutter_speed, master_clock))
    return us.value


def as_doubles(values):
    """A ctypes array of 1024 doubles from any sequence of 1024 numbers."""
    if len(values) != NUM_FILTERS:
        raise ValueError("a reading has %d values, not %d" % (len(values), NUM_FILTERS))
    if isinstance(values, ctypes.Array) and values._type_ is ctypes.c_double:  # the library's own output
        return values
    try:  # numpy float64 arrays and array('d'): one copy, no per-value conversion
        if memoryview(values).format == "d":
            return (ctypes.c_double * NUM_FILTERS).from_buffer_copy(values)
    except TypeError:  # a list, or no buffer
        pass
    return (ctypes.c_double * NUM_FILTERS)(*[float(v) for v in values])


def measure(lib, mode, values, settings, saturated_mask=None, dark=None, reference=None):
    """(output buffer, MeasureResult) of mode on values; raises
    MeasurementRefused with the library's reason when the dark or reference
    does not fit."""
    out = (ctypes.c_double * NUM_FILTERS)()
    result = MeasureResult()
    mask = None
    if saturated_mask is not None:
        mask = (ctypes.c_ubyte * NUM_FILTERS)(*[1 if m else 0 for m in saturated_mask])
    rc = lib.duMeasure(mode_number(mode), as_doubles(values), ctypes.byref(settings), mask,
                       ctypes.byref(dark) if dark is not None else None,
                       ctypes.byref(reference) if reference is not None else None, out, ctypes.byref(result))
    if rc != 1:
        raise refused(lib, result.refusal)
    return out, result


def _text(fn, *args):
    n = fn(*args, None, 0)
    if n < 0:
        raise ValueError("cannot format this reading")
    buf = ctypes.create_string_buffer(n + 1)
    fn(*args, buf, n + 1)
    return buf.value.decode()


def format_header(lib, file_format, kind, mode, sensors):
    """sensors: (sensor_id, ReadingSettings, dark StoredReading or None,
    reference StoredReading or None) for each sensor of the file."""
    header = FileHeader(kind=kind, mode=mode_number(mode), sensor_count=len(sensors))
    for meta, (sensor_id, settings, dark, reference) in zip(header.sensors, sensors):
        meta.sensor_id = sensor_id.encode()
        meta.settings = settings
        if dark is not None:
            meta.dark_taken_ns, meta.dark_averages = dark.taken_realtime_ns, dark.averages
        if reference is not None:
            meta.reference_taken_ns, meta.reference_averages = reference.taken_realtime_ns, reference.averages
    return _text(lib.duFormatFileHeader, file_format, ctypes.byref(header))


def format_row(lib, file_format, sensor_id, realtime_ns, first_sequence, last_sequence, settings, averages,
               saturated, gap_s, values):
    buf = as_doubles(values)
    row = ReadingRow(sensor_id.encode(), realtime_ns, -1 if first_sequence is None else first_sequence,
                     -1 if last_sequence is None else last_sequence, settings.shutter_speed, settings.master_clock,
                     averages, saturated, gap_s, ctypes.cast(buf, ctypes.POINTER(ctypes.c_double)))
    return _text(lib.duFormatReadingRow, file_format, ctypes.byref(row))


def load_stored(lib, path, sensor_id=None):
    """(StoredReading, sensor ID) of the first reading (of sensor_id) in a
    reading file; OSError when it cannot be opened, IllDefinedInput when it is
    not a raw reading file."""
    stored = StoredReading()
    got_id = ctypes.create_string_buffer(32)
    error = ctypes.create_string_buffer(512)
    rc = lib.duLoadStoredReading(str(path).encode(), sensor_id.encode() if sensor_id else None,
                                 ctypes.byref(stored), got_id, error, len(error))
    if rc == -27:
        raise OSError(error.value.decode(errors="replace"))
    if rc != 1:
        raise IllDefinedInput(-24, error.value.decode(errors="replace"))
    return stored, got_id.value.decode()


__all__ = ["MODES", "ReadingSettings", "StoredReading", "OruError"]
