// A list for the fence, and the rules that it becomes: nothing of the file may end a rule early.

#include <algorithm>
#include <stdexcept>

#include "fuzz/require.h"
#include "service/fence/rules.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *bytes, std::size_t size) {
    const std::string text(bytes, bytes + size);
    service::FenceList list;
    try {
        list = service::parseFenceList(text, "list");
    } catch (const std::runtime_error &) {
        return 0;
    }
    const auto digits = [](const std::string &address) {
        return !address.empty() && address.size() <= 18 &&
               address.find_first_not_of("0123456789./") == std::string::npos;
    };
    for (const auto *group : {&list.consoles, &list.operators, &list.software})
        fuzz::require(std::all_of(group->begin(), group->end(), digits), "addresses are digits");
    fuzz::require(list.interface.find_first_of("\"\\\n;{} ") == std::string::npos, "a plain name");

    const std::string rules = service::fenceRules(list);
    const auto lines = [](const std::string &all) {
        return std::count(all.begin(), all.end(), '\n');
    };
    service::FenceList plain;
    plain.interface = "eth0";
    const auto filled = [](const std::vector<std::string> &group) { return group.empty() ? 0 : 1; };
    fuzz::require(lines(rules) == lines(service::fenceRules(plain)) + filled(list.consoles) +
                                      filled(list.operators) + filled(list.software),
                  "a list changes no rule, only sets");
    service::oddities(list);
    return 0;
}
