#include "protocol/answers.h"

#include <gtest/gtest.h>

namespace {

TEST(MaySend, EveryLinkedOutputAndItsBeginnings) {
    quillon::Settings settings{{"per_enable", "1"}};
    EXPECT_EQ(quillon::maySend(settings, "10.0.0.1"), quillon::MaySend::kByChance);
    for (int slot = 0; slot < 8; ++slot)
        settings["connect_ip" + std::to_string(slot)] = "10.0.0." + std::to_string(slot);
    EXPECT_EQ(quillon::maySend(settings, "10.0.0.7"), quillon::MaySend::kYes);
    EXPECT_EQ(quillon::maySend(settings, "10.0.0.70"), quillon::MaySend::kYes);
    EXPECT_EQ(quillon::maySend(settings, "10.0.0.8"), quillon::MaySend::kNo);
}

TEST(Words, WhoControlsAndOnWhichOutputs) {
    std::optional<quillon::Holder> holder;
    std::optional<quillon::Settings> settings;
    EXPECT_EQ(quillon::whoWords(holder, settings, "ann"), "it is not known yet who holds control");
    holder = quillon::Holder{"192.168.1.10", "ann", true, 5};
    settings = quillon::Settings{{"per_enable", "1"}};
    EXPECT_EQ(quillon::whoWords(holder, settings, "ann"),
              "held by ann (you), level 5 | outputs none");
    int slot = 0;
    for (const char *output : {"10.0.0.20", "10.0.0.21", "10.0.1.21", "no_address", "no_address"})
        (*settings)["connect_ip" + std::to_string(slot++)] = output;
    EXPECT_EQ(quillon::whoWords(holder, settings, "bob"),
              "held by ann, level 5 | outputs 10.0.0.20 .21 10.0.1.21 no_address no_address");
    (*settings)["per_enable"] = "0";
    EXPECT_EQ(quillon::whoWords(holder, settings, "bob"),
              "permissions are off: everybody may send");
}

}  // namespace
