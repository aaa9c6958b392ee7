// The settings of the daemon and their file.
#pragma once

#include <pthread.h>

#include <memory>
#include <string>
#include <vector>

/// Reads a text file into lines.
class line_read {
  public:
    explicit line_read(const std::string &file) : file_(file) {}

    /// Appends the file's lines, without line feed and the carriage return before it. False when
    /// nothing was read: the file is missing or empty, or is a folder or a device.
    bool read_all(std::vector<std::string> &lines);

  private:
    std::string file_;
};

/// Finds keys in the lines of a file; an unreadable file has none.
class read_ini {
  public:
    explicit read_ini(const std::string &path);

    /// Finds the first line that holds key anywhere and does not begin with ';', '#' or '!'. True
    /// when there is one; the text after key goes to out unless it is empty. Instantiated for
    /// std::string.
    template <class T>
    // cppcheck-suppress passedByValue; callers depend on this signature.
    bool find_value(std::string key, T &out) {
        return find_value_(lines, key, out);
    }

  private:
    template <class T>
    static bool find_value_(const std::vector<std::string> &lines, const std::string &key, T &out);

    std::vector<std::string> lines;
};

/// False for a text that would be read back from the settings file as another setting: one with '='
/// (keys are searched anywhere in a line) or with a control character.
bool isStorable(const std::string &value);

/// All settings as text, and their file "./quillon.ini". Not locked: two threads that write the
/// same item, or one that saves while another sets, are not coordinated.
class SoftwareConfig {
  public:
    enum SoftWareConfigID {
        kComPort,  ///< "COM0" to "COM3": /dev/ttyAMA0 to 3
        kBaudRate,
        kDataBits,
        kParity,  ///< N, O or E
        kStopBits,
        kVTime,
        kVMin,
        kUdpServerPort,  ///< where consoles send their records
        kPerEnable,      ///< not 0: only linked consoles may send
        kUsbPower,
        kKvmIsLinkPc,
        kIp,
        kDelay,
        kChipVersion,  ///< "CH9329" or "CH9350"
        kChipModel,    ///< mouse mode: "rel" or "abs"
        kConnectName,  ///< the holder's name, "0" when nobody is linked
        kConnectPer,   ///< the holder's level
        kConnectIp0,   ///< the holder's outputs; "0.0.0.0" for an empty slot
        kConnectIp1,
        kConnectIp2,
        kConnectIp3,
        kConnectIp4,
        kConnectIp5,
        kConnectIp6,
        kConnectIp7,
        kSoftWareConfigIDMax  ///< the count; GetConfig takes it for the whole file text
    };

    SoftwareConfig();

    /// Reads the values from the file; an item that is missing or empty there keeps its value.
    /// Always true.
    bool ReadConfig();
    /// Rewrites the file in place. False when it cannot be opened for writing.
    bool SaveConfig();
    void PrintConfig();

    /// Changes memory only; false for an ID that is no item.
    bool SetConfig(SoftWareConfigID id, std::string value);
    /// The item, the whole file text for kSoftWareConfigIDMax, empty for any other ID.
    std::string GetConfig(SoftWareConfigID id);

    /// Reserved; does nothing.
    bool LoadConfigToGlobal(bool);

  private:
    std::vector<std::string> lines() const;
    std::string fileText() const;

    std::vector<std::string> configvalue_;
    const char *const filepath_;
};

/// The only T of the process. The first thread that needs it makes it, and it is never destroyed,
/// because other threads go on using it while exit() runs.
template <class T>
class Singleton {
  public:
    static std::shared_ptr<T> getInstance() {
        pthread_once(&ponce_, init);
        return *value_;
    }

    Singleton() = delete;

  private:
    static void init() { value_ = new std::shared_ptr<T>(std::make_shared<T>()); }

    static pthread_once_t ponce_;
    // On the heap and without an owner, so that static destruction does not destroy it.
    static std::shared_ptr<T> *value_;
};

template <class T>
pthread_once_t Singleton<T>::ponce_ = PTHREAD_ONCE_INIT;

template <class T>
std::shared_ptr<T> *Singleton<T>::value_ = nullptr;
