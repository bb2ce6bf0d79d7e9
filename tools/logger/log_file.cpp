#include "log_file.h"

#include <ctime>

bool log_format_from_name(const std::string& name, LogFormat& format) {
    if (name == "csv")
        format = LogFormat::Csv;
    else if (name == "jsonl")
        format = LogFormat::JsonLines;
    else if (name == "hdf5")
        format = LogFormat::Hdf5;
    else
        return false;
    return true;
}

const char* log_format_extension(LogFormat format) {
    switch (format) {
    case LogFormat::Csv:
        return "csv";
    case LogFormat::JsonLines:
        return "jsonl";
    case LogFormat::Hdf5:
        return "h5";
    }
    return "";
}

std::unique_ptr<LogFile> create_log_file(LogFormat format, const std::string& path, const LogFileInfo& info,
                                         const MeasurementApi& api, std::string& error) {
    if (format == LogFormat::Hdf5) return create_hdf5_log_file(path, info, api, error);
    return create_text_log_file(format, path, info, api, error);
}

std::string utc_text(int64_t ns, const char* format) {
    const std::time_t seconds = static_cast<std::time_t>(ns / 1000000000);
    std::tm tm{};
    gmtime_r(&seconds, &tm);
    char text[64];
    std::strftime(text, sizeof text, format, &tm);
    return text;
}
