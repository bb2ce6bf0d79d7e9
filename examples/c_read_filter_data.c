/* Connect, search the optimal shutter speed, read averaged filter data and
 * disconnect, using only the exported C API.
 *
 *   cc c_read_filter_data.c $(pkg-config --cflags --libs oru_device)
 */
#include <stdio.h>
#include <stdlib.h>

#include "oru_device_api.h"

int main(void) {
    int n = duConnect();
    if (n < 0) {
        fprintf(stderr, "no sensor found (%d)\n", n);
        return 1;
    }
    char id[26];
    if (duGetSensorID(id) < 0) {
        duDisconnect();
        return 1;
    }

    int shutter = duGetOptimalShutterSpeed(NULL, 0); /* the 824 default filters, target 3500 DN */
    if (shutter < 0) {
        fprintf(stderr, "auto exposure failed (%d)\n", shutter);
        duDisconnect();
        return 1;
    }
    duSetShutterSpeed(shutter);

    double data[1024];
    int rc = duGetFilterData(data, 10);
    if (rc < 0) {
        fprintf(stderr, "reading filter data failed (%d)\n", rc);
        duDisconnect();
        return 1;
    }
    double peak = 0;
    int at = 0;
    for (int i = 0; i < 1024; ++i)
        if (data[i] > peak) {
            peak = data[i];
            at = i;
        }
    fprintf(stderr, "sensor %s: shutter %d, peak %.1f DN at filter %d\n", id, shutter, peak, at);
    duDisconnect();
    return 0;
}
