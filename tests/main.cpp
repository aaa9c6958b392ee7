// Every test runs on a private host: its own /dev, network and settings.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

#include "private_host.h"

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    if (testing::GTEST_FLAG(list_tests)) return RUN_ALL_TESTS();
    return sim::runOnPrivateHost([] {
        // Shell commands of the tests find the programs there, whatever the path of the tree.
        if (symlink(BUILD_DIR, "/quillon-programs") != 0 || symlink(TREE_DIR, "/quillon-tree") != 0)
            return 1;
        setenv("PATH", ("/quillon-programs:" + std::string(getenv("PATH"))).c_str(), 1);
        // Where ./quillon.ini of a test lies.
        return chdir("/data") == 0 ? RUN_ALL_TESTS() : 1;
    });
}
