/* A plain libusb program, built against the real libusb-1.0 and run with the
 * virtual sensor's drop-in library first on its library path:
 *   dropin_client <sensors> <frames>
 * It lists the sensors, reads their identities, streams <frames> frames from
 * each (expecting the frame-counter pattern) and checks that waiting for a
 * pending transfer costs no CPU. */
#define _POSIX_C_SOURCE 200809L
#include <libusb.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#define MAX_SENSORS 16
#define FRAME_BYTES 2048

struct stream {
    unsigned char buf[FRAME_BYTES];
    int frames;
    int wanted;
    int bad;
    int failed;
};

static int fail(const char* what, int rc) {
    fprintf(stderr, "dropin_client: %s (%d %s)\n", what, rc, libusb_error_name(rc));
    return 1;
}

static void LIBUSB_CALL on_frame(struct libusb_transfer* t) {
    struct stream* s = t->user_data;
    if (t->status != LIBUSB_TRANSFER_COMPLETED || t->actual_length != FRAME_BYTES) {
        s->failed = 1;
        return;
    }
    const int expected = s->frames % 4096;
    for (int i = 0; i < 1024; ++i) {
        const int v = (t->buffer[2 * i] << 4) | (t->buffer[2 * i + 1] >> 4);
        if (v != expected) {
            ++s->bad;
            break;
        }
    }
    if (++s->frames < s->wanted && libusb_submit_transfer(t) != 0) s->failed = 1;
}

static void on_cancel(struct libusb_transfer* t) { *(int*)t->user_data = t->status; }

static double seconds(clockid_t clock) {
    struct timespec ts;
    clock_gettime(clock, &ts);
    return (double)ts.tv_sec + ts.tv_nsec / 1e9;
}

static int check_identity(libusb_device_handle* h, int n) {
    unsigned char b[5] = {0};
    int rc = libusb_control_transfer(h, 0xA1, 1, 0, 0, b, 5, 2000);
    if (rc != 5) return fail("identity read", rc);
    const char lot_char = (char)((b[0] >> 3) + 'A');
    const int upper = ((b[0] << 3) & 0x38) | ((b[1] >> 5) & 5);
    const int lower = ((b[1] << 3) & 0xFF) | (b[2] >> 5);
    const int lot = upper << 8 | lower;
    const int wafer = b[2] & 0x1F;
    const int x = b[3] >> 2, y = ((b[3] << 4) & 0x30) | (b[4] >> 4), type = (b[4] >> 1) & 7;
    char text[64], expected[64];
    snprintf(text, sizeof text, "%c%d-%d-%d-%d-%d", lot_char, lot, wafer, x, y, type);
    snprintf(expected, sizeof expected, "A4486-3-%d-40-2", 12 + n);
    printf("sensor %d: %s\n", n, text);
    if (strcmp(text, expected) != 0) {
        fprintf(stderr, "dropin_client: sensor %d is %s, expected %s\n", n, text, expected);
        return 1;
    }
    return 0;
}

static int stream_frames(libusb_device_handle** h, int n, int frames) {
    static struct stream streams[MAX_SENSORS];
    struct libusb_transfer* t[MAX_SENSORS];
    for (int i = 0; i < n; ++i) {
        memset(&streams[i], 0, sizeof streams[i]);
        streams[i].wanted = frames;
        t[i] = libusb_alloc_transfer(0);
        libusb_fill_bulk_transfer(t[i], h[i], 0x81, streams[i].buf, FRAME_BYTES, on_frame, &streams[i], 0);
        int rc = libusb_submit_transfer(t[i]);
        if (rc) return fail("submit", rc);
        rc = libusb_control_transfer(h[i], 0x21, 70, 0, 1, NULL, 0, 2000);
        if (rc < 0) return fail("start streaming", rc);
    }
    for (;;) {
        int done = 1;
        for (int i = 0; i < n; ++i) {
            if (streams[i].failed) return fail("bulk completion", streams[i].failed);
            if (streams[i].frames < frames) done = 0;
        }
        if (done) break;
        struct timeval tv = {5, 0};
        int rc = libusb_handle_events_timeout(NULL, &tv);
        if (rc < 0) return fail("handle events", rc);
    }
    int bad = 0;
    for (int i = 0; i < n; ++i) {
        libusb_control_transfer(h[i], 0x21, 71, 0, 1, NULL, 0, 2000);
        printf("sensor %d: %d frames, %d unexpected\n", i, streams[i].frames, streams[i].bad);
        bad += streams[i].bad;
        libusb_free_transfer(t[i]);
    }
    return bad ? 1 : 0;
}

static int idle_cpu(libusb_device_handle* h) {
    unsigned char buf[FRAME_BYTES];
    int status = -1;
    struct libusb_transfer* t = libusb_alloc_transfer(0);
    libusb_fill_bulk_transfer(t, h, 0x81, buf, FRAME_BYTES, on_cancel, &status, 0);
    int rc = libusb_submit_transfer(t);
    if (rc) return fail("submit idle", rc);
    const double wall0 = seconds(CLOCK_MONOTONIC), cpu0 = seconds(CLOCK_PROCESS_CPUTIME_ID);
    while (seconds(CLOCK_MONOTONIC) - wall0 < 1.0) {
        struct timeval tv = {0, 250000};
        libusb_handle_events_timeout(NULL, &tv);
    }
    const double wall = seconds(CLOCK_MONOTONIC) - wall0, cpu = seconds(CLOCK_PROCESS_CPUTIME_ID) - cpu0;
    printf("idle: %.3f s CPU over %.3f s waiting (%.2f %%)\n", cpu, wall, 100.0 * cpu / wall);
    libusb_cancel_transfer(t);
    struct timeval tv = {1, 0};
    libusb_handle_events_timeout(NULL, &tv);
    libusb_free_transfer(t);
    if (status != -1 && status != LIBUSB_TRANSFER_CANCELLED) return fail("idle transfer status", status);
    if (status == -1) return fail("idle transfer not completed after cancel", -1);
    return cpu / wall < 0.05 ? 0 : fail("CPU used while idle", (int)(100 * cpu / wall));
}

int main(int argc, char** argv) {
    const int want = argc > 1 ? atoi(argv[1]) : 1;
    const int frames = argc > 2 ? atoi(argv[2]) : 1000;
    if (want < 1 || want > MAX_SENSORS) return fail("bad sensor count", want);
    int rc = libusb_init(NULL);
    if (rc) return fail("libusb_init", rc);
    printf("libusb %s\n", libusb_get_version()->describe);

    libusb_device** list = NULL;
    const ssize_t count = libusb_get_device_list(NULL, &list);
    if (count < 0) return fail("device list", (int)count);
    libusb_device_handle* h[MAX_SENSORS];
    int n = 0;
    for (ssize_t i = 0; i < count && n < MAX_SENSORS; ++i) {
        struct libusb_device_descriptor d;
        if (libusb_get_device_descriptor(list[i], &d) != 0) continue;
        if (d.idVendor != 0x0483 || d.idProduct != 0x5740) continue;
        rc = libusb_open(list[i], &h[n]);
        if (rc) return fail("open", rc);
        rc = libusb_claim_interface(h[n], 0);
        if (rc) return fail("claim", rc);
        ++n;
    }
    libusb_free_device_list(list, 1);
    printf("%d sensors\n", n);
    if (n != want) return fail("wrong number of sensors", n);

    int errors = 0;
    for (int i = 0; i < n; ++i) errors += check_identity(h[i], i);
    errors += stream_frames(h, n, frames);
    errors += idle_cpu(h[0]);

    for (int i = 0; i < n; ++i) {
        libusb_release_interface(h[i], 0);
        libusb_close(h[i]);
    }
    libusb_exit(NULL);
    printf(errors ? "FAILED\n" : "OK\n");
    return errors ? 1 : 0;
}
