// Any answers to the search for endpoints on a network, from any sender.

#include <quillon/discovery.h>

#include <fuzzer/FuzzedDataProvider.h>

#include <set>

#include "fuzz/require.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *bytes, std::size_t size) {
    FuzzedDataProvider input(bytes, size);
    quillon::Discovery discovery;
    unsigned datagrams = 0;
    for (; input.remaining_bytes() > 0; ++datagrams) {
        const auto last = std::to_string(input.ConsumeIntegral<unsigned char>());
        discovery.take({input.ConsumeRandomLengthString(), "192.168.1." + last, 41302});
    }
    std::set<std::string> addresses;
    for (const auto &found : discovery.found())
        fuzz::require(addresses.insert(found.address).second, "an address once");
    fuzz::require(discovery.found().size() + discovery.surplus() == datagrams, "all are counted");
    return 0;
}
