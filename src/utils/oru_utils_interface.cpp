#include "utils/oru_utils_interface.h"

#include "oru_log.h"

#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <limits>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

namespace {

// atoi as glibc defines it ((int) strtol), without atoi's undefined result
// for out-of-range text.
int text_to_int(const char* text) {
    long value = std::strtol(text, nullptr, 10);
    return static_cast<int>(value);
}

// Sorts with plain operator<, NaN values moved to the end first: they have
// no place in a strict weak ordering and would break std::sort.
void sort_numbers(std::vector<double>& values) {
    auto finite_end = std::partition(values.begin(), values.end(), [](double v) { return !std::isnan(v); });
    std::sort(values.begin(), finite_end);
}

std::string local_asctime() {
    time_t now = time(nullptr);
    struct tm* local = localtime(&now);
    if (local == nullptr) return std::string();
    const char* text = asctime(local);
    return text != nullptr ? std::string(text) : std::string();
}

}  // namespace

// ---------------------------------------------------------------- file system

void oru_utils_interface::make_directory(const char* _path, std::size_t index) {
    if (_path == nullptr) return;
    std::string path(_path);
    // Parents first; the search starts one past `index` so that the leading
    // '/' of an absolute path is not taken as a level. Errors (such as an
    // existing directory) are ignored, and the umask stays 0 afterwards.
    umask(0);
    for (std::size_t pos = path.find('/', index + 1); pos != std::string::npos; pos = path.find('/', pos + 1))
        mkdir(path.substr(0, pos).c_str(), 0777);
    mkdir(path.c_str(), 0777);
}

void oru_utils_interface::make_directory(const char* _path) { make_directory(_path, 0); }

bool oru_utils_interface::is_file_exist(const std::string& strFileName) {
    if (strFileName.empty()) return false;
    std::ifstream file(strFileName.c_str());
    bool opened = file.is_open();
    file.close();
    return opened;
}

std::string oru_utils_interface::get_system_user_name() {
    std::string name;
    struct passwd* pw = getpwuid(geteuid());
    if (pw != nullptr && pw->pw_name != nullptr) name = pw->pw_name;
    (void)name;  // looked up but never handed out
    return std::string();
}

std::string oru_utils_interface::get_locale() { return "Korea"; }

std::string oru_utils_interface::get_time_stamp() { return local_asctime(); }

std::string oru_utils_interface::get_time_stamp_simple() { return local_asctime(); }

std::string oru_utils_interface::get_time_stamp_complex() { return local_asctime(); }

void oru_utils_interface::get_time_stamp(const std::string& strDate, const std::string& strTime) {
    (void)strDate;
    (void)strTime;
    std::string discarded = local_asctime();
    (void)discarded;
}

float oru_utils_interface::generate_rand_float(float fMin, float fMax) {
    (void)fMin;
    (void)fMax;
    unsigned int a = static_cast<unsigned int>(rand());
    unsigned int b = static_cast<unsigned int>(rand());
    // The shift count is taken modulo 256; 32 or more shifts everything out.
    unsigned int shift = (b + 15u) & 0xFFu;
    unsigned int shifted = shift >= 32u ? 0u : a << shift;
    return static_cast<float>(shifted & 0xFFFFFFu) / 16777216.0f;
}

// ---------------------------------------------------------------- text

void oru_utils_interface::parse_sentense(const std::string& mSentence, const std::string& mDelimiters,
                                         std::vector<std::string>& mFields) {
    std::string::size_type lastPos = mSentence.find_first_not_of(mDelimiters, 0);
    std::string::size_type pos = mSentence.find_first_of(mDelimiters, lastPos);
    while (pos != std::string::npos || lastPos != std::string::npos) {
        std::string onetoken = mSentence.substr(lastPos, pos - lastPos);
        if (!onetoken.empty()) mFields.push_back(onetoken);
        lastPos = mSentence.find_first_not_of(mDelimiters, pos);
        pos = mSentence.find_first_of(mDelimiters, lastPos);
    }
}

std::string oru_utils_interface::trim_string(std::string str) {
    std::string::size_type first = str.find_first_not_of(' ');
    if (first == std::string::npos) return std::string();
    std::string::size_type last = str.find_last_not_of(' ');
    return str.substr(first, last - first + 1);
}

std::string oru_utils_interface::to_lower(std::string str) {
    for (char& c : str) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return str;
}

std::string oru_utils_interface::to_upper(std::string str) {
    for (char& c : str) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    return str;
}

std::string oru_utils_interface::get_file_name(std::string strPath) {
    std::vector<std::string> tokens;
    parse_sentense(strPath, "\\ /", tokens);
    return tokens.empty() ? std::string() : tokens.back();
}

std::string oru_utils_interface::get_file_path(std::string strPath) {
    std::string::size_type pos = strPath.find('\\') != std::string::npos ? strPath.rfind('\\') : strPath.rfind('/');
    if (pos == std::string::npos) return std::string();
    return strPath.substr(0, pos + 1);
}

std::string oru_utils_interface::get_file_name_only(std::string strPath) {
    char separator = strPath.find('\\') != std::string::npos ? '\\' : '/';
    // Unsigned arithmetic on purpose: a missing separator (npos + 1 == 0)
    // starts at the beginning, a missing or earlier '.' runs to the end.
    std::string::size_type start = strPath.rfind(separator) + 1;
    std::string::size_type length = strPath.rfind('.') - start;
    return strPath.substr(start, length);
}

std::string oru_utils_interface::get_file_extension(const std::string& strPath) {
    std::string::size_type pos = strPath.rfind('.');
    if (pos == std::string::npos) return strPath;
    return strPath.substr(pos + 1);
}

std::string oru_utils_interface::integer_vector_to_string(std::vector<int> values) {
    std::string result;
    char buffer[16];
    for (int value : values) {
        snprintf(buffer, sizeof(buffer), "%d,", value);
        result += buffer;
    }
    return result;
}

std::vector<int> oru_utils_interface::string_to_integer_vector(const std::string& InStr) {
    std::vector<std::string> tokens;
    parse_sentense(InStr, ",", tokens);
    std::vector<int> values;
    values.reserve(tokens.size());
    for (const std::string& token : tokens) values.push_back(text_to_int(token.c_str()));
    return values;
}

void oru_utils_interface::decode_sensor_ID(const std::string& sensor_id, char* lot_char, short* lot_id, short* wafer_id,
                                           short* x_coord, short* y_coord) {
    auto store = [](short* target, int value) {
        if (target != nullptr) *target = static_cast<short>(value);
    };
    try {
        std::vector<std::string> tokens;
        if (!sensor_id.empty()) parse_sentense(sensor_id, "-", tokens);
        if (tokens.size() < 4) {
            // The lot character is left as the caller had it.
            store(lot_id, 0);
            store(wafer_id, 0);
            store(x_coord, 0);
            store(y_coord, 0);
            return;
        }
        if (lot_char != nullptr) *lot_char = tokens[0][0];
        std::string lot_number = tokens[0].substr(1);
        store(lot_id, text_to_int(lot_number.c_str()));
        store(wafer_id, text_to_int(tokens[1].c_str()));
        store(x_coord, text_to_int(tokens[2].c_str()));
        store(y_coord, text_to_int(tokens[3].c_str()));
    } catch (...) {
        oru_log(kLogError, "[Exception] Error happened during sensor ID decoding...\n");
    }
}

// ---------------------------------------------------------------- numbers

double oru_utils_interface::find_median_value(std::vector<int> values) {
    if (values.empty()) throw "median of an empty vector";
    std::sort(values.begin(), values.end());
    std::size_t n = values.size();
    if (n % 2 == 1) return static_cast<double>(values[n / 2]);
    // Integer mean, truncated on purpose; widened so the sum cannot overflow.
    std::int64_t sum = static_cast<std::int64_t>(values[n / 2]) + values[n / 2 - 1];
    return static_cast<double>(static_cast<int>(sum / 2));
}

double oru_utils_interface::find_median_value(std::vector<double> values) {
    if (values.empty()) throw "median of an empty vector";
    sort_numbers(values);
    std::size_t n = values.size();
    if (n % 2 == 1) return values[n / 2];
    return (values[n / 2] + values[n / 2 - 1]) / 2.0;
}

double oru_utils_interface::find_min_value(std::vector<double> values) {
    if (values.empty()) return std::numeric_limits<double>::quiet_NaN();
    double result = values[0];
    for (std::size_t i = 1; i < values.size(); ++i)
        if (values[i] < result) result = values[i];
    return result;
}

double oru_utils_interface::find_max_value(std::vector<double> values) {
    if (values.empty()) return std::numeric_limits<double>::quiet_NaN();
    double result = values[0];
    for (std::size_t i = 1; i < values.size(); ++i)
        if (values[i] > result) result = values[i];
    return result;
}

std::vector<IntDataPair> oru_utils_interface::sort(std::map<int, int>& data, bool bAscending) {
    std::vector<IntDataPair> pairs;
    pairs.reserve(data.size());
    for (const auto& entry : data) pairs.push_back(IntDataPair{entry.first, entry.second});
    std::sort(pairs.begin(), pairs.end(), bAscending ? AscendingSortByIntVal : DescendingSortByIntVal);
    return pairs;
}

std::vector<DoubleDataPair> oru_utils_interface::sort(std::map<int, double>& data, bool bAscending) {
    std::vector<DoubleDataPair> pairs;
    pairs.reserve(data.size());
    for (const auto& entry : data) pairs.push_back(DoubleDataPair{entry.first, entry.second});
    // NaN values cannot be ordered; they go last, the rest is sorted.
    auto ordered_end =
        std::partition(pairs.begin(), pairs.end(), [](const DoubleDataPair& p) { return !std::isnan(p.val); });
    std::sort(pairs.begin(), ordered_end, bAscending ? AscendingSortByDoubleVal : DescendingSortByDoubleVal);
    return pairs;
}

void oru_utils_interface::normalize(std::vector<double>& in, std::vector<double>& out) {
    if (in.empty()) return;
    double maximum = 0.0;
    for (double v : in)
        if (v > maximum) maximum = v;
    // `out` is written by index and never resized; a shorter one gets only
    // the values it has room for.
    std::size_t n = std::min(in.size(), out.size());
    for (std::size_t i = 0; i < n; ++i) out[i] = in[i] / maximum;
}

// ---------------------------------------------------------------- spectra

void oru_utils_interface::get_spectrum_info(std::vector<double>& spectrum, double& fPeakWavelength, double& fPeakPower,
                                            double& fFWHM) {
    if (spectrum.empty()) return;
    fPeakWavelength = 0.0;
    fPeakPower = 0.0;
    fFWHM = 0.0;
    int iPeakPosition = -1;
    for (std::size_t i = 0; i < spectrum.size(); ++i) {
        if (spectrum[i] > fPeakPower) {
            fPeakPower = spectrum[i];
            iPeakPosition = static_cast<int>(i);
        }
    }
    if (iPeakPosition >= 0) fPeakWavelength = static_cast<double>(iPeakPosition);
    fFWHM = get_FWHM(spectrum, fPeakPower / 2.0, iPeakPosition);
}

double oru_utils_interface::get_FWHM(std::vector<double>& spectrum, double fHalfPeakPower, int iPeakPosition) {
    if (iPeakPosition == -1) return 0.0;
    // Any other position outside the spectrum has no width either.
    if (iPeakPosition < 0 || static_cast<std::size_t>(iPeakPosition) >= spectrum.size()) return 0.0;
    std::size_t size = spectrum.size();
    std::size_t iLeftBorder = static_cast<std::size_t>(iPeakPosition);
    while (iLeftBorder > 0 && spectrum[iLeftBorder] >= fHalfPeakPower) --iLeftBorder;
    std::size_t iRightBorder = static_cast<std::size_t>(iPeakPosition);
    while (iRightBorder + 1 < size && spectrum[iRightBorder] >= fHalfPeakPower) ++iRightBorder;
    return static_cast<double>(iRightBorder - iLeftBorder + 1);
}

void oru_utils_interface::get_spectrum_derivative(std::vector<double>& in, std::vector<double>& out, int iDim) {
    (void)in;
    if (iDim == 1 || iDim == 2) return;
    out.clear();
    oru_log(kLogError, "[oru_utils_interface] Error: wrong derivative dimension. 1-D or 2-D only supported. (%d)\n",
            iDim);
}

void oru_utils_interface::make_gaussian_spectrum(int iSpecLength, double fWavelength, double fBandWidth,
                                                 double fIntensity, std::vector<double>& out) {
    out.clear();
    if (iSpecLength < 1) return;
    // Integer parts are taken with trunc, which matches an int conversion
    // wherever that is defined and stays defined for huge or NaN inputs.
    if (std::trunc(fBandWidth + 2.0) > static_cast<double>(iSpecLength)) return;
    double fCenterWavelength = std::trunc(fWavelength);
    double fFWHM = fBandWidth;
    if (fBandWidth == 1.0) {
        out.resize(static_cast<std::size_t>(iSpecLength), 0.0);
        if (fCenterWavelength >= 0.0 && fCenterWavelength < static_cast<double>(iSpecLength))
            out[static_cast<std::size_t>(fCenterWavelength)] = fIntensity;
        return;
    }
    double s = fFWHM * 0.4253;
    float s2 = powf(static_cast<float>(s), 2.0f);
    out.reserve(static_cast<std::size_t>(iSpecLength));
    for (int iCurWL = 0; iCurWL < iSpecLength; ++iCurWL) {
        double d = static_cast<double>(iCurWL) - fCenterWavelength;
        float d2 = powf(static_cast<float>(d), 2.0f);
        out.push_back(fIntensity * std::exp(-static_cast<double>(d2) / (2.0 * static_cast<double>(s2))));
    }
}

void oru_utils_interface::get_wavelength_list(int iStartWL, int iEndWL, int iResolution, std::vector<double>& out) {
    out.clear();
    if (iStartWL >= iEndWL) return;
    if (iResolution == 0) return;  // no step, no list
    std::int64_t count = (static_cast<std::int64_t>(iEndWL) - iStartWL) / iResolution + 1;
    for (std::int64_t i = 0; i < count; ++i)
        out.push_back(static_cast<double>(iStartWL + static_cast<std::int64_t>(iResolution) * i));
}

std::vector<double> oru_utils_interface::polyval(const std::vector<double>& p, const std::vector<double>& x) {
    std::vector<double> y;
    y.reserve(x.size());
    for (double xv : x) {
        double sum = 0.0;
        for (std::size_t j = 0; j < p.size(); ++j) sum += p[j] * std::pow(xv, static_cast<double>(j));
        y.push_back(sum);
    }
    return y;
}

double oru_utils_interface::polyval(const std::vector<double>& p, const double& oX) {
    double sum = 0.0;
    std::size_t n = p.size();
    for (std::size_t j = 0; j < n; ++j) sum += p[n - 1 - j] * std::pow(oX, static_cast<double>(j));
    return sum;
}

// ---------------------------------------------------------------- statistics

namespace {

double sum_of_squared_deviations(const std::vector<double>& values, double mean) {
    double sum = 0.0;
    for (double v : values) sum += (v - mean) * (v - mean);
    return sum;
}

}  // namespace

double oru_utils_interface::calculate_mean(std::vector<double>& values) {
    double sum = 0.0;
    for (double v : values) sum += v;
    return sum / static_cast<double>(values.size());
}

double oru_utils_interface::calculate_variance(std::vector<double>& values) {
    double mean = calculate_mean(values);
    return sum_of_squared_deviations(values, mean) / static_cast<double>(values.size());
}

double oru_utils_interface::calculate_sample_variance(std::vector<double>& values) {
    double mean = calculate_mean(values);
    return sum_of_squared_deviations(values, mean) / (static_cast<double>(values.size()) - 1.0);
}

double oru_utils_interface::calculate_std(std::vector<double>& values) { return std::sqrt(calculate_variance(values)); }

double oru_utils_interface::calculate_sample_std(std::vector<double>& values) {
    return std::sqrt(calculate_sample_variance(values));
}
