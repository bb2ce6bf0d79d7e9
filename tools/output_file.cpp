#include "output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <algorithm>
#include <cstring>
#include <vector>

namespace {

bool is_device_or_pipe(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 && !S_ISREG(st.st_mode);
}

FILE* open_file(const std::string& path, OutputMode mode) {
    // /dev/stdout, /dev/full, a named pipe: there is nothing to keep.
    if (mode == OutputMode::Replace || is_device_or_pipe(path)) return std::fopen(path.c_str(), "w");
    if (mode == OutputMode::Append) return std::fopen(path.c_str(), "a");
    // Created only when no file has the name, checked and made in one step.
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    FILE* file = fd < 0 ? nullptr : ::fdopen(fd, "w");
    if (fd >= 0 && file == nullptr) ::close(fd);
    return file;
}

}  // namespace

OutputFile::OutputFile(const std::string& path, FILE* stdout_stream, OutputMode mode)
    : m_name(path.empty() ? "standard output" : path),
      m_file(path.empty() ? stdout_stream : open_file(path, mode)),
      m_owned(!path.empty()) {
    if (m_file == nullptr && errno == EEXIST && mode == OutputMode::Refuse)
        m_error = m_name + " exists; --force replaces it, --append adds to it";
    else if (m_file == nullptr)
        fail("cannot write");
    else if (m_owned && mode == OutputMode::Append)
        m_appending = std::fseek(m_file, 0, SEEK_END) == 0 && std::ftell(m_file) > 0;
}

bool OutputFile::begins_with(const std::string& header) const {
    FILE* file = std::fopen(m_name.c_str(), "r");
    if (file == nullptr) return false;
    std::vector<char> head(header.size());
    const bool same = std::fread(head.data(), 1, head.size(), file) == head.size() &&
                      std::equal(head.begin(), head.end(), header.begin());
    std::fclose(file);
    return same;
}

OutputFile::~OutputFile() {
    if (m_owned && m_file != nullptr) std::fclose(m_file);
}

bool OutputFile::fail(const char* what) {
    if (m_error.empty()) m_error = std::string(what) + " " + m_name + ": " + std::strerror(errno);
    return false;
}

bool OutputFile::write(const std::string& text) {
    if (m_file == nullptr || !m_error.empty()) return false;
    if (std::fwrite(text.data(), 1, text.size(), m_file) != text.size()) return fail("cannot write");
    if (std::fflush(m_file) != 0) return fail("cannot write");
    return true;
}

bool OutputFile::close() {
    if (m_file == nullptr) return false;
    FILE* file = m_file;
    m_file = nullptr;
    const bool flushed = std::fflush(file) == 0 && !std::ferror(file);
    if (!flushed) fail("cannot write");
    if (m_owned && std::fclose(file) != 0) return fail("cannot close");
    return flushed && m_error.empty();
}
