#include "gateway/configuration.h"

#include <arpa/inet.h>
#include <toml++/toml.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <map>
#include <set>
#include <stdexcept>

#include "protocol/requests.h"
#include "terminal/config_text.h"

namespace gateway {
namespace {

constexpr std::size_t kMostEndpoints = 1024;

bool isName(const std::string &name) {
    constexpr std::size_t kMost = 40;
    return !name.empty() && name.size() <= kMost && name[0] != '.' &&
           name.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-_.") == std::string::npos;
}

bool isAddress(const std::string &text) {
    in_addr parsed{};
    return inet_pton(AF_INET, text.c_str(), &parsed) == 1;
}

// A table of the file, key by key: an unknown one is a mistake.
class Reader {
  public:
    using Take = std::function<void(const toml::node &)>;

    explicit Reader(const std::string &file) : file_(file) {}

    [[noreturn]] void complain(const toml::node &where, const std::string &why) const {
        complain(where.source(), why);
    }
    [[noreturn]] void complain(const toml::source_region &where, const std::string &why) const {
        throw std::runtime_error(file_ + ", line " + std::to_string(where.begin.line) + ": " + why);
    }

    void table(const toml::table &table, const std::string &name,
               const std::map<std::string, Take> &keys) const {
        for (const auto &[key, node] : table) {
            const auto known = keys.find(std::string(key.str()));
            if (known == keys.end())
                complain(key.source(), name + " has no key \"" + std::string(key.str()) + "\"");
            known->second(node);
        }
    }

    Take text(const char *key, std::string &into) const {
        return [this, key, &into](const toml::node &node) {
            if (!node.is_string()) complain(node, std::string(key) + " is a text in quotes");
            into = node.as_string()->get();
            if (std::any_of(into.begin(), into.end(), [](unsigned char c) { return c < 0x20; }))
                complain(node, std::string(key) + " has a control character");
        };
    }

    template <class Number>
    Take number(const char *key, Number &into, std::int64_t least, std::int64_t most) const {
        return [this, key, &into, least, most](const toml::node &node) {
            const auto value = node.value_exact<std::int64_t>();
            if (!value || *value < least || *value > most)
                complain(node, std::string(key) + " is a number from " + std::to_string(least) +
                                   " to " + std::to_string(most));
            into = static_cast<Number>(*value);
        };
    }

    Take seconds(const char *key, std::chrono::seconds &into) const {
        return [this, key, &into](const toml::node &node) {
            int value = 0;
            number(key, value, 1, 3600)(node);
            into = std::chrono::seconds(value);
        };
    }

    template <class Value>
    Take oneOf(const char *key, const std::map<std::string, Value> &names, Value &into) const {
        return [this, key, &names, &into](const toml::node &node) {
            std::string name, all;
            text(key, name)(node);
            for (const auto &[known, value] : names) all += (all.empty() ? "" : ", ") + known;
            const auto found = names.find(name);
            if (found == names.end()) complain(node, std::string(key) + " is one of: " + all);
            into = found->second;
        };
    }

    Take inner(const char *name, const std::function<void(const toml::table &)> &take) const {
        return [this, name, take](const toml::node &node) {
            if (!node.is_table()) complain(node, std::string(name) + " is a table");
            take(*node.as_table());
        };
    }

    // A listening socket has its mistakes found here, where the line is known.
    Take listener(const char *key, std::string &into) const {
        return [this, key, &into](const toml::node &node) {
            text(key, into)(node);
            try {
                if (!into.empty()) parseHostPort(into);
            } catch (const std::runtime_error &error) {
                complain(node, std::string(key) + ": " + error.what());
            }
        };
    }

  private:
    const std::string &file_;
};

EndpointEntry endpoint(const Reader &reader, const std::string &name, const toml::table &table,
                       const std::string &from, Typists &typists) {
    EndpointEntry entry;
    Desk::Setup &desk = entry.desk;
    std::string picture, user, passwordFile, authority;
    desk.name = name;
    desk.user = "gateway";
    desk.endpoint.from = from;
    reader.table(table, "endpoint." + name,
                 {{"address", reader.text("address", desk.endpoint.to)},
                  {"port", reader.number("port", desk.endpoint.port, 1, 65535)},
                  {"layout", reader.text("layout", desk.layout.layout)},
                  {"variant", reader.text("variant", desk.layout.variant)},
                  {"system", reader.oneOf("system", quillon::kSystemNames, desk.layout.system)},
                  {"user", reader.text("user", desk.user)},
                  {"level", reader.number("level", desk.level, std::numeric_limits<int>::min(),
                                          std::numeric_limits<int>::max())},
                  {"control", reader.oneOf("control", kTakingNames, desk.taking)},
                  {"listen", reader.listener("listen", entry.listen)},
                  {"picture", reader.text("picture", picture)},
                  {"picture_user", reader.text("picture_user", user)},
                  {"picture_password_file", reader.text("picture_password_file", passwordFile)},
                  {"picture_ca", reader.text("picture_ca", authority)}});
    if (!isAddress(desk.endpoint.to))
        reader.complain(table, "endpoint." + name + " needs an address, as \"192.168.1.10\"");
    try {
        check(desk, typists);
    } catch (const std::runtime_error &error) {
        reader.complain(table, error.what());
    }
    try {
        setPicture(entry, picture, user, passwordFile, authority);
    } catch (const std::runtime_error &error) {
        const toml::node *node = table.get("picture");
        reader.complain(node != nullptr ? *node : table, error.what());
    }
    return entry;
}

constexpr char kNeedsPassword[] =
    "a listener for viewers needs a password file, and better a certificate, a key and a user too: "
    "without them everybody on the network could type";

void takeEndpoints(const Reader &reader, const toml::table &table, const std::string &from,
                   Configuration &into) {
    std::set<std::string> addresses;
    Typists typists;  // most endpoints have one layout
    for (const auto &[key, node] : table) {
        const std::string name(key.str());
        if (!isName(name))
            reader.complain(key.source(),
                            "the name of an endpoint has small letters, digits, - _ "
                            "and dots, 40 at most");
        if (!node.is_table()) reader.complain(node, "endpoint." + name + " is a table");
        if (into.endpoints.size() == kMostEndpoints)
            reader.complain(key.source(),
                            "there are more than " + std::to_string(kMostEndpoints) + " endpoints");
        into.endpoints.push_back(endpoint(reader, name, *node.as_table(), from, typists));
        const toml::node *listen = node.as_table()->get("listen");
        if (!into.endpoints.back().listen.empty() && into.passwordFile.empty())
            reader.complain(*listen, kNeedsPassword);
        const std::string &address = into.endpoints.back().desk.endpoint.to;
        if (!addresses.insert(address).second)
            reader.complain(key.source(), "two endpoints have the address " + address);
    }
}

void takeGateway(const Reader &reader, const toml::table &table, std::string &from,
                 Configuration &into) {
    reader.table(table, "gateway",
                 {{"from", reader.text("from", from)},
                  {"web", reader.listener("web", into.web)},
                  {"socket_folder", reader.text("socket_folder", into.socketFolder)},
                  {"certificate", reader.text("certificate", into.certificate)},
                  {"key", reader.text("key", into.key)},
                  {"user", reader.text("user", into.user)},
                  {"password_file", reader.text("password_file", into.passwordFile)}});
    const auto *node = table.get("from");
    if (node != nullptr && !isAddress(from)) reader.complain(*node, "from is an IPv4 address");
}

void takeLimits(const Reader &reader, const toml::table &table, Limits &into) {
    constexpr std::int64_t kMostViewers = 10000, kMiB = 1 << 20;
    const auto number = [&](const char *key, unsigned &value, std::int64_t least,
                            std::int64_t most) {
        return std::make_pair(std::string(key), reader.number(key, value, least, most));
    };
    reader.table(table, "limits",
                 {number("viewers", into.viewers, 1, kMostViewers),
                  number("viewers_of_endpoint", into.viewersOfEndpoint, 1, kMostViewers),
                  number("unfinished", into.unfinished, 1, kMostViewers),
                  {"handshake_seconds", reader.seconds("handshake_seconds", into.handshake)},
                  {"send_seconds", reader.seconds("send_seconds", into.send)},
                  {"picture_seconds", reader.seconds("picture_seconds", into.picture)},
                  number("input_bytes_per_second", into.inputRate, 1024, kMiB),
                  number("update_bytes", into.updateSize, 4096, 64 * kMiB)});
}

void takeAll(const Reader &reader, const toml::table &all, Configuration &into) {
    std::string from;
    const toml::table *endpoints = nullptr;
    reader.table(
        all, "the file",
        {{"gateway",
          reader.inner("gateway",
                       [&](const toml::table &table) { takeGateway(reader, table, from, into); })},
         {"limits",
          reader.inner("limits",
                       [&](const toml::table &table) { takeLimits(reader, table, into.limits); })},
         {"endpoint",
          reader.inner("endpoint", [&](const toml::table &table) { endpoints = &table; })}});
    if (endpoints != nullptr) takeEndpoints(reader, *endpoints, from, into);
}

}  // namespace

HostPort parseHostPort(const std::string &text) {
    const std::size_t colon = text.rfind(':');
    const std::string host = text.substr(0, colon);
    const std::string port = colon == std::string::npos ? "" : text.substr(colon + 1);
    const bool digits = !port.empty() && port.size() <= 5 &&
                        port.find_first_not_of("0123456789") == std::string::npos;
    if (!isAddress(host) || !digits || std::stoi(port) > 65535)
        throw std::runtime_error("\"" + text + "\" is not HOST:PORT, as 127.0.0.1:5900");
    return {host, static_cast<std::uint16_t>(std::stoi(port))};
}

Configuration parseConfiguration(const std::string &text, const std::string &name) {
    quillon::refuseForeignLetters(text, name);
    const Reader reader(name);
    Configuration configuration;
    configuration.web.clear();
    toml::table table;
    try {
        table = toml::parse(text);
    } catch (const toml::parse_error &error) {
        reader.complain(error.source(), std::string(error.description()));
    }
    takeAll(reader, table, configuration);
    const toml::node *general = table.get("gateway");
    const toml::node &where = general != nullptr ? *general : table;
    configuration.where = name + ", line " + std::to_string(where.source().begin.line);
    try {
        check(configuration);
    } catch (const std::runtime_error &error) {
        reader.complain(where, error.what());
    }
    return configuration;
}

void setPicture(EndpointEntry &entry, const std::string &picture, const std::string &user,
                const std::string &passwordFile, const std::string &authority) {
    if (picture.empty()) {
        if (!user.empty() || !passwordFile.empty() || !authority.empty())
            throw std::runtime_error("without a picture nobody needs its user or its files");
        return;
    }
    entry.picture = parseSourceAddress(picture, user, passwordFile, authority);
    entry.desk.source = entry.picture.words;
}

void check(const Desk::Setup &setup, Typists &typists) {
    constexpr char kAnyAddress[] = "255.255.255.255";  // as long as an address can be
    const std::string objection = quillon::objection(
        {quillon::conventionalName(setup.user, kAnyAddress), kAnyAddress, setup.level});
    if (!objection.empty()) throw std::runtime_error(objection);
    typists.typist(setup.layout, {});
}

void check(const Configuration &configuration) {
    if (configuration.endpoints.empty()) throw std::runtime_error("there is no endpoint");
    const auto &all = configuration.endpoints;
    const bool listens = std::any_of(
        all.begin(), all.end(), [](const EndpointEntry &entry) { return !entry.listen.empty(); });
    const bool tls = !configuration.certificate.empty();
    if (tls != !configuration.key.empty())
        throw std::runtime_error("a certificate and a key belong together");
    if (tls && (configuration.user.empty() || configuration.passwordFile.empty()))
        throw std::runtime_error("with a certificate, viewers need a user and a password file");
    if (listens && configuration.passwordFile.empty()) throw std::runtime_error(kNeedsPassword);
    if (!configuration.web.empty()) {
        const std::string host = parseHostPort(configuration.web).host;
        if (host.compare(0, 4, "127.") != 0)
            throw std::runtime_error("browsers are served on loopback alone, as 127.0.0.1:8080");
    }
}

}  // namespace gateway
