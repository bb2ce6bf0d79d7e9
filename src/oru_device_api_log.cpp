// Exported choice of where the library's lines go.
#include "oru_device_api.h"

#include "oru_log.h"

extern "C" {

void duSetLogHandler(void (*handler)(int level, const char* line, void* user), void* user) {
    oru_set_log_handler(handler, user);
}

}  // extern "C"
