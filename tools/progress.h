// Progress display on standard error, only when it is a terminal.
#ifndef ORU_TOOLS_PROGRESS_H
#define ORU_TOOLS_PROGRESS_H

#include <atomic>
#include <string>
#include <thread>

class Progress {
public:
    explicit Progress(bool enabled);
    ~Progress();
    // A bar for work of known size.
    void step(int done, int total, const std::string& label);
    // A spinner for one long blocking call; stop with done().
    void spin(const std::string& label);
    void done();

private:
    bool enabled_;
    std::atomic<bool> spinning_{false};
    std::thread spinner_;
};

bool stderr_is_terminal();

#endif
