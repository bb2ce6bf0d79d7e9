// A self-contained SVG line plot of the 1024 filter outputs, or of spectra
// on a wavelength axis.
#ifndef ORU_TOOLS_SVG_PLOT_H
#define ORU_TOOLS_SVG_PLOT_H

#include <string>
#include <vector>

#include "cli_format.h"

struct PlotAxes {
    std::vector<double> x;  // the x of each value; empty: the filter index
    std::string x_title = "Filter index";
    std::string y_title = "Filter output (DN)";
    bool dn_scale = true;  // DN as read: the axis ends at the sensor's 12-bit top at most
    bool spectra = false;  // draw each reading's spectrum, not its filter values
};

// Up to 8 measurements are drawn as one line each; more are drawn as their
// mean with a min/max band. NaN values are left out of the lines.
std::string render_svg_plot(const std::vector<Measurement>& series, const std::string& title,
                            const PlotAxes& axes = PlotAxes());

#endif
