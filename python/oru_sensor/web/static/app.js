"use strict";
// Live view: readings arrive by server-sent events; the trace is drawn on a canvas.
(function () {
  const MAX_DN = 4095;
  const $ = (id) => document.getElementById(id);
  const canvas = $("plot");
  const ctx = canvas.getContext("2d");
  let latest = null;        // the last reading drawn or to draw
  let dark = null;          // {values, shutter_speed} of the dark reading
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

  function showStatus(s) {
    status = Object.assign(status, s);
    setText("s-id", status.sensor_id || "–");
    setText("s-shutter", String(status.shutter_speed ?? "–"));
    setText("s-exposure", status.exposure_ms != null ? status.exposure_ms.toFixed(3) + " ms" : "–");
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
    checkDark();
  }

  function checkDark() {
    const w = $("dark-warning");
    const differs = dark && status.shutter_speed != null && dark.shutter_speed !== status.shutter_speed;
    const text = differs ? "The dark reading was taken at shutter speed " + dark.shutter_speed +
      ", the sensor is at " + status.shutter_speed + ": take a new one." : "";
    if (w.textContent !== text) w.textContent = text;
    w.hidden = !differs;
  }

  function fitCanvas() {
    const dpr = window.devicePixelRatio || 1;
    const w = Math.max(1, Math.round(canvas.clientWidth * dpr));
    const h = Math.max(1, Math.round(canvas.clientHeight * dpr));
    if (canvas.width !== w || canvas.height !== h) { canvas.width = w; canvas.height = h; }
    return dpr;
  }

  function draw() {
    pending = false;
    const dpr = fitCanvas();
    const W = canvas.width, H = canvas.height;
    const left = 44 * dpr, bottom = 20 * dpr, top = 6 * dpr, right = 6 * dpr;
    const pw = W - left - right, ph = H - top - bottom;
    ctx.clearRect(0, 0, W, H);
    ctx.font = (11 * dpr) + "px system-ui, sans-serif";
    ctx.fillStyle = "#5b6b7c";
    ctx.strokeStyle = "#e3e8ee";
    ctx.lineWidth = 1;
    ctx.textAlign = "right";
    ctx.textBaseline = "middle";
    for (let dn = 0; dn <= 4000; dn += 1000) {
      const y = top + ph - dn / MAX_DN * ph;
      ctx.beginPath(); ctx.moveTo(left, y); ctx.lineTo(W - right, y); ctx.stroke();
      ctx.fillText(String(dn), left - 4 * dpr, y);
    }
    ctx.textAlign = "center";
    ctx.textBaseline = "top";
    for (let f = 0; f < 1024; f += 256) ctx.fillText(String(f), left + f / 1023 * pw, top + ph + 4 * dpr);
    if (!latest) return;
    const v = latest.values;
    const sub = $("subtract").checked && dark;
    const x = (i) => left + i / 1023 * pw;
    const y = (dn) => top + ph - Math.min(Math.max(dn, 0), MAX_DN) / MAX_DN * ph;
    ctx.strokeStyle = "#1f6fd1";
    ctx.lineWidth = 1.5 * dpr;
    ctx.beginPath();
    for (let i = 0; i < v.length; i++) {
      const dn = sub ? v[i] - dark.values[i] : v[i];
      if (i === 0) ctx.moveTo(x(i), y(dn)); else ctx.lineTo(x(i), y(dn));
    }
    ctx.stroke();
    // Saturated filters: a red tick at the top of the plot above each one.
    ctx.fillStyle = "#d12f1f";
    for (let i = 0; i < v.length; i++) {
      if (v[i] >= MAX_DN) ctx.fillRect(x(i) - dpr, top, 2 * dpr, 8 * dpr);
    }
  }

  function schedule() {
    if (!pending) { pending = true; requestAnimationFrame(draw); }
  }

  function onReading(r) {
    latest = r;
    setText("s-saturated", r.saturated + " filters (at 4095 DN in some frame averaged)");
    showStatus({ sensor_id: r.sensor_id, shutter_speed: r.shutter_speed, averages: r.averages,
                 rate: r.rate, dropped: r.dropped });
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
  $("dark").addEventListener("click", () => {
    if (!latest) { showError("No reading yet to keep as dark."); return; }
    dark = { values: latest.values.slice(), shutter_speed: latest.shutter_speed };
    setText("dark", "Take dark (kept at " + dark.shutter_speed + ")");
    checkDark();
    schedule();
  });
  $("subtract").addEventListener("change", schedule);
  window.addEventListener("resize", schedule);

  // The filter under the pointer: its value and, with a calibration on the
  // server, where it sees light (the library's centroid and half-maximum band).
  let bands = null;
  fetch("api/bands").then((res) => (res.ok ? res.json() : null)).then((b) => { bands = b; }).catch(() => {});
  const nm = (x) => Math.round(x) + " nm";
  canvas.addEventListener("mousemove", (e) => {
    const r = canvas.getBoundingClientRect();
    const left = 44, right = 6, pw = r.width - left - right;
    const i = Math.round((e.clientX - r.left - left) / pw * 1023);
    if (i < 0 || i > 1023 || !latest) return;
    let text = "filter " + i + ": " + latest.values[i].toFixed(1) + " DN";
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
