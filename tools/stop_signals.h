// SIGINT and SIGTERM end a run cleanly: a reading in progress is abandoned,
// streaming stops, the sensors are disconnected and everything read is on
// disk. A second signal ends the program at once.
#ifndef ORU_TOOLS_STOP_SIGNALS_H
#define ORU_TOOLS_STOP_SIGNALS_H

void install_stop_signals();
// 0 while no stop signal came, else its number.
int stop_signal();

#endif
