// A configuration of the gateway: it is right, or a message names its line.

#include <stdexcept>
#include <string>

#include "fuzz/require.h"
#include "gateway/configuration.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *bytes, std::size_t size) {
    try {
        const auto configuration =
            gateway::parseConfiguration(std::string(bytes, bytes + size), "file");
        fuzz::require(!configuration.endpoints.empty(), "there is an endpoint");
        for (const auto &entry : configuration.endpoints) {
            fuzz::require(entry.desk.name.find_first_of("/\" \n%") == std::string::npos,
                          "a name is good for a path");
            fuzz::require(entry.listen.empty() || !configuration.passwordFile.empty(),
                          "no listener without a password");
        }
    } catch (const std::runtime_error &error) {
        fuzz::require(std::string(error.what()).rfind("file, line ", 0) == 0, "a line is named");
    }
    return 0;
}
