// What the preload library tells the simulator of a serial port, over a socket at kUartSocket. It
// waits for the answer, one byte, which comes when the wire has taken all that was written.
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
