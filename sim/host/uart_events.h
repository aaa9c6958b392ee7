// What the preload library tells the simulator about a serial port, over the socket kUartSocket. It
// waits for one byte as the answer, which comes when the wire has carried all that was written.
#pragma once

namespace sim {

struct UartEvent {
    enum Kind : unsigned char {
        kOpened,
        kDrain,
        kClosing  ///< from then on nothing is received until the port is opened
    };
    Kind kind;
    unsigned char port;  ///< 0 to 3
};

}  // namespace sim
