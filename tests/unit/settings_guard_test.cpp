// The copy of the settings, and when it counts more than they do.

#include "service/settings_guard.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "software_config.h"
#include "tests/support/support.h"

namespace {

using service::Kept, service::Restored;
using test::readFile, test::writeFile;

// What the daemon writes, with a user's name to tell one from another.
std::string settingsOf(const std::string &user) {
    SoftwareConfig config;
    config.SetConfig(SoftwareConfig::kConnectName, user);
    return config.GetConfig(SoftwareConfig::kSoftWareConfigIDMax);
}

class SettingsGuard : public testing::Test {
  protected:
    static void write(const std::string &path, const std::string &text, long second) {
        writeFile(path, text);
        const timespec times[2] = {{second, 5}, {second, 5}};
        ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    }
    static Restored restoredFrom(const char *settings, long second, const char *copy, long copied) {
        unlink(kFile), unlink(kCopy), unlink(kRefused);
        if (settings != nullptr) write(kFile, settings, second);
        if (copy != nullptr) write(kCopy, copy, copied);
        return service::restoreSettings(".");
    }

    static constexpr char kFile[] = "quillon.ini", kCopy[] = "quillon.ini.kept",
                          kRefused[] = "quillon.ini.refused";
    const std::string ann_ = settingsOf("ann"), eve_ = settingsOf("eve");
};

TEST_F(SettingsGuard, CompleteIsWhatTheDaemonWrites) {
    EXPECT_TRUE(service::isComplete(ann_));
    for (std::size_t size = 0; size < ann_.size(); ++size)
        ASSERT_FALSE(service::isComplete(ann_.substr(0, size))) << size;
    EXPECT_FALSE(service::isComplete(ann_ + "x=1\n"));
    EXPECT_FALSE(service::isComplete("\n" + ann_));
    std::string changed = ann_;
    changed.replace(changed.find("parity"), 6, "Parity");
    EXPECT_FALSE(service::isComplete(changed));
    // A block that was never written reads as zeroes.
    changed = ann_;
    changed[changed.find("ann")] = '\0';
    EXPECT_FALSE(service::isComplete(changed));
}

TEST_F(SettingsGuard, PutsTheCopyBackOnlyWhereItCountsMore) {
    const char *ann = ann_.c_str(), *eve = eve_.c_str(), *cut = "[serial]\ncom_port=COM3\n";
    struct Case {
        const char *settings;
        long second;
        const char *copy;
        long copied;
        Restored result;
        const char *then;  ///< the settings
    };
    for (const Case &one : {Case{eve, 20, ann, 10, Restored::kNone, eve},
                            Case{eve, 10, ann, 10, Restored::kNone, eve},
                            Case{eve, 10, ann, 20, Restored::kOlder, ann},
                            Case{nullptr, 0, ann, 10, Restored::kMissing, ann},
                            Case{"", 20, ann, 10, Restored::kIncomplete, ann},
                            Case{cut, 20, ann, 10, Restored::kIncomplete, ann},
                            Case{cut, 20, nullptr, 0, Restored::kNoCopy, cut},
                            Case{cut, 10, "", 20, Restored::kNoCopy, cut},
                            Case{eve, 10, cut, 20, Restored::kNone, eve},
                            Case{nullptr, 0, nullptr, 0, Restored::kNoCopy, ""}}) {
        EXPECT_EQ(restoredFrom(one.settings, one.second, one.copy, one.copied), one.result);
        EXPECT_EQ(readFile(kFile), one.then);
    }
    // What a person wrote by hand is not thrown away.
    restoredFrom(cut, 20, ann, 10);
    EXPECT_EQ(readFile(kRefused), cut);
    restoredFrom(eve, 10, ann, 20);
    EXPECT_EQ(readFile(kRefused), eve_);
    EXPECT_TRUE(service::compareSettings(".").good);
}

TEST_F(SettingsGuard, CopiesWithModeAndTimeButNoHalfFileAndNoOldOne) {
    EXPECT_EQ(service::keepSettings(".", true), Kept::kNothing);
    write(kFile, ann_, 100);
    ASSERT_EQ(chmod(kFile, 0640), 0);
    EXPECT_EQ(service::keepSettings(".", false), Kept::kCopied);
    struct stat info {};
    ASSERT_EQ(stat(kCopy, &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0640U);
    EXPECT_EQ(info.st_mtim.tv_sec, 100);
    EXPECT_EQ(info.st_mtim.tv_nsec, 5);
    EXPECT_EQ(service::keepSettings(".", true), Kept::kSame);

    write(kFile, eve_.substr(0, 100), 200);
    EXPECT_EQ(service::keepSettings(".", true), Kept::kNothing);
    // A clock that went back: just written counts, found at the start does not.
    write(kFile, eve_, 50);
    EXPECT_EQ(service::keepSettings(".", false), Kept::kNothing);
    EXPECT_EQ(readFile(kCopy), ann_);
    EXPECT_EQ(service::keepSettings(".", true), Kept::kCopied);
    EXPECT_EQ(readFile(kCopy), eve_);
}

// Root restores what a user of its own must be able to read and write.
TEST_F(SettingsGuard, LeavesTheFilesToTheirOwner) {
    if (geteuid() != 0 || chown("/data", 1, 1) != 0) GTEST_SKIP() << "there is no second user here";
    write(kFile, ann_, 100);
    ASSERT_EQ(chown(kFile, 1, 2), 0);
    ASSERT_EQ(service::keepSettings(".", true), Kept::kCopied);
    unlink(kFile);
    ASSERT_EQ(service::restoreSettings("."), Restored::kMissing);
    for (const char *name : {kFile, kCopy}) {
        struct stat info {};
        ASSERT_EQ(stat(name, &info), 0);
        EXPECT_EQ(info.st_uid, 1U);
        EXPECT_EQ(info.st_gid, 2U);
    }
}

TEST_F(SettingsGuard, SettingsAreFoundAsTheDaemonFindsThem) {
    EXPECT_EQ(service::settingIn(".", "udpserver_port", "80"), "80");
    writeFile(kFile, "# udpserver_port=1\n x udpserver_port=5000\nudpserver_port=2\ncom_port=\n");
    EXPECT_EQ(service::settingIn(".", "udpserver_port", "80"), "5000");
    EXPECT_EQ(service::settingIn(".", "com_port", "COM3"), "COM3");
}

TEST_F(SettingsGuard, FollowsNoLinkAndLeavesTheCopyWhenTheDiskRefuses) {
    write("elsewhere", ann_, 100);
    ASSERT_EQ(symlink("elsewhere", kFile), 0);
    EXPECT_EQ(service::keepSettings(".", true), Kept::kNothing);
    unlink(kFile);
    ASSERT_EQ(mkfifo(kFile, 0600), 0);
    EXPECT_EQ(service::keepSettings(".", true), Kept::kNothing) << "and it did not wait";
    unlink(kFile);
    write(kFile, ann_, 100);
    ASSERT_EQ(mkdir((std::string(kCopy) + ".new").c_str(), 0700), 0);
    EXPECT_THROW(service::keepSettings(".", true), std::system_error);
    EXPECT_EQ(readFile(kFile), ann_);
}

}  // namespace
