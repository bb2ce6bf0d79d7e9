"""Reading files: the library writes the header and every row (CSV or JSON
Lines) and parses them back; this picks the format and moves the text."""

import datetime
import os

from . import _measure, _measuring
from ._sensor import AdcSettings
from ._stream import Reading, values_of

FORMATS = {".csv": _measure.FILE_CSV, ".jsonl": _measure.FILE_JSONL}
KINDS = {"readings": _measure.KIND_READINGS, "dark": _measure.KIND_DARK, "reference": _measure.KIND_REFERENCE}


def file_format(path):
    suffix = os.path.splitext(str(path))[1].lower()
    if suffix not in FORMATS:
        raise ValueError("a reading file ends in .csv or .jsonl, not %r" % str(path))
    return FORMATS[suffix]


def _stored_or_none(reading, role):
    return None if reading is None else _measuring.stored(reading, role)


def save_readings(path, readings):
    """Writes readings (of one mode and kind, up to 16 sensors) to path, CSV
    or JSON Lines by its suffix: a header with each sensor's settings, the
    mode and unit, the dark and reference identity and the library version,
    then one row per reading."""
    readings = list(readings)
    fmt, lib = file_format(path), _measuring.library()
    if not readings:
        raise ValueError("no readings to save")
    first = readings[0]
    if any(r.mode != first.mode or r.kind != first.kind for r in readings):
        raise ValueError("the readings of one file share one mode and kind")
    sensors = {}
    for r in readings:  # each sensor as its first reading in the file was taken
        if r.adc is None:
            raise ValueError("a reading without its ADC settings cannot be saved")
        if r.sensor_id not in sensors:
            settings = _measuring.settings_of(r.shutter_speed, r.master_clock, r.adc)
            sensors[r.sensor_id] = (r.sensor_id, settings, _stored_or_none(r.dark, "dark"),
                                    _stored_or_none(r.reference, "reference"))
    if len(sensors) > _measure.MAX_FILE_SENSORS:
        raise ValueError("a reading file holds at most %d sensors" % _measure.MAX_FILE_SENSORS)
    with open(path, "w", encoding="utf-8") as out:
        out.write(_measure.format_header(lib, fmt, KINDS[first.kind], first.mode, list(sensors.values())))
        for r in readings:
            out.write(_measure.format_row(lib, fmt, r.sensor_id, r.realtime_ns, r.first_sequence, r.last_sequence,
                                          r, r.averages, r.saturated, r.gap_before, r.values))


def load_reading(path, sensor_id=None):
    """The first raw reading (of sensor_id, default: the file's first
    sensor) of a reading file, as a Reading to use as a dark or reference,
    with the settings its file gives. OSError when the file cannot be read;
    IllDefinedInput with the library's line when it is not a raw reading
    file. Uses the library connect() loaded (or loads it for USB sensors)."""
    stored, got_id = _measure.load_stored(_measuring.library(), path, sensor_id)
    taken = datetime.datetime.fromtimestamp(stored.taken_realtime_ns / 1e9, tz=datetime.timezone.utc)
    s = stored.settings
    reading = Reading(values_of(stored.values), first_sequence=None, last_sequence=None, time=taken.astimezone(),
                      monotonic=None, shutter_speed=s.shutter_speed, averages=stored.averages,
                      saturated=stored.saturated_filters, dropped=0, sensor_id=got_id,
                      realtime_ns=stored.taken_realtime_ns, master_clock=s.master_clock,
                      adc=AdcSettings(s.adc_gain, s.adc_range))
    return _measuring.Measuring("raw").apply(reading, reading.adc)
