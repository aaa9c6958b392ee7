// Every layout of the X keyboard database: what is typed is read back.

#include <gtest/gtest.h>

#include <set>

#include "layouts/database.h"
#include "layouts/keyboard.h"
#include "layouts/reading.h"
#include "layouts/typing.h"
#include "layouts/unicode.h"

namespace {

using namespace quillon;

// A keyboard between typist and reader.
class Keys {
  public:
    explicit Keys(const LayoutChoice &choice) : reader_(choice) {}

    std::string type(const std::vector<Stroke> &states) {
        std::string text;
        for (const Stroke &state : states) {
            EXPECT_FALSE(state == now_) << "a record that changes nothing";
            for (int n = 0; n < 8; ++n) {
                const unsigned bit = 1U << n;
                const auto usage = static_cast<std::uint8_t>(kUsageLeftCtrl + n);
                if ((now_.modifiers & ~state.modifiers & bit) != 0) reader_.release(usage);
                if ((state.modifiers & ~now_.modifiers & bit) != 0) reader_.press(usage);
            }
            if (now_.usage != state.usage && now_.usage != 0) reader_.release(now_.usage);
            if (now_.usage != state.usage && state.usage != 0) text += reader_.press(state.usage);
            now_ = state;
        }
        return text;
    }
    void tap(std::uint8_t usage) { type({{0, usage}, {}}); }

  private:
    ReportReader reader_;
    Stroke now_;
};

LayoutChoice choiceOf(const std::string &name, ComputerSystem system = ComputerSystem::kX11) {
    const std::size_t open = name.find('(');
    if (open == std::string::npos) return {name, "", system};
    return {name.substr(0, open), name.substr(open + 1, name.size() - open - 2), system};
}

std::string typedOn(const std::string &layout, const std::string &text,
                    ComputerSystem system = ComputerSystem::kX11,
                    UnicodeInput unicode = UnicodeInput::kRefuse) {
    const LayoutChoice choice = choiceOf(layout, system);
    std::string error;
    const auto typed = Typist(choice).type(text, unicode, error);
    if (!typed) return error;
    Keys keys(choice);
    if (typed->needsNumLock) keys.tap(kUsageNumLock);
    return keys.type(typed->states);
}

// In parts, so that they run side by side.
class EveryLayout : public testing::TestWithParam<std::size_t> {
  public:
    static constexpr std::size_t kParts = 8;
};

TEST_P(EveryLayout, ReadsBackWhatIsTyped) {
    const auto all = layoutDatabase();
    EXPECT_GT(all.size(), 500U);
    // Their latches do not read back; nobody is known to use it with a console.
    const std::set<std::string> known{"de(T3)"};
    std::size_t characters = 0;
    for (std::size_t i = GetParam(); i < all.size(); i += kParts) {
        const LayoutChoice choice{all[i].layout, all[i].variant};
        const std::string name =
            choice.layout + (choice.variant.empty() ? "" : "(" + choice.variant + ")");
        if (known.count(name) != 0) continue;
        const Typist typist(choice);
        Keys plain(choice), withNum(choice);
        withNum.tap(kUsageNumLock);
        for (const char32_t character : typist.characters()) {
            std::string error;
            const auto typed = typist.type(utf8(character), UnicodeInput::kRefuse, error);
            ASSERT_TRUE(typed) << name << ": " << error;
            Keys &keys = typed->needsNumLock ? withNum : plain;
            EXPECT_EQ(keys.type(typed->states), utf8(character))
                << name << " " << codePointName(character);
            ++characters;
        }
    }
    // About 20,000 in each part: a Typist that loses a level of the keyboard types fewer.
    EXPECT_GT(characters, 19500U);
}

INSTANTIATE_TEST_SUITE_P(Parts, EveryLayout, testing::Range(std::size_t{0}, EveryLayout::kParts));

TEST(Layouts, TypeWhatPeopleWrite) {
    const std::pair<const char *, const char *> texts[] = {
        {"us", "The quick brown fox; [x] {y} ~`@#$%^&*()_+|\\\"'<>?/ 0123456789\n\tEnd"},
        {"de", "Größe: 5 €, schön äöüß ÄÖÜ @ {[]} \\ ~ | é è ê 10 µm² §"},
        {"fr", "Où ça? L'été: 20 € à Noël, ÉÀ {[@#]} ^ ` ~ \\ 0123456789"},
        {"ch", "Grüezi, ça va? äöü éèà ^ ~ @ # | € §"},
        {"pl", "Zażółć gęślą jaźń ŁÓDŹ, łŁ żŻ"},
        {"cz", "Příliš žluťoučký kůň úpěl ďábelské ódy Ň Ě"},
        {"tr", "Pijamalı hasta yağız şoföre çabucak güvendi. İĞŞÇÖÜ"},
        {"gr", "Ξεσκεπάζω την ψυχοφθόρα βδελυγμία"},
        {"ru", "Съешь же ещё этих мягких французских булок, да выпей чаю №"},
        {"il", "דג סקרן שט בים מאוכזב"},
        {"br", "À noite, vovô Kowalsky vê o ímã cair no pé do pinguim; ação, você"},
        {"es", "El pingüino Wenceslao hizo kilómetros bajo exhaustiva lluvia, ¿añoraba?"},
        {"jp", "int main() { return x[0] \\ 3; } @:^_"},
    };
    for (const auto &[layout, text] : texts) EXPECT_EQ(typedOn(layout, text), text) << layout;
}

TEST(Layouts, DeadKeysAreThoseOfTheSystem) {
    using System = ComputerSystem;
    for (const System system : {System::kX11, System::kConsole, System::kWindows})
        EXPECT_EQ(typedOn("de", "ê^`é", system), "ê^`é");
    EXPECT_EQ(typedOn("de", "ń"), "ń");
    for (const System system : {System::kConsole, System::kWindows})
        EXPECT_NE(typedOn("de", "ń", system), "ń") << "that has no such composition";
    // Decomposed text is typed as its composition.
    EXPECT_EQ(typedOn("de", "a\u0308"), "ä");
}

TEST(Layouts, NameWhatCannotBeTypedBeforeAnything) {
    EXPECT_EQ(typedOn("us", "ab\u00e4"),
              "cannot type character 3 (U+00E4): the layout us has no key for it");
    EXPECT_EQ(typedOn("us", "a\xff"), "cannot type character 2: it is not UTF-8");
    EXPECT_EQ(typedOn("us", "a\x1b"),
              "cannot type character 2 (U+001B): it is a control character");
    EXPECT_THROW(Typist(choiceOf("xx")), std::runtime_error);
    EXPECT_THROW(Typist(choiceOf("de(no)")), std::runtime_error);
    for (const char *name : {"us,de", "us|de", "../us", "us\n", ""})
        EXPECT_THROW(Typist(choiceOf(name)), std::runtime_error) << name;
    EXPECT_EQ(typedOn("us", "a\r\nb"), "a\nb");
    std::string error;
    const auto skipped = Typist(choiceOf("us")).type("a\u00e4b", UnicodeInput::kSkip, error);
    EXPECT_EQ(skipped->skipped.size(), 1U);
    EXPECT_EQ(Keys(choiceOf("us")).type(skipped->states), "ab");
}

TEST(Layouts, UnicodeInputPressesTheDigits) {
    std::string error;
    const Typist french(choiceOf("fr"));
    const auto linux = french.type("\u4e2d", UnicodeInput::kLinux, error);
    ASSERT_TRUE(linux) << error;
    // Ctrl+Shift+U is a command; then the code point, with Shift for French digits, and a blank.
    EXPECT_EQ(Keys(choiceOf("fr")).type(linux->states), "4e2d ");
    EXPECT_EQ(linux->states[2], (Stroke{kLeftCtrl | kLeftShift, 0x18}));
    const auto windows = french.type("\u0153\u00ff", UnicodeInput::kWindows, error);
    ASSERT_TRUE(windows) << error;
    EXPECT_FALSE(french.type("\u4e2d", UnicodeInput::kWindows, error));
}

TEST(Layouts, CombinationsMeanTheCharacterOfTheLayout) {
    std::string error;
    const Typist french(choiceOf("fr")), russian(choiceOf("ru"));
    EXPECT_EQ(parseCombo("ctrl+a", error, keyOf(french)), (Stroke{kLeftCtrl, 0x14}));
    EXPECT_EQ(parseCombo("usage:0x14", error, keyOf(french)), (Stroke{0, 0x14}));
    EXPECT_EQ(parseCombo("ctrl+c", error, keyOf(russian)), (Stroke{kLeftCtrl, 0x06}));
    const Typist german(choiceOf("de"));  // its ` is a dead key
    for (const char *wrong : {"`", "usage:0x-1", "usage:0x00", "usage:0xe1"})
        EXPECT_FALSE(parseCombo(wrong, error, keyOf(german))) << wrong;
}

}  // namespace
