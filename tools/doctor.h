// Checks that make a real sensor unusable on this machine, each with its fix.
#ifndef ORU_TOOLS_DOCTOR_H
#define ORU_TOOLS_DOCTOR_H

#include <cstdio>

// Returns the number of checks that failed. The sysfs and /dev roots can be
// moved with ORU_DOCTOR_SYSFS and ORU_DOCTOR_DEVFS (used by the tests).
int run_doctor(FILE* out);

#endif
