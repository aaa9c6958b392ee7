// The cable between the chip and a virtual computer: a UsbDevice over the usbredir protocol, which
// QEMU's device "usb-redir" speaks at the other end.
#pragma once

#include <memory>

#include "sim/host/descriptor.h"
#include "sim/usb/usb_device.h"

namespace sim {

/// Never waits. All calls come from one thread.
class UsbCable {
  public:
    /// On a connected stream socket, which it closes at its end.
    explicit UsbCable(Descriptor fd);
    ~UsbCable();
    UsbCable(const UsbCable &) = delete;
    UsbCable &operator=(const UsbCable &) = delete;

    int descriptor() const;

    /// Plugs a device in, or with null pulls the plug. The one before need not exist any more; no
    /// other call may come between its end and this.
    void plug(UsbDevice *device);
    /// Reads requests and answers them; false at the end of the connection.
    bool read();
    /// Hands over the reports that are due, and writes what waits.
    void write();
    /// Whether the socket was too full for what waits.
    bool blocked() const;

  private:
    class Peer;
    std::unique_ptr<Peer> peer_;
};

}  // namespace sim
