// The library's one output path: every line it prints goes through here. By
// default a line goes where it always went (standard output, the bulk
// transfer status line standard error); ORU_DEVICE_LOG=stdout|stderr|off,
// read once at the first line, changes that, and an application's handler
// (duSetLogHandler) takes every line instead. Internal.
#ifndef ORU_LOG_H
#define ORU_LOG_H

enum OruLogLevel { kLogNormal = 0, kLogError = 1 };

// printf-style text for standard output; may hold several lines or end
// without a newline (the rest of the line follows in a later call).
void oru_log(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));
// The same for text that goes to standard error by default.
void oru_log_stderr(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Handler of the exported duSetLogHandler (null: back to the default).
typedef void (*OruLogHandler)(int level, const char* line, void* user);
void oru_set_log_handler(OruLogHandler handler, void* user);

// Tests: forget the handler and read ORU_DEVICE_LOG again at the next line.
void reset_log_sink();

#endif
