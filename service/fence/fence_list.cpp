#include "service/fence/fence_list.h"

#include <arpa/inet.h>
#include <net/if.h>

#include <toml++/toml.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "protocol/ports.h"
#include "terminal/config_text.h"

namespace service {
namespace {

constexpr std::size_t kMostEntries = 256, kLargestFile = 64 * 1024;
constexpr std::uint64_t kMostMachines = 32768;

// Of an address that has been checked.
std::uint64_t machinesIn(const std::string &address) {
    const std::size_t slash = address.find('/');
    const int bits = slash == std::string::npos ? 32 : std::stoi(address.substr(slash + 1));
    return std::uint64_t{1} << (32 - bits);
}

struct Reader {
    const std::string &file;

    [[noreturn]] void complain(const toml::source_region &where, const std::string &why) const {
        throw std::runtime_error(file + ", line " + std::to_string(where.begin.line) + ": " + why);
    }

    // Digits and dots, and at most one network length: nothing else gets into the rules.
    void checkAddress(const toml::node &node, const std::string &text) const {
        const std::size_t slash = text.find('/');
        in_addr parsed{};
        if (inet_pton(AF_INET, text.substr(0, slash).c_str(), &parsed) != 1)
            complain(node.source(), "\"" + text + "\" is not an IPv4 address or network");
        if (slash == std::string::npos) return;
        const std::string length = text.substr(slash + 1);
        const bool digits = !length.empty() && length.size() <= 2 &&
                            std::all_of(length.begin(), length.end(),
                                        [](unsigned char c) { return isdigit(c) != 0; });
        const int bits = digits ? std::stoi(length) : -1;
        if (bits < 1 || bits > 32)
            complain(node.source(), "\"" + text + "\": the length of a network is 1 to 32");
        const std::uint32_t host = bits == 32 ? 0 : 0xFFFFFFFFU >> bits;
        if ((ntohl(parsed.s_addr) & host) != 0)
            complain(node.source(), "\"" + text + "\": the bits behind the first " + length +
                                        " of a network are 0");
    }

    // The kernel remembers how often each sender sent, and has room for some.
    void checkCount(const toml::node &node, const std::vector<std::string> &addresses) const {
        std::uint64_t machines = 0;
        for (const std::string &address : addresses) machines += machinesIn(address);
        if (machines > kMostMachines)
            complain(node.source(), "the networks have " + std::to_string(machines) +
                                        " addresses; there is room for " +
                                        std::to_string(kMostMachines));
    }

    std::vector<std::string> addresses(const toml::node &node, const std::string &key) const {
        if (!node.is_array()) complain(node.source(), key + " is a list: [\"192.168.1.20\"]");
        std::vector<std::string> all;
        for (const toml::node &entry : *node.as_array()) {
            if (!entry.is_string()) complain(entry.source(), "an address is a text in quotes");
            all.push_back(entry.as_string()->get());
            checkAddress(entry, all.back());
            if (all.size() > kMostEntries)
                complain(entry.source(),
                         "more than " + std::to_string(kMostEntries) + " addresses; use networks");
        }
        checkCount(node, all);
        return all;
    }

    std::string interface(const toml::node &node) const {
        std::string name = node.is_string() ? node.as_string()->get() : "";
        const auto fits = [](unsigned char c) {
            return isalnum(c) != 0 || c == '-' || c == '_' || c == '.';
        };
        if (name.empty() || name.size() >= IF_NAMESIZE ||
            !std::all_of(name.begin(), name.end(), fits))
            complain(node.source(), "interface is the name of a network interface, as \"eth0\"");
        return name;
    }

    std::uint16_t port(const toml::node &node) const {
        const auto number = node.value_exact<std::int64_t>();
        if (!number || *number < 1 || *number > 65535)
            complain(node.source(), "record_port is a number from 1 to 65535");
        if (*number >= quillon::kHeartbeatPort && *number <= quillon::kAnnouncePort)
            complain(node.source(), "record_port is one of the daemon's other ports");
        return static_cast<std::uint16_t>(*number);
    }
};

}  // namespace

FenceList parseFenceList(const std::string &text, const std::string &name) {
    quillon::refuseForeignLetters(text, name);
    const Reader reader{name};
    toml::table table;
    try {
        table = toml::parse(text);
    } catch (const toml::parse_error &error) {
        reader.complain(error.source(), std::string(error.description()));
    }
    FenceList list;
    for (const auto &[key, node] : table) {
        if (key == "interface")
            list.interface = reader.interface(node);
        else if (key == "record_port")
            list.recordPort = reader.port(node);
        else if (key == "consoles")
            list.consoles = reader.addresses(node, "consoles");
        else if (key == "operators")
            list.operators = reader.addresses(node, "operators");
        else if (key == "software")
            list.software = reader.addresses(node, "software");
        else
            reader.complain(key.source(), "unknown key \"" + std::string(key.str()) +
                                              "\"; there are interface, record_port, consoles, "
                                              "operators and software");
    }
    if (list.interface.empty()) throw std::runtime_error(name + ": the key interface is missing");
    return list;
}

FenceList readFenceList(const std::string &file) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) throw std::runtime_error("cannot read " + file + ": " + strerror(errno));
    std::string text(kLargestFile + 1, '\0');
    stream.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(stream.gcount()));
    if (stream.bad() || text.size() > kLargestFile)
        throw std::runtime_error(file + " is not a file of 64 KiB at most");
    return parseFenceList(text, file);
}

std::vector<std::string> oddities(const FenceList &list) {
    std::vector<std::string> found;
    if (if_nametoindex(list.interface.c_str()) == 0)
        found.push_back("There is no interface " + list.interface + " now.");
    if (list.interface == "lo")
        found.push_back("The fence does not stand on lo, and shuts every other interface.");
    if (list.consoles.empty()) found.push_back("Nobody may type: consoles is empty.");
    if (list.operators.empty())
        found.push_back(
            "Nobody may send commands: operators is empty. Consoles that take control "
            "belong there, too.");
    for (const auto *group : {&list.consoles, &list.operators, &list.software})
        for (const std::string &address : *group)
            if (machinesIn(address) > 256)
                found.push_back(address + " is a network of more than 256 machines.");
    for (const std::string &address : list.software)
        found.push_back(address +
                        " may type also while permissions are on and somebody else is "
                        "linked: it is in software.");
    return found;
}

}  // namespace service
