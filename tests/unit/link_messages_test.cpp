#include "protocol/link_messages.h"

#include <gtest/gtest.h>

namespace {

TEST(LinkMessages, AreReadWholeOrNotAtAll) {
    using quillon::LinkMessage, quillon::parseLinkMessage;
    const auto held = parseLinkMessage(std::string("connect|a|1|u|-5\0\0\0", 19)).value();
    EXPECT_EQ(held.endpoint + held.user + std::to_string(held.level), "au-5");
    EXPECT_EQ(parseLinkMessage("reply|a|2").value().code, LinkMessage::kNotAnswered);
    const auto asked = parseLinkMessage("apply|a|u").value();
    EXPECT_EQ(quillon::consentAnswer("c", asked, true), "reply|c|u|1");
    for (const char *text : {"", "connect", "connect|a|1|u", "apply|a|u|more", "connected|a|1|u|5"})
        EXPECT_FALSE(parseLinkMessage(text)) << text;
}

}  // namespace
