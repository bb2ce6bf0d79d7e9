"use strict";
// Live view: readings arrive by server-sent events; the trace is drawn on a canvas.
(function () {
  const MAX_DN = 4095;
  const $ = (id) => document.getElementById(id);
  const canvas = $("plot");
  const ctx = canvas.getContext("2d");
  const LEFT = 56, RIGHT = 16, TOP = 8, BOTTOM = 34;  // CSS pixels around a plot's area
  let latest = null;        // the last reading drawn or to draw, as the server measured it
  let status = {};
  let pending = false;      // a frame is requested
  let searching = false;    // auto exposure asked for, its result not yet in
  const edited = new Set(); // fields the user typed in: readings do not overwrite them

  function showError(text) {
    const m = $("message");
    m.textContent = text || "";
    m.hidden = !text;
  }

  function setText(id, text) {
    const el = $(id);
    if (el.textContent !== text) el.textContent = text;
  }

  // The exact exposure is a whole number of microseconds at the live view's clock.
  const ms = (x) => (x >= 1000 ? x.toFixed(1) : x >= 100 ? x.toFixed(2) : x.toFixed(3)) + " ms";
  const kept = (k) => (k ? "shutter " + k.shutter_speed + ", " + k.averages + " averaged, " + k.time.slice(11, 19) : "none");

  function showStatus(s) {
    status = Object.assign(status, s);
    setText("s-id", status.sensor_id || "–");
    setText("s-shutter", String(status.shutter_speed ?? "–"));
    setText("s-exposure", status.exposure_ms != null ? ms(status.exposure_ms) : "–");
    setText("s-dark", kept(status.dark));
    setText("s-reference", kept(status.reference));
    $("dark-csv").hidden = !status.dark;
    $("reference-csv").hidden = !status.reference;
    $("dark-forget").hidden = !status.dark;
    $("reference-forget").hidden = !status.reference;
    if (status.mode && document.activeElement !== $("mode")) $("mode").value = status.mode;
    $("fixed").disabled = status.mode !== "raw";
    const alg = $("algorithm");
    if (status.algorithms && status.algorithms.length && alg.options.length !== status.algorithms.length) {
      alg.replaceChildren(...status.algorithms.map((a) => new Option(a, a)));
      $("algorithm-label").hidden = false;
      $("spectrum-view").hidden = false;
    }
    if (status.algorithm && document.activeElement !== alg) alg.value = status.algorithm;
    setText("s-averages", String(status.averages ?? "–"));
    setText("s-rate", status.rate != null ? status.rate.toFixed(1) : "–");
    setText("s-dropped", String(status.dropped ?? "–"));
    setText("s-state", status.busy || (status.pending ? "applying" : (status.state || "–")));
    setText("pause", status.paused ? "Resume" : "Pause");
    const sel = $("sensor");
    if (status.sensors && sel.options.length !== status.sensors.length) {
      sel.replaceChildren(...status.sensors.map((id, i) => new Option(id, String(i))));
    }
    if (status.states) {  // a removed sensor stays in the list, marked
      status.states.forEach((st, i) => {
        const label = status.sensors[i] + (st === "usable" ? "" : " (" + st + ")");
        if (sel.options[i] && sel.options[i].text !== label) sel.options[i].text = label;
      });
    }
    if (searching && (status.auto_exposure != null || (status.error && !status.pending))) {
      searching = false;
      $("auto").disabled = false;
      setText("auto", "Auto exposure");
    }
    if (status.sensor != null && document.activeElement !== sel) sel.value = String(status.sensor);
    if (status.shutter_limits) { $("shutter").min = status.shutter_limits[0]; $("shutter").max = status.shutter_limits[1]; }
    if (!edited.has("shutter") && status.shutter_speed != null) $("shutter").value = status.shutter_speed;
    if (!edited.has("averages") && status.averages != null) $("averages").value = status.averages;
    if (status.error) showError(status.error);
  }

  function fitCanvas(c) {
    const dpr = window.devicePixelRatio || 1;
    const w = Math.max(1, Math.round(c.clientWidth * dpr));
    const h = Math.max(1, Math.round(c.clientHeight * dpr));
    if (c.width !== w || c.height !== h) { c.width = w; c.height = h; }
    return dpr;
  }

  // Tick marks 1, 2 or 5 times a power of ten apart, about five over the span.
  function ticks(lo, hi) {
    const raw = (hi - lo) / 5, p = Math.pow(10, Math.floor(Math.log10(raw)));
    const step = [1, 2, 5, 10].map((m) => m * p).find((s) => s >= raw);
    const out = [];
    for (let t = Math.ceil(lo / step) * step; t <= hi + step * 1e-9; t += step) out.push(t);
    return { out, digits: Math.max(0, -Math.floor(Math.log10(step))) };
  }

  // The span of the finite values, widened a little; 0..1 around a flat line.
  function span(values) {
    let lo = Infinity, hi = -Infinity;
    for (const v of values) if (v != null) { if (v < lo) lo = v; if (v > hi) hi = v; }
    if (lo === Infinity) return [0, 1];
    const pad = hi > lo ? (hi - lo) * 0.05 : Math.max(Math.abs(hi) * 0.05, 1);
    return [lo - pad, hi + pad];
  }

  // Draws values[i] against xs[i] on canvas c with titled axes; returns the
  // x of a value for marks drawn over it.
  function plot(c, xs, values, [y0, y1], xTitle, yTitle) {
    const g = c.getContext("2d");
    const dpr = fitCanvas(c);
    const W = c.width, H = c.height;
    const left = LEFT * dpr, bottom = BOTTOM * dpr, top = TOP * dpr, right = RIGHT * dpr;
    const pw = W - left - right, ph = H - top - bottom;
    const x0 = xs[0], x1 = xs[xs.length - 1];
    const x = (v) => left + (v - x0) / (x1 - x0) * pw;
    const y = (v) => top + ph - (v - y0) / (y1 - y0) * ph;
    g.clearRect(0, 0, W, H);
    g.font = (11 * dpr) + "px system-ui, sans-serif";
    g.fillStyle = "#5b6b7c";
    g.strokeStyle = "#e3e8ee";
    g.lineWidth = 1;
    g.textAlign = "right";
    g.textBaseline = "middle";
    const yt = ticks(y0, y1);
    for (const t of yt.out) {
      g.beginPath(); g.moveTo(left, y(t)); g.lineTo(W - right, y(t)); g.stroke();
      g.fillText(t.toFixed(yt.digits), left - 4 * dpr, y(t));
    }
    g.textAlign = "center";
    g.textBaseline = "top";
    const xt = ticks(x0, x1);
    for (const t of xt.out) g.fillText(t.toFixed(xt.digits), x(t), top + ph + 4 * dpr);
    g.fillText(xTitle, left + pw / 2, top + ph + 18 * dpr);
    g.save();
    g.translate(12 * dpr, top + ph / 2);
    g.rotate(-Math.PI / 2);
    g.fillText(yTitle, 0, -6 * dpr);
    g.restore();
    c.setAttribute("aria-label", yTitle + " against " + xTitle);
    g.save();
    g.beginPath(); g.rect(left, top, pw, ph); g.clip();
    g.strokeStyle = "#1f6fd1";
    g.lineWidth = 1.5 * dpr;
    g.beginPath();
    let down = false;  // a NaN of the library (a reference at its dark) breaks the line
    values.forEach((v, i) => {
      if (v == null) { down = false; return; }
      if (down) g.lineTo(x(xs[i]), y(v)); else g.moveTo(x(xs[i]), y(v));
      down = true;
    });
    g.stroke();
    g.restore();
    return { x, dpr, top };
  }

  const FILTERS = Array.from({ length: 1024 }, (_, i) => i);
  const title = (what, unit) => what + " (" + unit + ")";

  function draw() {
    pending = false;
    const r = latest;
    const mode = r ? r.mode : (status.mode || "raw");
    const values = r && r.values ? r.values : [];
    const fixed = mode === "raw" && $("fixed").checked;
    const p = plot(canvas, FILTERS, values, fixed || !values.length ? [0, MAX_DN] : span(values), "Filter",
                   title(mode === "raw" ? "Filter output" : mode[0].toUpperCase() + mode.slice(1), r ? r.unit : "DN"));
    if (!r) return;
    // Saturated filters: a red tick at the top of the plot above each one.
    const raw = r.raw || r.values || [];
    ctx.fillStyle = "#d12f1f";
    for (let i = 0; i < raw.length; i++) {
      if (raw[i] >= MAX_DN) ctx.fillRect(p.x(i) - p.dpr, p.top, 2 * p.dpr, 8 * p.dpr);
    }
    const sp = r.spectrum;
    if (sp && sp.values) {
      const range = span(sp.values);
      plot($("spectrum"), sp.wavelengths, sp.values, [Math.min(range[0], 0), range[1]], "Wavelength (nm)",
           "Radiance (calibration units)");
    } else if (sp) {  // refused: the line above says why, the old spectrum goes
      const c = $("spectrum");
      c.getContext("2d").clearRect(0, 0, c.width, c.height);
    }
  }

  function schedule() {
    if (!pending) { pending = true; requestAnimationFrame(draw); }
  }

  function onReading(r) {
    latest = r;
    setText("s-saturated", r.saturated + " filters (at 4095 DN in some frame averaged)");
    showStatus({ sensor_id: r.sensor_id, shutter_speed: r.shutter_speed, exposure_ms: r.exposure_ms,
                 averages: r.averages, rate: r.rate, dropped: r.dropped, mode: r.mode });
    const refusal = $("refusal");
    setText("refusal", r.refusal ? "The " + r.mode + " mode cannot be shown: " + r.refusal : "");
    refusal.hidden = !r.refusal;
    const sp = r.spectrum;
    if (sp) {
      setText("spectrum-info", sp.error ? "No spectrum (" + sp.algorithm + "): " + sp.error :
        sp.algorithm + ": weight " + (sp.weight ?? NaN).toPrecision(3) + ", residual " + (sp.residual_dn ?? NaN).toFixed(1) +
        " DN over " + sp.filters_used + " filters" + (sp.settings_differ ? "; the calibration was made at other settings" : ""));
    }
    if (status.error) { status.error = null; showError(""); }
    schedule();
  }

  async function post(path, body) {
    try {
      const res = await fetch(path, { method: "POST", headers: { "Content-Type": "application/json" },
                                      body: JSON.stringify(body), credentials: "same-origin" });
      const data = await res.json().catch(() => ({ error: "HTTP " + res.status }));
      if (!res.ok) { showError(data.error || ("HTTP " + res.status)); return null; }
      showError("");
      showStatus(data);
      return data;
    } catch (e) {
      showError("The server cannot be reached: " + e.message);
      return null;
    }
  }

  const shown = { shutter: "shutter_speed", averages: "averages" };
  for (const id of ["shutter", "averages"]) {
    for (const ev of ["focus", "input"]) $(id).addEventListener(ev, () => edited.add(id));
    $(id).addEventListener("blur", () => { if ($(id).value === String(status[shown[id]])) edited.delete(id); });
  }
  async function setField(id, path, key) {
    if (await post(path, { [key]: $(id).value })) { edited.delete(id); showStatus({}); }
  }
  $("set-shutter").addEventListener("click", () => setField("shutter", "api/shutter", "shutter_speed"));
  $("shutter").addEventListener("keydown", (e) => { if (e.key === "Enter") { e.preventDefault(); $("set-shutter").click(); } });
  $("set-averages").addEventListener("click", () => setField("averages", "api/averages", "averages"));
  $("averages").addEventListener("keydown", (e) => { if (e.key === "Enter") { e.preventDefault(); $("set-averages").click(); } });
  $("sensor").addEventListener("change", () => post("api/sensor", { sensor: $("sensor").value }));
  $("pause").addEventListener("click", () => post("api/pause", { paused: !status.paused }));
  // The search runs on the server; its result comes with a later status.
  $("auto").addEventListener("click", async () => {
    searching = true;
    $("auto").disabled = true;
    setText("auto", "Searching…");
    if (!(await post("api/auto-exposure", {}))) {
      searching = false;
      $("auto").disabled = false;
      setText("auto", "Auto exposure");
    }
  });
  // The server keeps the dark and reference of each sensor and measures with them.
  $("dark").addEventListener("click", () => post("api/dark", {}));
  $("reference").addEventListener("click", () => post("api/reference", {}));
  $("dark-forget").addEventListener("click", () => post("api/dark", { clear: true }));
  $("reference-forget").addEventListener("click", () => post("api/reference", { clear: true }));
  $("mode").addEventListener("change", () => post("api/mode", { mode: $("mode").value }));
  $("algorithm").addEventListener("change", () => post("api/algorithm", { algorithm: $("algorithm").value }));
  $("fixed").addEventListener("change", schedule);
  window.addEventListener("resize", schedule);

  // The filter under the pointer: its value and, with a calibration on the
  // server, where it sees light (the library's centroid and half-maximum band).
  let bands = null;
  fetch("api/bands").then((res) => (res.ok ? res.json() : null)).then((b) => { bands = b; }).catch(() => {});
  const nm = (x) => Math.round(x) + " nm";
  const valueText = (v, unit) => (v == null ? "not a number" : v.toFixed(unit === "DN" ? 1 : 3) + " " + unit);
  canvas.addEventListener("mousemove", (e) => {
    const r = canvas.getBoundingClientRect();
    const pw = r.width - LEFT - RIGHT;
    const i = Math.round((e.clientX - r.left - LEFT) / pw * 1023);
    if (i < 0 || i > 1023 || !latest || !latest.values) return;
    let text = "filter " + i + ": " + valueText(latest.values[i], latest.unit);
    const b = bands && bands.bands[i];
    if (b) text += ", sees " + nm(b[1]) + " to " + nm(b[2]) + " (centre " + nm(b[0]) + ")";
    else if (bands) text += ", sees no light";
    setText("s-pointer", text);
  });

  const events = new EventSource("api/events");
  events.addEventListener("reading", (e) => onReading(JSON.parse(e.data)));
  events.addEventListener("status", (e) => showStatus(JSON.parse(e.data)));
  events.onerror = () => { if (events.readyState === EventSource.CLOSED) showError("The server closed the stream."); };
  schedule();
})();
