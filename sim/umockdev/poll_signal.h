// The readiness that libusb polls a usbfs node for, on a node that umockdev
// emulates. libusb waits for POLLOUT on the node and then reaps URBs; a plain
// file is always writable, which would spin libusb's event thread. The node
// is a one-page FIFO instead: kept full while nothing is ready to reap, and
// drained while something is, so poll reports writable exactly then.
#ifndef UMOCKBUS_POLL_SIGNAL_H
#define UMOCKBUS_POLL_SIGNAL_H

#include <string>

namespace umockbus {

class PollSignal {
public:
    PollSignal() = default;
    ~PollSignal();
    PollSignal(const PollSignal&) = delete;
    PollSignal& operator=(const PollSignal&) = delete;

    // Makes `path` a FIFO of one page, held open by this side, not ready.
    // Returns an error text, or "" on success.
    std::string create(const std::string& path);
    // Writable for the client (something to reap) or not. Cheap when unchanged.
    void set_ready(bool ready);

private:
    int m_fd = -1;
    bool m_ready = true;  // create() fills the pipe
};

}  // namespace umockbus

#endif
