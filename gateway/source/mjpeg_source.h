// A stream of JPEGs over HTTP, as capture devices, cameras and their programs serve it.
#pragma once

#include <memory>
#include <string>

#include "gateway/source/source.h"

namespace gateway {

class MjpegSource : public Source {
  public:
    struct Setup {
        std::string host;            ///< for the header Host
        std::string target;          ///< path and query, from "/" on
        std::string user, password;  ///< empty: none
        std::chrono::milliseconds patience;
    };
    /// canvas must outlive it.
    MjpegSource(rfb::Canvas &canvas, const Setup &setup, Time now);
    ~MjpegSource() override;

    void take(const std::uint8_t *bytes, std::size_t count) override;
    bool work(Time now) override;
    rfb::Bytes output(Time now) override;
    Time due() const override;
    void stayAwake(Time) override {}

  private:
    class Response;

    rfb::Canvas &canvas_;
    const std::chrono::milliseconds patience_;
    const std::unique_ptr<Response> response_;
    rfb::Bytes out_;
    Time shown_;           ///< the last picture, or the beginning
    std::string trouble_;  ///< with what came since then
};

}  // namespace gateway
