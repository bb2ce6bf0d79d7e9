// The two auto-exposure look-up tables, loaded from CSV files at device
// initialisation and kept for callers (the search itself does not use them).
#include "efm32com/oru_device_interface_ae.h"

#include "utils/oru_utils_interface.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

// Written only here, by bring-up on the caller thread of a connect (which
// holds every lock of the exported functions); read by the same thread or by
// requests, which come after it under g_requestLock.
double* g_intensityLUT = nullptr;
double* g_ssLUT = nullptr;
// One size for both tables: the last file read sets it.
int g_aeLUTSize = 0;

namespace {

// Only the first non-empty line of the file is the table. A missing or empty
// file leaves the table as it was. So does anything that is not a regular
// file: opening a FIFO would block the bring-up until a writer comes.
void load_lut(const char* strFileName, double*& pTable) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(strFileName, error)) return;
    std::ifstream file(strFileName);
    if (!file.is_open()) return;
    std::string line;
    bool bFound = false;
    while (std::getline(file, line)) {
        if (!line.empty()) {
            bFound = true;
            break;
        }
    }
    if (!bFound) return;
    std::vector<std::string> fields;
    oru_utils_interface::parse_sentense(line, ",", fields);
    g_aeLUTSize = static_cast<int>(fields.size());
    delete[] pTable;
    pTable = new double[fields.size()];
    for (size_t i = 0; i < fields.size(); ++i) pTable[i] = atof(fields[i].c_str());
}

}  // namespace

int initialize_ae_module(const char* strFileName_intensityLUT, const char* strFileName_ssLUT) {
    load_lut(strFileName_intensityLUT, g_intensityLUT);
    load_lut(strFileName_ssLUT, g_ssLUT);
    return 1;
}
