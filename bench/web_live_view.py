"""Measures the live view server with one headless Chromium page: server CPU,
server RSS and the page's DOM node count over time. Not a test.

    PYTHONPATH=python ORU_DEVICE_LIBRARY=build/liboru_device.so.1 \\
    ORU_VSENSOR_LIBRARY=build/virtual-sensor/libusb-1.0.so.0 \\
    /usr/bin/python3 bench/web_live_view.py --minutes 10 --shutter 100 --max-rate 25
"""

import argparse
import json
import os
import re
import subprocess
import sys
import time
import urllib.request

from selenium import webdriver
from selenium.webdriver.chrome.service import Service

TICK = os.sysconf("SC_CLK_TCK")


def cpu_seconds(pid):
    fields = open("/proc/%d/stat" % pid).read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / TICK


def rss_kib(pid):
    return int(re.search(r"VmRSS:\s+(\d+)", open("/proc/%d/status" % pid).read()).group(1))


def main():
    p = argparse.ArgumentParser()
    p.add_argument("--minutes", type=float, default=10)
    p.add_argument("--shutter", type=int, default=100)
    p.add_argument("--max-rate", default="25")
    p.add_argument("--samples", type=int, default=10)
    a = p.parse_args()
    srv = subprocess.Popen([sys.executable, "-m", "oru_sensor.web", "--virtual", "1", "--port", "0", "--quiet",
                            "--max-rate", a.max_rate], stdout=subprocess.PIPE, text=True)
    base = re.search(r"(http://\S+/)", srv.stdout.readline()).group(1)
    req = urllib.request.Request(base + "api/shutter", json.dumps({"shutter_speed": a.shutter}).encode(),
                                 {"Content-Type": "application/json"})
    urllib.request.urlopen(req, timeout=10).read()
    opts = webdriver.ChromeOptions()
    opts.binary_location = "/usr/bin/chromium"
    for o in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--window-size=1200,900"):
        opts.add_argument(o)
    driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=opts)
    driver.get(base)
    driver.execute_script("window.__n = 0; const s = new EventSource('api/events');"
                          "s.addEventListener('reading', () => window.__n++); window.__probe = s;")
    time.sleep(5)
    period = a.minutes * 60 / a.samples
    print("min  server-cpu%  rss-MiB  dom-nodes  updates/s  js-heap-MiB", flush=True)
    t0, c0 = time.monotonic(), cpu_seconds(srv.pid)
    n0 = driver.execute_script("return window.__n")
    for i in range(1, a.samples + 1):
        time.sleep(period)
        t, c = time.monotonic(), cpu_seconds(srv.pid)
        n = driver.execute_script("return window.__n")
        nodes = driver.execute_script("return document.getElementsByTagName('*').length")
        heap = driver.execute_script("return performance.memory ? performance.memory.usedJSHeapSize : 0")
        print("%4.1f  %10.1f  %7.1f  %9d  %9.1f  %11.1f" % ((t - t0) / 60, 100 * (c - c0) / (t - t0) if i == 1 else
              100 * (c - pc) / (t - pt), rss_kib(srv.pid) / 1024, nodes, (n - pn if i > 1 else n - n0) / (t - (pt if i > 1 else t0)),
              heap / 2**20), flush=True)
        pt, pc, pn = t, c, n
    print("whole run: server CPU %.1f %% of a core" % (100 * (cpu_seconds(srv.pid) - c0) / (time.monotonic() - t0)))
    driver.quit()
    srv.send_signal(2)
    srv.wait(15)


if __name__ == "__main__":
    main()
