#include "progress.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>

bool stderr_is_terminal() { return isatty(STDERR_FILENO) == 1; }

Progress::Progress(bool enabled) : enabled_(enabled) {}

Progress::~Progress() { done(); }

void Progress::step(int done_count, int total, const std::string& label) {
    if (!enabled_ || total <= 0) return;
    const int width = 30;
    int filled = done_count * width / total;
    std::fprintf(stderr, "\r%s [%.*s%*s] %d/%d", label.c_str(), filled, "##############################",
                 width - filled, "", done_count, total);
    if (done_count >= total) std::fprintf(stderr, "\n");
    std::fflush(stderr);
}

void Progress::spin(const std::string& label) {
    if (!enabled_) return;
    done();
    spinning_ = true;
    spinner_ = std::thread([this, label] {
        const char marks[] = "|/-\\";
        int i = 0;
        auto start = std::chrono::steady_clock::now();
        while (spinning_) {
            double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            std::fprintf(stderr, "\r%s %c %.0f s", label.c_str(), marks[i++ % 4], s);
            std::fflush(stderr);
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
        }
        std::fprintf(stderr, "\r%*s\r", static_cast<int>(label.size()) + 12, "");
        std::fflush(stderr);
    });
}

void Progress::done() {
    if (spinner_.joinable()) {
        spinning_ = false;
        spinner_.join();
    }
}
