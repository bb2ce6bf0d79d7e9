"""CPU per reading of a frame stream, the Python binding against the C
reader (stream_reader.c), side by side in one run, on one virtual sensor
paced in real time at shutter speed 1: of the whole process, and of the
threads that read (C: the caller's; Python: its own threads, the main one
and the binding's helper). Not a test.

    /usr/bin/python3 bench/python_stream.py --build build-bench [--before REV] [--seconds 5]

Each reader is a process of its own; both include the virtual sensor's frame
making, which runs in the reading process. --before REV also runs the
binding of that git revision (on today's library) for the figures before a
change.
"""

import argparse
import os
import statistics
import subprocess
import sys
import tempfile
import threading
import time

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE = os.path.dirname(HERE)


def python_threads_cpu():
    return sum(time.clock_gettime(time.pthread_getcpuclockid(t.ident)) for t in threading.enumerate())


def python_reader(averages, seconds, numpy):
    if not numpy:
        sys.modules["numpy"] = None  # import numpy raises ImportError
    import oru_sensor
    with oru_sensor.connect(virtual=1) as (s,):
        s.shutter_speed = 1
        with s.stream(averages=averages) as readings:
            next(readings)  # as the C reader: measure a stream that runs
            cpu, threads_cpu, start, count = time.process_time(), python_threads_cpu(), time.monotonic(), 0
            for r in readings:
                count += 1
                if time.monotonic() - start >= seconds:
                    break
            cpu, threads_cpu = time.process_time() - cpu, python_threads_cpu() - threads_cpu
    print("readings %d cpu_us %.1f dropped %d reader_cpu_us %.1f" % (count, cpu * 1e6 / count, r.dropped,
                                                                    threads_cpu * 1e6 / count))


def run(command, env):
    out = subprocess.run(command, env=env, capture_output=True, text=True, timeout=600)
    fields = out.stdout.split()
    if out.returncode != 0 or len(fields) < 8:
        raise SystemExit("%s failed: %s%s" % (command, out.stdout, out.stderr))
    return int(fields[1]), float(fields[3]), int(fields[5]), float(fields[7])


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--build", default=os.path.join(SOURCE, "build-bench"))
    ap.add_argument("--before", help="git revision whose Python binding to measure too")
    ap.add_argument("--seconds", type=float, default=5.0)
    ap.add_argument("--rounds", type=int, default=3)
    ap.add_argument("--averages", default="1,10")
    ap.add_argument("--reader", nargs=3, help=argparse.SUPPRESS)
    args = ap.parse_args()
    if args.reader:
        return python_reader(int(args.reader[0]), float(args.reader[1]), args.reader[2] == "numpy")

    build = os.path.abspath(args.build)
    env = dict(os.environ, ORU_VSENSOR_COUNT="1", ORU_VSENSOR_REALTIME="1", ORU_DEVICE_LOG="off",
               LD_LIBRARY_PATH=os.path.join(build, "virtual-sensor"),
               ORU_DEVICE_LIBRARY=os.path.join(build, "liboru_device.so.1"),
               ORU_VSENSOR_LIBRARY=os.path.join(build, "virtual-sensor", "libusb-1.0.so.0"))
    packages = {"now": os.path.join(SOURCE, "python")}
    tmp = tempfile.TemporaryDirectory()
    if args.before:
        archive = subprocess.run(["git", "-C", SOURCE, "archive", args.before, "python/oru_sensor"],
                                 capture_output=True, check=True).stdout
        subprocess.run(["tar", "-x", "-C", tmp.name], input=archive, check=True)
        packages["before"] = os.path.join(tmp.name, "python")
    me = os.path.abspath(__file__)
    # (name, PYTHONPATH or None, command for n averages)
    readers = [("C", None, lambda n: [os.path.join(build, "bench", "stream_reader"), str(n), str(args.seconds)])]
    for name, path in packages.items():
        for kind in ("numpy", "array"):
            readers.append(("Python %s, %s" % (name, kind), path,
                            lambda n, kind=kind: [sys.executable, me, "--reader", str(n), str(args.seconds), kind]))
    print("machine: %s cores, load %s" % (os.cpu_count(), " ".join(open("/proc/loadavg").read().split()[:3])))
    for averages in [int(a) for a in args.averages.split(",")]:
        results = {name: [] for name, _, _ in readers}
        for _ in range(args.rounds):  # interleaved, so that load changes hit every reader alike
            for name, path, command in readers:
                results[name].append(run(command(averages), dict(env, PYTHONPATH=path) if path else env))
        c_cpu, c_reader = (statistics.median(r[k] for r in results["C"]) for k in (1, 3))
        print("\nn = %d, %g s per run, median of %d runs; CPU in us per reading" % (averages, args.seconds,
                                                                                 args.rounds))
        print("%-22s %9s %9s %6s %9s %6s %8s" % ("reader", "readings", "process", "x C", "readers", "x C",
                                                 "dropped"))
        for name, _, _ in readers:
            rs = results[name]
            cpu, reader = (statistics.median(r[k] for r in rs) for k in (1, 3))
            print("%-22s %9d %9.1f %6.2f %9.1f %6.2f %8d" % (name, statistics.median(r[0] for r in rs), cpu,
                                                             cpu / c_cpu, reader, reader / c_reader,
                                                             max(r[2] for r in rs)))


if __name__ == "__main__":
    main()
