#include "gateway/certificate.h"

#include <openssl/ssl.h>

#include <boost/asio/buffer.hpp>
#include <stdexcept>

#include "terminal/config_text.h"

namespace gateway {

namespace ssl = boost::asio::ssl;

bool Certificate::Stamp::operator==(const Stamp &other) const {
    return inode == other.inode && size == other.size && changed.tv_sec == other.changed.tv_sec &&
           changed.tv_nsec == other.changed.tv_nsec;
}

Certificate::Stamp Certificate::stampOf(const std::string &file) {
    struct stat status {};
    if (stat(file.c_str(), &status) != 0) return {};
    return {status.st_ino, status.st_size, status.st_mtim};
}

Certificate::Certificate(std::string certificate, std::string key)
    : certificate_(std::move(certificate)),
      key_(std::move(key)),
      certificateStamp_(stampOf(certificate_)),
      keyStamp_(stampOf(key_)),
      context_(load()) {}

std::shared_ptr<ssl::context> Certificate::load() const {
    auto context = std::make_shared<ssl::context>(ssl::context::tls_server);
    const auto require = [](const boost::system::error_code &error, const std::string &what) {
        if (error) throw std::runtime_error(what + ": " + error.message());
    };
    const auto read = [](const std::string &file) {
        const auto text = quillon::readConfigText(file);
        if (!text) throw std::runtime_error("there is no file " + file);
        return *text;
    };
    const std::string certificate = read(certificate_), key = read(key_);
    struct stat status {};
    if (stat(key_.c_str(), &status) != 0 || (status.st_mode & S_IRWXO) != 0)
        throw std::runtime_error(key_ + " holds a key, but everybody may read it: chmod 600");
    boost::system::error_code error;
    // Nobody is asked for the password of a key.
    context->set_password_callback(
        [](std::size_t, ssl::context::password_purpose) { return std::string(); });
    context->use_certificate_chain(boost::asio::buffer(certificate), error);
    require(error, certificate_ + " is no certificate in PEM");
    context->use_private_key(boost::asio::buffer(key), ssl::context::pem, error);
    require(error, key_ + " is not the key of that certificate, or has a password");
    SSL_CTX_set_min_proto_version(context->native_handle(), TLS1_2_VERSION);
    // Some viewers hang when tickets come before they read.
    SSL_CTX_set_num_tickets(context->native_handle(), 0);
    return context;
}

std::shared_ptr<ssl::context> Certificate::current(
    const std::function<void(const std::string &)> &report) {
    const Stamp certificate = stampOf(certificate_), key = stampOf(key_);
    if (certificate == certificateStamp_ && key == keyStamp_) return context_;
    certificateStamp_ = certificate;
    keyStamp_ = key;
    try {
        context_ = load();
        report("The certificate was read again.");
    } catch (const std::runtime_error &error) {
        report(std::string("The certificate from before still counts: ") + error.what() + ".");
    }
    return context_;
}

}  // namespace gateway
