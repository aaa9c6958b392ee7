#include "layouts/database.h"

#include <algorithm>
#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>
#include <stdexcept>

namespace quillon {
namespace {

using boost::property_tree::ptree;

// The second one has layouts that few people use.
constexpr const char *kFiles[] = {"/usr/share/X11/xkb/rules/evdev.xml",
                                  "/usr/share/X11/xkb/rules/evdev.extras.xml"};

std::string textOf(const ptree &item, const char *what) {
    return item.get<std::string>(std::string("configItem.") + what, "");
}

void readFile(const char *path, std::vector<LayoutEntry> &entries) {
    ptree tree;
    boost::property_tree::read_xml(path, tree);
    for (const auto &[tag, layout] : tree.get_child("xkbConfigRegistry.layoutList")) {
        if (tag != "layout") continue;
        const std::string name = textOf(layout, "name");
        // A placeholder for a file that a user may write.
        if (name.empty() || name == "custom") continue;
        const auto known = [&](const LayoutEntry &entry) { return entry.layout == name; };
        if (std::none_of(entries.begin(), entries.end(), known))
            entries.push_back({name, "", textOf(layout, "description")});
        const auto variants = layout.get_child_optional("variantList");
        if (!variants) continue;
        for (const auto &[kind, variant] : *variants)
            if (kind == "variant")
                entries.push_back({name, textOf(variant, "name"), textOf(variant, "description")});
    }
}

}  // namespace

std::vector<LayoutEntry> layoutDatabase() {
    std::vector<LayoutEntry> entries;
    try {
        for (const char *path : kFiles) readFile(path, entries);
    } catch (const boost::property_tree::ptree_error &error) {
        throw std::runtime_error(std::string("no list of keyboard layouts: ") + error.what());
    }
    return entries;
}

}  // namespace quillon
