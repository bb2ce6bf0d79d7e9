#include "cli_errors.h"

std::string describe_result(int code) {
    switch (code) {
    case -1:
        return "the operation failed";
    case 0:
        return "undefined failure";
    case -2:
        return "a buffer was missing or memory ran out";
    case -3:
        return "no sensor found";
    case -4:
        return "could not connect to the sensor";
    case -5:
        return "could not create the device object";
    case -6:
        return "could not initialize the sensor";
    case -7:
        return "no sensor is connected";
    case -8:
        return "the sensor ID is empty";
    case -9:
        return "the sensor did not answer in time";
    case -23:
        return "the sensor gave a wrong reply";
    case -24:
        return "invalid input";
    case -26:
        return "the sensor is not initialized";
    default:
        return "error";
    }
}
