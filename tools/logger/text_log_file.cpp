// CSV and JSON Lines log files, written by the library's one formatter of
// reading files: a header, then a row a reading.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "log_file.h"

namespace {

class TextLogFile : public LogFile {
public:
    TextLogFile(int fd, int format, const LogFileInfo& info, const MeasurementApi& api)
        : m_fd(fd), m_format(format), m_info(info), m_api(api) {}
    ~TextLogFile() override { close(); }

    bool start() {
        duFileHeader header{};
        header.kind = DU_KIND_READINGS;
        header.mode = DU_MODE_RAW;
        header.sensor_count = 1;
        header.sensors[0] = m_info.sensor;
        m_pending = format_text(m_api.duFormatFileHeader, m_format, header);
        return !m_pending.empty() && flush();
    }

    bool append(const Measurement& m) override {
        const duReadingRow row = reading_row(m, m_info.sensor.settings.master_clock);
        m_pending += format_text(m_api.duFormatReadingRow, m_format, row);
        return true;
    }

    // Whole rows only reach the file, so a reader (or a kill) never sees half
    // of one unless the write itself is cut.
    bool flush() override {
        std::size_t done = 0;
        while (done < m_pending.size()) {
            const ssize_t n = ::write(m_fd, m_pending.data() + done, m_pending.size() - done);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) {
                m_error = std::string("cannot write: ") + std::strerror(errno);
                return false;
            }
            done += static_cast<std::size_t>(n);
        }
        m_bytes += done;
        m_pending.clear();
        return true;
    }

    bool close() override {
        if (m_fd < 0) return m_error.empty();
        const bool flushed = flush();
        const bool closed = ::close(m_fd) == 0;
        if (flushed && !closed) m_error = std::string("cannot close: ") + std::strerror(errno);
        m_fd = -1;
        return flushed && closed;
    }

    uint64_t bytes() const override { return m_bytes + m_pending.size(); }

private:
    int m_fd;
    int m_format;
    LogFileInfo m_info;
    const MeasurementApi& m_api;
    std::string m_pending;
    uint64_t m_bytes = 0;
};

}  // namespace

std::unique_ptr<LogFile> create_text_log_file(LogFormat format, const std::string& path, const LogFileInfo& info,
                                              const MeasurementApi& api, std::string& error) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) {
        error = "cannot create " + path + ": " + std::strerror(errno);
        return nullptr;
    }
    auto file = std::make_unique<TextLogFile>(fd, format == LogFormat::Csv ? DU_FILE_CSV : DU_FILE_JSONL, info, api);
    if (!file->start()) {
        error = path + ": " + (file->error().empty() ? "no header from the library" : file->error());
        return nullptr;
    }
    return file;
}
