// A self-contained SVG line plot of the 1024 filter outputs.
#ifndef ORU_TOOLS_SVG_PLOT_H
#define ORU_TOOLS_SVG_PLOT_H

#include <string>
#include <vector>

#include "cli_format.h"

// Up to 8 measurements are drawn as one line each; more are drawn as their
// mean with a min/max band.
std::string render_svg_plot(const std::vector<Measurement>& series, const std::string& title);

#endif
