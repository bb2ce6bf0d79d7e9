#include "output_file.h"

#include <cerrno>
#include <cstring>

OutputFile::OutputFile(const std::string& path, FILE* stdout_stream)
    : m_name(path.empty() ? "standard output" : path),
      m_file(path.empty() ? stdout_stream : std::fopen(path.c_str(), "w")),
      m_owned(!path.empty()) {
    if (m_file == nullptr) fail("cannot write");
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
