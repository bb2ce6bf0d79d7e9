// Static helpers for files, text, time stamps, statistics and spectra, the
// text tokenizer, and a small moving-average class.
#ifndef ORU_UTILS_INTERFACE_H
#define ORU_UTILS_INTERFACE_H

#include "oru_export.h"

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <map>
#include <string>
#include <vector>

struct IntDataPair {
    int key;
    int val;
};

struct DoubleDataPair {
    int key;
    double val;
};

inline bool AscendingSortByIntVal(const IntDataPair& a, const IntDataPair& b) { return a.val < b.val; }
inline bool DescendingSortByIntVal(const IntDataPair& a, const IntDataPair& b) { return a.val > b.val; }
inline bool AscendingSortByDoubleVal(const DoubleDataPair& a, const DoubleDataPair& b) { return a.val < b.val; }
inline bool DescendingSortByDoubleVal(const DoubleDataPair& a, const DoubleDataPair& b) { return a.val > b.val; }

class ORU_EXPORT oru_utils_interface {
public:
    // File system and system.
    static void make_directory(const char* _path, std::size_t index);
    static void make_directory(const char* _path);
    static bool is_file_exist(const std::string& strFileName);
    // Always empty: the passwd entry is looked up but its name is not handed out.
    static std::string get_system_user_name();
    static std::string get_locale();
    static std::string get_time_stamp();
    static std::string get_time_stamp_simple();
    static std::string get_time_stamp_complex();
    static void get_time_stamp(const std::string& strDate, const std::string& strTime);
    // The bounds are not used; the result is in [0, 1) and mostly 0.
    static float generate_rand_float(float fMin, float fMax);

    // Text.
    // Appends the non-empty tokens of mSentence, split at any character of
    // mDelimiters, to mFields (which is not cleared).
    static void parse_sentense(const std::string& mSentence, const std::string& mDelimiters,
                               std::vector<std::string>& mFields);
    static std::string trim_string(std::string str);
    static std::string to_lower(std::string str);
    static std::string to_upper(std::string str);
    static std::string get_file_name(std::string strPath);
    static std::string get_file_path(std::string strPath);
    static std::string get_file_name_only(std::string strPath);
    static std::string get_file_extension(const std::string& strPath);
    static std::string integer_vector_to_string(std::vector<int> values);
    static std::vector<int> string_to_integer_vector(const std::string& InStr);
    static void decode_sensor_ID(const std::string& sensor_id, char* lot_char, short* lot_id, short* wafer_id,
                                 short* x_coord, short* y_coord);

    // Numbers and spectra.
    // Both throw the C string "median of an empty vector" for an empty input.
    static double find_median_value(std::vector<int> values);
    static double find_median_value(std::vector<double> values);
    // Not meant for empty vectors; they give NaN then.
    static double find_min_value(std::vector<double> values);
    static double find_max_value(std::vector<double> values);
    static std::vector<IntDataPair> sort(std::map<int, int>& data, bool bAscending);
    static std::vector<DoubleDataPair> sort(std::map<int, double>& data, bool bAscending);
    static void normalize(std::vector<double>& in, std::vector<double>& out);
    static void get_spectrum_info(std::vector<double>& spectrum, double& fPeakWavelength, double& fPeakPower,
                                  double& fFWHM);
    static double get_FWHM(std::vector<double>& spectrum, double fHalfPeakPower, int iPeakPosition);
    static void get_spectrum_derivative(std::vector<double>& in, std::vector<double>& out, int iDim);
    static void make_gaussian_spectrum(int iSpecLength, double fWavelength, double fBandWidth, double fIntensity,
                                       std::vector<double>& out);
    static void get_wavelength_list(int iStartWL, int iEndWL, int iResolution, std::vector<double>& out);
    // Ascending powers: p[0] is the constant term.
    static std::vector<double> polyval(const std::vector<double>& p, const std::vector<double>& x);
    // Descending powers: p[n-1] is the constant term.
    static double polyval(const std::vector<double>& p, const double& oX);
    static double calculate_mean(std::vector<double>& values);
    static double calculate_variance(std::vector<double>& values);
    static double calculate_sample_variance(std::vector<double>& values);
    static double calculate_std(std::vector<double>& values);
    static double calculate_sample_std(std::vector<double>& values);
};

// Simple moving average over the last `period` values, kept in a ring.
class SMA {
public:
    explicit SMA(unsigned int period)
        : period(period), window(new double[std::max(period, 1u)]()), head(nullptr), tail(nullptr), total(0.0) {
        // With assertions compiled out a zero period still gets one slot, so
        // the ring never writes outside its window.
        assert(period >= 1);
    }
    ~SMA() { delete[] window; }
    SMA(const SMA&) = delete;
    SMA& operator=(const SMA&) = delete;

    void add(double val) {
        if (head == nullptr) {
            head = window;
            *head = val;
            tail = head;
            inc(tail);
            total = val;
        } else {
            if (head == tail) {
                total -= *head;
                inc(head);
            }
            *tail = val;
            inc(tail);
            total += val;
        }
    }

    double avg() const {
        std::size_t n = size();
        return n == 0 ? 0.0 : total / static_cast<double>(n);
    }

    std::size_t size() const {
        if (head == nullptr) return 0;
        if (head == tail) return period;
        std::ptrdiff_t distance = (tail - head) + static_cast<std::ptrdiff_t>(period);
        return static_cast<std::size_t>(distance) % period;
    }

private:
    void inc(double*& p) {
        ++p;
        if (p >= window + period) p = window;
    }

    unsigned int period;
    double* window;
    double* head;
    double* tail;
    double total;
};

#endif  // ORU_UTILS_INTERFACE_H
