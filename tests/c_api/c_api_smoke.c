/* The exported interface used from C: two sensors, averaged filter data from
 * each, the auto-exposure search, disconnect. Checks go to stderr; stdout
 * must hold only what the library prints (compared by the test driver). */
#include "oru_device_api.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int failures = 0;

#define CHECK(cond)                                                                  \
    do {                                                                             \
        if (!(cond)) {                                                               \
            fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
            ++failures;                                                              \
        }                                                                            \
    } while (0)

static void read_sensor(int index) {
    double data[1024];
    char id[26];
    int i, in_range = 1;

    CHECK(duActivateSensorWithIndex(index) == 1);
    CHECK(duGetSensorID(id) == 1);
    CHECK(id[0] != '\0' && memchr(id, '\0', sizeof id) != NULL);
    CHECK(duActivateSensorWithID(id) == index);

    for (i = 0; i < 1024; ++i) data[i] = -1.0;
    CHECK(duGetFilterData(data, 4) == 1);
    for (i = 0; i < 1024; ++i) {
        if (!(data[i] >= 0.0 && data[i] <= 4095.0)) in_range = 0;
    }
    CHECK(in_range);
}

int main(void) {
    char** list;
    int i, total, min_limit = 0, max_limit = 0, gain = -1, range = -1, optimal;

    CHECK(duGetMaxSensorCount() == 10);
    CHECK(duConnect() == 2);
    total = duGetTotalSensors();
    CHECK(total == 2);

    list = duGetSensorList();
    CHECK(list != NULL);
    if (list != NULL) {
        for (i = 0; i < total; ++i) {
            CHECK(strlen(list[i]) < 26);
            free(list[i]);
        }
        free(list);
    }

    read_sensor(0);
    read_sensor(1);

    CHECK(duGetSensorParameters(&gain, &range) == 1);
    CHECK(gain == 1 && range == 132);
    CHECK(duGetShutterSpeedLimits(&min_limit, &max_limit) == 1);
    CHECK(min_limit == 1 && max_limit == 3000);

    optimal = duGetOptimalShutterSpeed(NULL, 0);
    CHECK(optimal == -1 || (optimal >= 1 && optimal <= 1200));
    CHECK(duSetShutterSpeed(optimal) == 1);

    CHECK(duDisconnect() == 1);
    CHECK(duGetTotalSensors() == 0);
    return failures == 0 ? 0 : 1;
}
