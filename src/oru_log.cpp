// The output path of every line the library prints.
#include "oru_log.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <shared_mutex>
#include <string>

namespace {

enum class Default { Unread, Stdout, Stderr, Off };

// Written by duSetLogHandler and by the first line (the default), read by
// every thread that prints (callers and the event thread): under g_sinkLock,
// shared while a line is delivered, so a handler that is being replaced is
// never called after duSetLogHandler returns.
std::shared_mutex g_sinkLock;
OruLogHandler g_handler = nullptr;
void* g_handlerUser = nullptr;
Default g_default = Default::Unread;

// Text of the current line not yet ended by a newline, per thread: a
// handler gets whole lines only.
thread_local std::string t_partialLine;

Default read_default() {
    const char* value = std::getenv("ORU_DEVICE_LOG");
    if (value == nullptr || std::strcmp(value, "stdout") == 0) return Default::Stdout;
    if (std::strcmp(value, "stderr") == 0) return Default::Stderr;
    if (std::strcmp(value, "off") == 0) return Default::Off;
    return Default::Stdout;  // an unknown value keeps the usual output
}

void ensure_default_read() {
    {
        std::shared_lock<std::shared_mutex> lk(g_sinkLock);
        if (g_default != Default::Unread) return;
    }
    std::unique_lock<std::shared_mutex> lk(g_sinkLock);
    if (g_default == Default::Unread) g_default = read_default();
}

void deliver_lines(OruLogHandler handler, void* user, int level, const char* text) {
    t_partialLine += text;
    std::string::size_type start = 0, end;
    while ((end = t_partialLine.find('\n', start)) != std::string::npos) {
        const std::string line = t_partialLine.substr(start, end - start);
        handler(level, line.c_str(), user);
        start = end + 1;
    }
    t_partialLine.erase(0, start);
}

void write(bool bToStderr, int level, const char* format, va_list args) {
    ensure_default_read();
    std::shared_lock<std::shared_mutex> lk(g_sinkLock);
    if (g_handler != nullptr) {
        char small[256];
        va_list copy;
        va_copy(copy, args);
        const int length = std::vsnprintf(small, sizeof small, format, copy);
        va_end(copy);
        if (length < 0) return;
        if (static_cast<size_t>(length) < sizeof small) {
            deliver_lines(g_handler, g_handlerUser, level, small);
        } else {
            std::string text(static_cast<size_t>(length) + 1, '\0');
            std::vsnprintf(&text[0], text.size(), format, args);
            text.resize(static_cast<size_t>(length));
            deliver_lines(g_handler, g_handlerUser, level, text.c_str());
        }
        return;
    }
    switch (g_default) {
    case Default::Off:
        return;
    case Default::Stderr:
        std::vfprintf(stderr, format, args);
        return;
    default:
        std::vfprintf(bToStderr ? stderr : stdout, format, args);
        return;
    }
}

}  // namespace

void oru_log(int level, const char* format, ...) {
    va_list args;
    va_start(args, format);
    write(false, level, format, args);
    va_end(args);
}

void oru_log_stderr(int level, const char* format, ...) {
    va_list args;
    va_start(args, format);
    write(true, level, format, args);
    va_end(args);
}

void oru_set_log_handler(OruLogHandler handler, void* user) {
    ensure_default_read();
    std::unique_lock<std::shared_mutex> lk(g_sinkLock);
    g_handler = handler;
    g_handlerUser = user;
}

void reset_log_sink() {
    std::unique_lock<std::shared_mutex> lk(g_sinkLock);
    g_handler = nullptr;
    g_handlerUser = nullptr;
    g_default = Default::Unread;
    t_partialLine.clear();
}
