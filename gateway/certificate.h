// The certificate of the listeners with TLS.
#pragma once

#include <sys/stat.h>

#include <boost/asio/ssl/context.hpp>
#include <functional>
#include <memory>
#include <string>

namespace gateway {

class Certificate {
  public:
    /// Throws std::runtime_error when the files hold no certificate and its key.
    Certificate(std::string certificate, std::string key);

    /// What a connection is to begin with. Reads the files again when they have changed; while they
    /// do not fit together, as in the middle of a renewal, the ones before count, and report gets
    /// why.
    std::shared_ptr<boost::asio::ssl::context> current(
        const std::function<void(const std::string &)> &report);

  private:
    /// What tells that a file is another one.
    struct Stamp {
        ino_t inode = 0;
        off_t size = 0;
        timespec changed{};
        bool operator==(const Stamp &other) const;
    };
    static Stamp stampOf(const std::string &file);
    std::shared_ptr<boost::asio::ssl::context> load() const;

    const std::string certificate_, key_;
    Stamp certificateStamp_, keyStamp_;
    std::shared_ptr<boost::asio::ssl::context> context_;
};

}  // namespace gateway
