// A monochromator sweep recording: a CSV with the columns wavelength_nm,
// power and reading (a reading file of `oru-sensor read -o`, relative to the
// sweep file's folder), in any order, a row per step.
#ifndef ORU_TOOLS_SWEEP_FILE_H
#define ORU_TOOLS_SWEEP_FILE_H

#include <string>
#include <vector>

#include "reading_file.h"

struct SweepStep {
    double wavelength_nm = 0;
    double power = 0;
    ReadingFile reading;
};

bool load_sweep_file(const std::string& path, std::vector<SweepStep>& steps, std::string& error);

#endif
