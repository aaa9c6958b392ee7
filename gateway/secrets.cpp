#include "gateway/secrets.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <sys/stat.h>

#include <stdexcept>

#include "terminal/config_text.h"

namespace gateway {

void fillRandom(unsigned char *bytes, std::size_t count) {
    if (RAND_bytes(bytes, static_cast<int>(count)) != 1)
        throw std::runtime_error("OpenSSL has no random bytes");
}

bool sameSecret(const std::string &given, const std::string &wanted) {
    unsigned char a[EVP_MAX_MD_SIZE], b[EVP_MAX_MD_SIZE];
    unsigned size = 0;
    EVP_Digest(given.data(), given.size(), a, &size, EVP_sha256(), nullptr);
    EVP_Digest(wanted.data(), wanted.size(), b, &size, EVP_sha256(), nullptr);
    return CRYPTO_memcmp(a, b, size) == 0;
}

std::string readPassword(const std::string &file) {
    struct stat status {};
    const auto text = quillon::readConfigText(file);
    if (!text || stat(file.c_str(), &status) != 0)
        throw std::runtime_error("there is no password file " + file);
    if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0)
        throw std::runtime_error(file + " holds a password, but others may read it: chmod 600");
    std::string password = text->substr(0, text->find('\n'));
    if (!password.empty() && password.back() == '\r') password.pop_back();
    if (password.empty()) throw std::runtime_error(file + " holds no password");
    return password;
}

}  // namespace gateway
