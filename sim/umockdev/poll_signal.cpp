#include "poll_signal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace umockbus {

namespace {
constexpr int kOnePage = 4096;
}

PollSignal::~PollSignal() {
    if (m_fd >= 0) close(m_fd);
}

std::string PollSignal::create(const std::string& path) {
    unlink(path.c_str());  // whatever umockdev left there
    if (mkfifo(path.c_str(), 0666) != 0) return "mkfifo " + path + ": " + std::strerror(errno);
    m_fd = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (m_fd < 0) return "open " + path + ": " + std::strerror(errno);
    // One page: a single byte then fills the pipe, and poll stops reporting it writable.
    if (fcntl(m_fd, F_SETPIPE_SZ, kOnePage) < 0) return std::string("F_SETPIPE_SZ: ") + std::strerror(errno);
    set_ready(false);
    return "";
}

void PollSignal::set_ready(bool ready) {
    if (m_fd < 0 || ready == m_ready) return;
    m_ready = ready;
    if (ready) {
        char buf[kOnePage];
        while (read(m_fd, buf, sizeof buf) > 0) {}
    } else {
        const char byte = 0;
        if (write(m_fd, &byte, 1) < 0 && errno != EAGAIN) m_ready = true;
    }
}

}  // namespace umockbus
