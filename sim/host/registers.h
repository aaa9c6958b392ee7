// The board's registers: a sparse file in place of /dev/mem.
#pragma once

#include <cstdint>
#include <string>

namespace sim {

class Registers {
  public:
    /// Makes the file, all zero but for the flags of an idle UART: /dev/mem on the private host, or
    /// "mem" in a folder of devices. Throws std::runtime_error when it cannot.
    explicit Registers(const std::string &devices = "");
    ~Registers();
    Registers(const Registers &) = delete;
    Registers &operator=(const Registers &) = delete;

    std::uint32_t get(std::uint32_t address) const;
    void set(std::uint32_t address, std::uint32_t value);

    /// True when /dev/mem, as a process started now would open it, is this file: the daemon must
    /// never write to the memory of a PC.
    bool shadowDevMem() const;

  private:
    int fd_ = -1;
    std::string published_;  ///< in a folder of devices
};

}  // namespace sim
