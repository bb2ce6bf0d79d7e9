"""Snapshot rows in the command line tool's format: CSV and JSON.

CSV: a header line, then one row; columns time, sensor_id, first_sequence,
last_sequence, shutter_speed, averages, saturated, f0..f1023.
JSON: one object with the same keys, the 1024 outputs under "values"
(values[i] is column f<i> of the CSV). Values carry 4 decimals, as the
tool writes them; the time is local with its UTC offset.
"""

import json

NUM_FILTERS = 1024
COLUMNS = ["time", "sensor_id", "first_sequence", "last_sequence", "shutter_speed", "averages", "saturated"]


def _number(v):
    return "%.4f" % v


def _cell(v):
    return "" if v is None else str(v)


def as_dict(reading):
    return {
        "time": reading.time.isoformat(timespec="milliseconds"),
        "sensor_id": reading.sensor_id,
        "first_sequence": reading.first_sequence,
        "last_sequence": reading.last_sequence,
        "shutter_speed": reading.shutter_speed,
        "averages": reading.averages,
        "saturated": reading.saturated,
        "values": [round(float(v), 4) for v in reading.values],
    }


def as_csv(reading):
    d = as_dict(reading)
    header = COLUMNS + ["f%d" % i for i in range(NUM_FILTERS)]
    row = [_cell(d[c]) for c in COLUMNS] + [_number(v) for v in d["values"]]
    return ",".join(header) + "\n" + ",".join(row) + "\n"


def as_json(reading):
    return json.dumps(as_dict(reading), separators=(",", ":")) + "\n"
