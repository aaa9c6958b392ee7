#include "gateway/secrets.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <stdexcept>

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

}  // namespace gateway
