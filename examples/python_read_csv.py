#!/usr/bin/env python3
"""Read filter data from the first sensor and save it as CSV; plot it when
matplotlib is installed.   python3 python_read_csv.py [--virtual] [out.csv]"""

import csv
import sys

import oru_sensor


def main(argv):
    virtual = 1 if "--virtual" in argv else None
    args = [a for a in argv if not a.startswith("--")]
    path = args[0] if args else "filter_data.csv"
    with oru_sensor.connect(virtual=virtual) as sensors:
        sensor = sensors[0]
        shutter = sensor.optimal_shutter_speed()
        data = sensor.read_filter_data(averages=10)
        sensor_id = sensor.sensor_id
    with open(path, "w", newline="") as f:
        w = csv.writer(f)
        w.writerow(["filter", "dn"])
        for i, v in enumerate(data):
            w.writerow([i, "%.3f" % v])
    print("%s: shutter %d, %d values written to %s" % (sensor_id, shutter, len(data), path))
    try:
        import matplotlib
        matplotlib.use("Agg")
        import matplotlib.pyplot as plt
    except ImportError:
        return 0
    plt.plot(list(data))
    plt.xlabel("Filter index")
    plt.ylabel("Filter output (DN)")
    plt.title("%s, shutter %d" % (sensor_id, shutter))
    plt.savefig(path.rsplit(".", 1)[0] + ".png", dpi=100)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
