// The serial line to the HID chip (or the microcontroller), and single SoC registers.
#pragma once

/// The one serial port of the process. Its users are not serialised: the single writes of two
/// threads may interleave, and an answer goes to the thread that reads first.
class MySerial {
  public:
    enum ComPort {
        kUART0,      ///< /dev/ttyAMA0
        kUART1,      ///< /dev/ttyAMA1
        kUART2,      ///< /dev/ttyAMA2
        KUART3,      ///< /dev/ttyAMA3
        kCOMPortMax  ///< opens nothing; the present descriptor is used
    };

    /// Opens the port for blocking reads and writes. False when that failed, and also when standard
    /// input is no terminal; then the port is open and usable. Does not close an earlier
    /// descriptor.
    static bool open_port(ComPort port);

    /// Raw mode at 2400, 4800, 9600, 38400, 57600 or 115200 bits per second (anything else is
    /// 9600), 7 or 8 data bits (anything else is 5), parity 'N', 'O' or 'E', vtime in tenths of a
    /// second. Discards output that was not transmitted yet.
    static bool set_opt(int speed, int bits, int stop, char parity, int vtime, int vmin);

    /// Writes all of it; the length, or 0 for a length of 0 or less. A failing write is tried
    /// again without pause or limit, so this never returns on a port that is not open.
    static int nwrite(const char *data, int length);

    /// The wait that a time-out of 0 stands for, microseconds.
    static constexpr int kDefaultWait = 60000;

    /// Waits up to timeout microseconds (0: kDefaultWait), then reads once, up to length bytes. The
    /// count; 0 when the wait ran out or the line hung up; -1 when the wait or the read failed.
    static int nread(char *buffer, int length, int timeout);

    /// Discards received bytes that were not read yet; does nothing on a port that is not open.
    static void discardInput();

    /// Closes the port. fd_ keeps its value, but reads and writes fail until a port is opened.
    static void close_port();

    /// Writes directly to the UART's registers at 0x12130000. Always 1.
    static int uartWrite(char *data, int length);

    /// Descriptor of the port last opened, -1 when that failed.
    static int fd_;

  private:
    static int descriptor();
    static void delaytime_(unsigned) {}

    static int closedFd_;  // descriptor that was closed, -1 for none
};

/// Read and write one 32-bit register at a physical address: 0, -1 when it could not be mapped, the
/// SoC's null-pointer code 0xA0028006 for a null output, or the unmapping error.
int SAMPLE_SYS_GetReg(unsigned int u32Addr, unsigned int *pu32Value);
int SAMPLE_SYS_SetReg(unsigned int u32Addr, unsigned int u32Value);
