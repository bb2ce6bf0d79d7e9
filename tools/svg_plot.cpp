#include "svg_plot.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

constexpr double kWidth = 960, kHeight = 540;
constexpr double kLeft = 80, kRight = 30, kTop = 50, kBottom = 70;
constexpr size_t kMaxLines = 8;
const char* const kColors[kMaxLines] = {"#1f77b4", "#d62728", "#2ca02c", "#ff7f0e",
                                        "#9467bd", "#8c564b", "#e377c2", "#17becf"};

std::string fmt(const char* f, double a) {
    char buf[64];
    std::snprintf(buf, sizeof buf, f, a);
    return buf;
}

std::string xml_escape(const std::string& in) {
    std::string out;
    for (char c : in) {
        switch (c) {
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '&':
            out += "&amp;";
            break;
        case '"':
            out += "&quot;";
            break;
        default:
            if (static_cast<unsigned char>(c) >= 0x20) out += c;
        }
    }
    return out;
}

// A "nice" step (1, 2 or 5 times a power of ten) giving about `ticks` ticks.
double nice_step(double span, int ticks) {
    double raw = span / ticks;
    double mag = std::pow(10.0, std::floor(std::log10(raw)));
    double r = raw / mag;
    return (r < 1.5 ? 1 : r < 3.5 ? 2 : r < 7.5 ? 5 : 10) * mag;
}

struct Frame {
    double x0, x1, y0, y1;  // data ranges
    double px(double x) const { return kLeft + (x - x0) / (x1 - x0) * (kWidth - kLeft - kRight); }
    double py(double y) const { return kHeight - kBottom - (y - y0) / (y1 - y0) * (kHeight - kTop - kBottom); }
};

// Tick labels: whole numbers where the step allows, else enough digits.
std::string tick_label(double value, double step) {
    if (std::fabs(value) < step * 1e-6) value = 0.0;
    return fmt(step >= 1 ? "%.0f" : "%g", value);
}

std::string polyline(const Frame& f, const std::vector<double>& x, const std::vector<double>& v, const char* color,
                     double width) {
    std::string pts;
    pts.reserve(v.size() * 14);
    for (size_t i = 0; i < v.size() && i < x.size(); ++i) {
        if (std::isnan(v[i])) continue;
        pts += fmt("%.1f", f.px(x[i])) + "," + fmt("%.1f", f.py(v[i])) + " ";
    }
    return std::string("<polyline fill=\"none\" stroke=\"") + color + "\" stroke-width=\"" + fmt("%.1f", width) +
           "\" stroke-linejoin=\"round\" points=\"" + pts + "\"/>\n";
}

}  // namespace

std::string render_svg_plot(const std::vector<Measurement>& series, const std::string& title, const PlotAxes& axes) {
    const auto line = [&axes](const Measurement& m) -> const std::vector<double>& {
        return axes.spectra ? m.spectrum : m.values;
    };
    size_t n = 0;
    double ymin = 0, ymax = 0;
    for (const auto& m : series) {
        n = std::max(n, line(m).size());
        for (double v : line(m)) {
            if (std::isnan(v)) continue;
            ymin = std::min(ymin, v);
            ymax = std::max(ymax, v);
        }
    }
    if (n < 2) n = 2;
    std::vector<double> xs = axes.x;
    for (size_t i = xs.size(); i < n; ++i) xs.push_back(static_cast<double>(i));
    // Scale to the data, but never beyond the 12-bit range the sensor has.
    const double span = ymax - ymin > 0 ? ymax - ymin : 1.0;
    double ystep = nice_step(span, 8);
    double ytop = std::ceil(ymax * 1.05 / ystep) * ystep;
    if (axes.dn_scale) ytop = std::min(ytop, 4096.0);
    if (ytop <= 0) ytop = ystep;
    const double ybottom = std::floor(ymin / ystep) * ystep;
    Frame f{xs.front(), xs[n - 1], ybottom, ytop};
    const double xstep = axes.x.empty() ? 128 : nice_step(f.x1 - f.x0, 8);
    const double xfirst = std::ceil(f.x0 / xstep - 1e-9) * xstep;

    std::string s;
    s += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    s += "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"960\" height=\"540\" viewBox=\"0 0 960 540\" "
         "font-family=\"DejaVu Sans, Helvetica, Arial, sans-serif\">\n";
    s += "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
    s += "<text x=\"480\" y=\"30\" text-anchor=\"middle\" font-size=\"18\">" + xml_escape(title) + "</text>\n";

    // Grid and ticks.
    s += "<g stroke=\"#e0e0e0\" stroke-width=\"1\">\n";
    for (double y = ybottom; y <= ytop + 1e-9 * ystep; y += ystep)
        s += "<line x1=\"" + fmt("%.1f", kLeft) + "\" x2=\"" + fmt("%.1f", kWidth - kRight) + "\" y1=\"" +
             fmt("%.1f", f.py(y)) + "\" y2=\"" + fmt("%.1f", f.py(y)) + "\"/>\n";
    for (double x = xfirst; x <= f.x1 + 1e-9 * xstep; x += xstep)
        s += "<line y1=\"" + fmt("%.1f", kTop) + "\" y2=\"" + fmt("%.1f", kHeight - kBottom) + "\" x1=\"" +
             fmt("%.1f", f.px(x)) + "\" x2=\"" + fmt("%.1f", f.px(x)) + "\"/>\n";
    s += "</g>\n<g font-size=\"12\" fill=\"#333\">\n";
    for (double y = ybottom; y <= ytop + 1e-9 * ystep; y += ystep)
        s += "<text x=\"" + fmt("%.1f", kLeft - 8) + "\" y=\"" + fmt("%.1f", f.py(y) + 4) + "\" text-anchor=\"end\">" +
             tick_label(y, ystep) + "</text>\n";
    for (double x = xfirst; x <= f.x1 + 1e-9 * xstep; x += xstep)
        s += "<text x=\"" + fmt("%.1f", f.px(x)) + "\" y=\"" + fmt("%.1f", kHeight - kBottom + 18) +
             "\" text-anchor=\"middle\">" + tick_label(x, xstep) + "</text>\n";
    s += "</g>\n";
    s += "<rect x=\"" + fmt("%.1f", kLeft) + "\" y=\"" + fmt("%.1f", kTop) + "\" width=\"" +
         fmt("%.1f", kWidth - kLeft - kRight) + "\" height=\"" + fmt("%.1f", kHeight - kTop - kBottom) +
         "\" fill=\"none\" stroke=\"#333\"/>\n";
    s += "<text x=\"" + fmt("%.1f", (kLeft + kWidth - kRight) / 2) + "\" y=\"" + fmt("%.1f", kHeight - 22) +
         "\" text-anchor=\"middle\" font-size=\"14\">" + xml_escape(axes.x_title) + "</text>\n";
    s += "<text transform=\"translate(22," + fmt("%.1f", (kTop + kHeight - kBottom) / 2) +
         ") rotate(-90)\" text-anchor=\"middle\" font-size=\"14\">" + xml_escape(axes.y_title) + "</text>\n";

    if (series.size() <= kMaxLines) {
        for (size_t i = 0; i < series.size(); ++i) s += polyline(f, xs, line(series[i]), kColors[i], 1.2);
        if (series.size() > 1) {
            for (size_t i = 0; i < series.size(); ++i) {
                double y = kTop + 14 + 16 * static_cast<double>(i);
                s += "<line x1=\"" + fmt("%.1f", kWidth - kRight - 110) + "\" x2=\"" +
                     fmt("%.1f", kWidth - kRight - 90) + "\" y1=\"" + fmt("%.1f", y - 4) + "\" y2=\"" +
                     fmt("%.1f", y - 4) + "\" stroke=\"" + kColors[i] + "\" stroke-width=\"2\"/>\n";
                s += "<text x=\"" + fmt("%.1f", kWidth - kRight - 84) + "\" y=\"" + fmt("%.1f", y) +
                     "\" font-size=\"12\">read " + std::to_string(i + 1) + "</text>\n";
            }
        }
    } else {
        std::vector<double> lo(n, 1e300), hi(n, -1e300), mean(n, 0.0);
        for (const auto& m : series)
            for (size_t i = 0; i < line(m).size(); ++i) {
                lo[i] = std::min(lo[i], line(m)[i]);
                hi[i] = std::max(hi[i], line(m)[i]);
                mean[i] += line(m)[i] / static_cast<double>(series.size());
            }
        std::string pts;
        for (size_t i = 0; i < n; ++i) {
            if (std::isfinite(hi[i])) pts += fmt("%.1f", f.px(xs[i])) + "," + fmt("%.1f", f.py(hi[i])) + " ";
        }
        for (size_t i = n; i-- > 0;) {
            if (std::isfinite(lo[i])) pts += fmt("%.1f", f.px(xs[i])) + "," + fmt("%.1f", f.py(lo[i])) + " ";
        }
        s += "<polygon fill=\"#1f77b4\" fill-opacity=\"0.25\" stroke=\"none\" points=\"" + pts + "\"/>\n";
        s += polyline(f, xs, mean, kColors[0], 1.2);
        s += "<text x=\"" + fmt("%.1f", kWidth - kRight - 10) + "\" y=\"" + fmt("%.1f", kTop + 16) +
             "\" text-anchor=\"end\" font-size=\"12\">mean of " + std::to_string(series.size()) +
             " reads, band = min/max</text>\n";
    }
    s += "</svg>\n";
    return s;
}
