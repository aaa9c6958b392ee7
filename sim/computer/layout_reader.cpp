#include "sim/computer/layout_reader.h"

#include "layouts/reading.h"

namespace sim {
namespace {

class LayoutReader : public KeyReader {
  public:
    explicit LayoutReader(const quillon::LayoutChoice &choice) : reader_(choice) {}
    std::string press(std::uint8_t usage) override { return reader_.press(usage); }
    void release(std::uint8_t usage) override { reader_.release(usage); }
    bool capsLock() const override { return reader_.capsLock(); }
    bool numLock() const override { return reader_.numLock(); }

  private:
    quillon::ReportReader reader_;
};

}  // namespace

std::unique_ptr<KeyReader> readerOf(const quillon::LayoutChoice &choice) {
    return std::make_unique<LayoutReader>(choice);
}

}  // namespace sim
