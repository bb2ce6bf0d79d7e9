/* The C side of python_stream.py: reads the frame stream of the first sensor
 * through the exported interface, as the Python binding does, and prints the
 * CPU per reading of the process and of the reading thread alone (the
 * process also runs the library's event thread and the virtual sensor).
 *     stream_reader AVERAGES SECONDS */
#include "oru_device_api.h"

#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <time.h>

static double cpu_seconds(void) {
    struct rusage u;
    getrusage(RUSAGE_SELF, &u);
    return (double)(u.ru_utime.tv_sec + u.ru_stime.tv_sec) + (u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

static double clock_seconds(clockid_t clock) {
    struct timespec t;
    clock_gettime(clock, &t);
    return (double)t.tv_sec + t.tv_nsec / 1e9;
}

int main(int argc, char** argv) {
    double values[1024], cpu, thread_cpu, start;
    duFrameStreamInfo info;
    long readings = 0;
    int averages;
    double seconds;

    if (argc != 3) return 2;
    averages = atoi(argv[1]);
    seconds = atof(argv[2]);
    if (duConnect() < 1 || duSetShutterSpeed(1) != 1 || duStartFrameStream() != 1) return 1;
    /* One reading first: both readers measure a stream that runs. */
    if (duReadFrameStreamOf(0, values, averages, 5000, &info) != 1) return 1;
    cpu = cpu_seconds();
    thread_cpu = clock_seconds(CLOCK_THREAD_CPUTIME_ID);
    start = clock_seconds(CLOCK_MONOTONIC);
    while (clock_seconds(CLOCK_MONOTONIC) - start < seconds) {
        if (duReadFrameStreamOf(0, values, averages, 5000, &info) != 1) return 1;
        ++readings;
    }
    cpu = cpu_seconds() - cpu;
    thread_cpu = clock_seconds(CLOCK_THREAD_CPUTIME_ID) - thread_cpu;
    printf("readings %ld cpu_us %.1f dropped %llu reader_cpu_us %.1f\n", readings, cpu * 1e6 / (double)readings,
           (unsigned long long)info.dropped_frames, thread_cpu * 1e6 / (double)readings);
    duStopFrameStream();
    duDisconnect();
    return 0;
}
