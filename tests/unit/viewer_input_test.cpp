// What viewers do, as keys of the computer; stalls, lock keys, control.

#include "gateway/control_keeper.h"
#include "gateway/input/lock_keys.h"
#include "gateway/input/stall_watch.h"
#include "gateway/input/viewer_keys.h"
#include "gateway/input/viewer_pointer.h"
#include "tests/support/support.h"

namespace {

using namespace std::chrono_literals;
using namespace gateway;
using Clock = std::chrono::steady_clock;

// A viewer's keys, and the records that they make; strokes by their names, separated by blanks.
class Keys : public testing::Test {
  protected:
    explicit Keys(const char *layout = "de")
        : typist_({layout, "nodeadkeys"}, quillon::LockKeys{}),
          keys_(
              input_, [this]() -> auto & { return typist_; }) {}

    static ViewerKey code(std::uint32_t number) { return {ViewerKey::kScanCode, number}; }
    static ViewerKey sym(std::uint32_t number) { return {ViewerKey::kKeysym, number}; }

    std::string sent() {
        std::string all;
        Clock::time_point now = Clock::time_point{} + 1h;
        while (!input_.idle()) {
            now += 10ms;
            const auto record = input_.next(now);
            if (!record || record->size() != 11) continue;
            const std::string name = quillon::strokeName({(*record)[3], (*record)[5]});
            if (name == last_) continue;  // healing says it again
            last_ = name;
            all += (all.empty() ? "" : ", ") + name;
        }
        return all;
    }
    void tap(const ViewerKey &key) {
        EXPECT_EQ(keys_.press(key), "");
        keys_.release(key);
    }

    quillon::HealedInput input_{0ms, false};
    const quillon::Typist typist_;
    ViewerKeys keys_;
    std::string last_ = "all keys up";
};

constexpr std::uint32_t kShift = 0xFFE1, kCtrl = 0xFFE3, kAltGr = 0xFE03, kAltRight = 0xFFEA,
                        kCapsLock = 0xFFE5, kF2 = 0xFFBF;

TEST_F(Keys, ByPositionAreWhatTheyAre) {
    tap(code(0x15));  // what a German keyboard calls z
    tap(code(0xD3));  // Delete, with E0 before it
    tap(code(0x56));  // < beside the left Shift key
    EXPECT_EQ(sent(), "y, all keys up, delete, all keys up, key 0x64, all keys up");
    EXPECT_NE(keys_.press(code(0xFF)), "");
    EXPECT_NE(keys_.press(code(0xFFFFFFFF)), "");
}

TEST_F(Keys, ByKeysymTypeTheCharacterOnTheComputersLayout) {
    tap(sym('z'));
    tap(sym(0xFC));                 // ü
    tap(sym(0x01000000 + 0x20AC));  // €, as a code point
    tap(sym(0xFF0D));               // Return
    EXPECT_EQ(sent(),
              "y, all keys up, [, all keys up, altgr, altgr+e, all keys up, enter, "
              "all keys up");
    // Shift+2 on a US keyboard is @, which is AltGr+q here, without Shift.
    keys_.press(sym(kShift));
    keys_.press(sym('@'));
    keys_.release(sym('@'));
    keys_.release(sym(kShift));
    EXPECT_EQ(sent(), "shift, altgr, altgr+q, shift, all keys up");
    EXPECT_EQ(keys_.press(sym(0x01000000 + 0x4E2D)),
              "cannot type U+4E2D: the layout de(nodeadkeys) has no key for it");
}

TEST_F(Keys, CombinationsTakeTheKeyOfTheCharacter) {
    keys_.press(sym(kCtrl));
    tap(sym('z'));
    tap(sym('C'));  // Caps Lock is on at the viewer's
    tap(sym(kF2));
    keys_.release(sym(kCtrl));
    EXPECT_EQ(sent(), "ctrl, ctrl+y, ctrl, ctrl+c, ctrl, ctrl+f2, ctrl, all keys up");
    // Some systems send AltGr as Ctrl and Alt.
    for (const std::uint32_t key : {kCtrl, kAltRight}) keys_.press(sym(key));
    tap(sym('@'));
    for (const std::uint32_t key : {kAltRight, kCtrl}) keys_.release(sym(key));
    EXPECT_EQ(sent(), "ctrl, ctrl+altgr, altgr, altgr+q, ctrl+altgr, ctrl, all keys up");
    keys_.press(sym(kAltGr));
    tap(sym('@'));
    keys_.release(sym(kAltGr));
    EXPECT_EQ(sent(), "altgr, altgr+q, altgr, all keys up");
}

TEST_F(Keys, TheNewestOfSeveralCounts) {
    for (const std::uint32_t key : {0x1EU, 0x30U, 0x30U, 0x1EU}) keys_.press(code(key));
    keys_.release(code(0x1E));
    EXPECT_EQ(sent(), "a, b");
    EXPECT_TRUE(keys_.holding());
    keys_.press(code(0x2E));
    keys_.release(code(0x2E));
    EXPECT_EQ(sent(), "c, all keys up") << "b does not come back, it would be typed again";
    keys_.release(code(0x30));
    EXPECT_EQ(sent(), "");
    EXPECT_FALSE(keys_.holding());
}

TEST_F(Keys, AreReleasedByAnotherNameOfTheSameKey) {
    keys_.press(sym(kShift));
    keys_.press(sym('A'));
    keys_.release(sym(kShift));
    keys_.release(sym('a'));
    EXPECT_EQ(sent(), "shift, shift+a, a, all keys up");
    EXPECT_FALSE(keys_.holding());
}

TEST_F(Keys, ThatWereLetGoCountAgainOnlyAfterTheirRelease) {
    keys_.press(code(0x2A));  // Shift
    keys_.press(code(0x1E));
    keys_.letGo();
    input_.releaseAll();
    EXPECT_FALSE(keys_.holding());
    EXPECT_EQ(sent(), "shift, shift+a, all keys up");
    keys_.press(code(0x1E));
    tap(code(0x30));
    EXPECT_EQ(sent(), "b, all keys up") << "without Shift, which was let go";
    keys_.press(sym('B'));
    keys_.release(code(0x2A));
    EXPECT_EQ(sent(), "shift, shift+b") << "the Shift that goes up was let go before";
    keys_.release(sym('B'));
    sent();
    keys_.release(code(0x1E));
    keys_.ignore(code(0x2E));
    keys_.press(code(0x2E));
    tap(code(0x1E));
    EXPECT_EQ(sent(), "a, all keys up");
}

TEST_F(Keys, ThatAreTooManyAreRefusedAndNeverHang) {
    for (std::uint32_t key = 0; key < 1000; ++key) keys_.press(sym(0x01000100 + key));
    for (int i = 0; i < 1000; ++i) {
        keys_.press(sym('a'));
        keys_.release(sym('a'));
    }
    EXPECT_LT(input_.waiting(), 500U);
    keys_.letGo();
    input_.releaseAll();
    sent();
    EXPECT_EQ(last_, "all keys up");
}

TEST_F(Keys, LockKeysAreTold) {
    tap(sym(kCapsLock));
    EXPECT_EQ(keys_.takeLockKey(), quillon::kUsageCapsLock);
    EXPECT_EQ(keys_.takeLockKey(), 0);
    tap(code(0x45));
    EXPECT_EQ(keys_.takeLockKey(), quillon::kUsageNumLock);
}

TEST(ViewerPointer, ScalesAndTakesTheNewestButton) {
    quillon::HealedInput input(0ms, false);
    ViewerPointer pointer(input);
    const auto last = [&] {
        std::string all;
        for (auto now = Clock::time_point{} + 1h; !input.idle(); now += 10ms)
            if (const auto record = input.next(now); record && record->size() == 10)
                all = std::to_string((*record)[4]) + "@" +
                      std::to_string((*record)[5] | (*record)[6] << 8) + "," +
                      std::to_string((*record)[7] | (*record)[8] << 8);
        return all;
    };
    const quillon::Link link{1920, 1080, false};
    pointer.place(1, {500, 250}, {1000, 500}, link);
    EXPECT_EQ(last(), "1@960,540");
    pointer.place(1, {60000, 60000}, {1000, 500}, link);
    EXPECT_EQ(last(), "1@1918,1077");
    pointer.place(5, {0, 0}, {1000, 500}, link);
    EXPECT_EQ(last(), "2@0,0") << "the right one, which is newer";
    pointer.place(1, {0, 0}, {1000, 500}, link);
    EXPECT_EQ(last(), "0@0,0") << "the left one does not come back";
    pointer.place(3, {9, 9}, {1000, 500}, {0, 0, false});
    EXPECT_EQ(last(), "") << "a picture without a size has no places";
    pointer.place(3, {0, 0}, {1000, 500}, link);
    pointer.place(1, {0, 0}, {1000, 500}, link);
    pointer.place(3, {0, 0}, {1000, 500}, link);
    EXPECT_EQ(last(), "4@0,0") << "the middle one";
    pointer.place(1, {0, 0}, {1000, 500}, {0, 0, false});
    EXPECT_EQ(last(), "0@0,0") << "a release counts in any case";
}

// ---- stalls

class Stall : public testing::Test {
  protected:
    // Everything that is due until then, and when: "fence@0 fence@1000 let go@3000".
    std::string until(std::chrono::milliseconds end) {
        std::string all;
        for (; now_ <= end; now_ += 50ms)
            for (auto action = watch_.due(at()); action != StallWatch::kNothing;
                 action = watch_.due(at()))
                all += (all.empty() ? "" : " ") +
                       std::string(action == StallWatch::kLetGo ? "let go@" : "fence@") +
                       std::to_string(now_.count());
        return all;
    }
    StallWatch::Time at() const { return StallWatch::Time{} + 1h + now_; }

    StallWatch watch_;
    std::chrono::milliseconds now_{0};
};

TEST_F(Stall, LetsGoThreeSecondsAfterTheLastAnswer) {
    EXPECT_EQ(until(2000ms), "");
    watch_.setHolding(true, at());
    EXPECT_EQ(until(3200ms), "fence@2050 fence@3050");
    watch_.answered(watch_.fence(), at());
    EXPECT_EQ(until(8000ms), "fence@4050 fence@5050 fence@6050 let go@6250");
    EXPECT_TRUE(watch_.dropping());
    EXPECT_EQ(watch_.next(), StallWatch::Time::max());
}

TEST_F(Stall, DropsWhatWaitedUntilTheViewerIsQuiet) {
    watch_.setHolding(true, at());
    until(4000ms);
    const auto old = watch_.fence();
    watch_.setHolding(false, at());
    watch_.acted(true, at());  // what it sends first is stale
    EXPECT_EQ(until(4100ms), "fence@4050");
    watch_.answered(old, at());
    until(5000ms);
    EXPECT_TRUE(watch_.dropping()) << "an old answer says nothing about now";
    watch_.answered(watch_.fence(), at());
    watch_.acted(true, at());
    until(5200ms);
    EXPECT_TRUE(watch_.dropping());
    until(5400ms);
    EXPECT_FALSE(watch_.dropping());
}

TEST_F(Stall, DoesNotWaitForAKeyThatRepeats) {
    watch_.setHolding(true, at());
    until(4000ms);
    watch_.acted(true, at());
    until(4050ms);
    watch_.answered(watch_.fence(), at());
    const auto begin = now_;
    while (watch_.dropping() && now_ < begin + 5s) {
        watch_.acted(true, at());
        until(now_);
    }
    EXPECT_LE(now_ - begin, 1100ms);
}

// ---- lock keys

TEST(LockState, IsCertainAfterTwoAnswersToLaterQuestions) {
    LockState locks;
    const auto begin = LockState::Time{} + 1h;
    EXPECT_TRUE(locks.answered({false, false}, begin + 1s)) << "once more";
    EXPECT_FALSE(locks.certain());
    EXPECT_FALSE(locks.answered({false, false}, begin + 1s)) << "the same answer again";
    EXPECT_FALSE(locks.certain());
    EXPECT_FALSE(locks.answered({false, false}, begin + 2s));
    ASSERT_TRUE(locks.certain());
    locks.pressed(quillon::kUsageCapsLock, begin + 4s);
    EXPECT_FALSE(locks.certain());
    EXPECT_TRUE(locks.expected().caps);
    EXPECT_FALSE(locks.answered({false, false}, begin + 3s)) << "asked before the key";
    // The chip did not answer in between, which looks like all off.
    EXPECT_TRUE(locks.answered({true, false}, begin + 5s));
    EXPECT_TRUE(locks.answered({false, false}, begin + 6s));
    EXPECT_TRUE(locks.answered({true, false}, begin + 7s));
    EXPECT_FALSE(locks.certain());
    EXPECT_FALSE(locks.answered({true, false}, begin + 8s));
    EXPECT_TRUE(locks.certain() && locks.certain()->caps);
    locks.pressed(quillon::kUsageEnter, begin + 9s);
    EXPECT_TRUE(locks.certain());
}

// ---- control

class Keeper : public testing::Test {
  protected:
    explicit Keeper() {
        status_.reachable = true;
        status_.settings = quillon::Settings{{"per_enable", "1"}};
    }
    void held(const std::string &by, bool linked = true) {
        status_.holder = quillon::Holder{"192.168.1.10", by, linked, 1};
        status_.settings =
            quillon::parseSettings("per_enable=1\n" + std::string(linked ? linked_ : ""));
    }
    std::string next() {
        now_ += 14s;
        return keeper_.next(status_, now_).value_or("");
    }

    const char *linked_ = "";
    quillon::EndpointStatus status_;
    ControlKeeper keeper_{Taking::kApply, {"192.168.1.20-ann", "192.168.1.20", 3}};
    ControlKeeper::Time now_ = ControlKeeper::Time{} + 1h;
};

TEST_F(Keeper, AsksFirstAndDoesNotTakeTwice) {
    EXPECT_EQ(next(), "") << "who holds control is not known";
    held("192.168.1.20-ann");
    status_.settings = quillon::Settings{{"per_enable", "0"}};
    EXPECT_EQ(next(), "") << "permissions are off";
    held("192.168.1.30-bob");
    EXPECT_EQ(next(), quillon::applyRequest({"192.168.1.20-ann", "192.168.1.20", 3}));
    keeper_.want();
    EXPECT_EQ(keeper_.next(status_, now_ + 12s), std::nullopt) << "the endpoint may be at it";
    EXPECT_NE(next(), "");
    EXPECT_EQ(next(), "") << "bob said no, and no other viewer came";
    held("", false);
    EXPECT_NE(next(), "") << "nobody holds it";
    held("192.168.1.20-ann");
    EXPECT_EQ(next(), quillon::connectRequest({"192.168.1.20-ann", "192.168.1.20", 3}))
        << "this output is not linked";
    linked_ = "connect_ip0=192.168.1.20\n";
    held("192.168.1.20-ann");
    EXPECT_EQ(next(), "") << "each connect would link one more";
}

}  // namespace
