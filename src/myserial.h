// The serial line to the HID chip (or the microcontroller), and single SoC registers.
#pragma once

/// One process-wide serial port. Nothing serialises its users: two writers interleave at the
/// granularity of single writes, and an answer goes to whichever thread reads first.
class MySerial {
  public:
    enum ComPort {
        kUART0,      ///< /dev/ttyAMA0
        kUART1,      ///< /dev/ttyAMA1
        kUART2,      ///< /dev/ttyAMA2
        KUART3,      ///< /dev/ttyAMA3
        kCOMPortMax  ///< opens nothing, goes on with the descriptor there is
    };

    /// Opens the port for blocking reads and writes. False when that failed, and also when
    /// standard input is no terminal: the port is open and usable then. Does not close an
    /// earlier descriptor.
    static bool open_port(ComPort port);

    /// Raw mode at 2400, 4800, 9600, 38400, 57600 or 115200 bits per second (anything else is
    /// 9600), 7 or 8 data bits (anything else is 5), parity 'N', 'O' or 'E'. Discards output that
    /// is still untransmitted.
    static bool set_opt(int speed, int bits, int stop, char parity, int vtime, int vmin);

    /// Writes all of it; the length, or 0 for a length of 0 or less. A failing write is tried
    /// again without pause or limit, so this never returns on a port that is not open.
    static int nwrite(const char *data, int length);

    /// What a time-out of 0 stands for, microseconds.
    static constexpr int kDefaultWait = 60000;

    /// One read of up to length bytes after a wait of up to timeout microseconds (0: kDefaultWait).
    /// The count, 0 when the wait ran out, -1 when it failed, or what the failing read returned.
    static int nread(char *buffer, int length, int timeout);

    /// Throws away what was received and not read yet; nothing on a port that is not open.
    static void discardInput();

    /// Closes the port; fd_ keeps its value, though reads and writes fail until it is opened anew.
    static void close_port();

    /// Writes past the terminal driver into the UART at 0x12130000. Always 1.
    static int uartWrite(char *data, int length);

    /// Descriptor of the port last opened, -1 when that failed.
    static int fd_;

  private:
    static int descriptor();
    static void delaytime_(unsigned) {}

    static int closedFd_;  // number that was closed, -1 for none
};

/// One 32-bit register by physical address: 0, -1 when it could not be mapped, the SoC's
/// null-pointer code 0xA0028006 for a null output, or the unmapping error.
int SAMPLE_SYS_GetReg(unsigned int u32Addr, unsigned int *pu32Value);
int SAMPLE_SYS_SetReg(unsigned int u32Addr, unsigned int u32Value);
