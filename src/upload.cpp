#include "upload.h"

#include <unistd.h>

#include <array>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "common/common.h"
#include "myserial.h"
#include "myupdata.h"
#include "software_config.h"
#include "state.h"

int l_isupdata = 0;
int l_broadnum = 0;
char *l_broadstate = nullptr;

namespace {

enum State { kIdle = 0, kProgramming = 1, kWaiting = 2 };

constexpr int kMostBoards = 20;
constexpr useconds_t kPoll = 500000;

// Written before the state becomes kProgramming and read after that. Static, so that a thread that
// still reads it when the upload has ended reads valid memory.
char boardList[kMostBoards];

int state() {
    return __atomic_load_n(&l_isupdata, __ATOMIC_ACQUIRE);
}

void setState(State next) {
    __atomic_store_n(&l_isupdata, next, __ATOMIC_RELEASE);
}

// False when the other thread changed the state first.
bool changeState(State from, State to) {
    int expected = from;
    return __atomic_compare_exchange_n(&l_isupdata, &expected, static_cast<int>(to), false,
                                       __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE);
}

void reply(const char *text, int line) {
    if (!sendMessage(text, c_netmsgid, c_netmsgtype * 2 + 1))
        logAt("uploadFile", line, "send net msg failed!");
}

bool refuse(const char *text, int line) {
    reply(text, line);
    setState(kIdle);
    return false;
}

void requestBoardList(char kind) {
    const char *request = "(GETM)";
    if (kind == 'I') request = "(GETIA)";
    if (kind == 'O') request = "(GETOA)";
    MySerial::nwrite(request, static_cast<int>(strlen(request)));
}

void awaitBoardList() {
    constexpr int kPolls = 5;
    for (int i = 0; i < kPolls && state() == kWaiting; ++i) usleep(kPoll);
}

using Boards = std::array<bool, kMostBoards>;

// Decides which of the l_broadnum boards to program. A file of kind L, of kind 2 with a list of
// 10, or of kind 4 with a list of 20, is for a single board, whatever the list says.
Boards chooseBoards(MyUpdata &file) {
    Boards present{};
    char *list = l_broadstate;
    for (int i = 0; list != nullptr && i < l_broadnum && i < kMostBoards; ++i)
        present[static_cast<std::size_t>(i)] = list[i] != 0;
    const bool own =
        (file.type_ == '2' && l_broadnum == 10) || (file.type_ == '4' && l_broadnum == 20);
    if (own) file.type_ = 'B';
    if (own || file.type_ == 'L') {
        l_broadnum = 1;
        present[0] = true;
        if (list != nullptr) list[0] = 1;
    }
    return present;
}

std::string program(MyUpdata &file, const Boards &present) {
    constexpr unsigned kRest = 2;  // seconds, after each board
    std::string results;
    for (unsigned i = 0; i < kMostBoards && static_cast<int>(i) < l_broadnum; ++i) {
        const char *result = "N/A";
        if (present[i]) {
            result = file.UploadMotFile(i) ? "OK" : "Failed";
            sleep(kRest);
        }
        results += std::to_string(i) + ":" + result + ";";
    }
    return results;
}

// Only a name that is one plain word for the shell is passed to it.
void deleteFile(const char *name) {
    bool plain = name[0] != '-' && name[0] != '\0';
    for (const char *p = name; *p != '\0'; ++p)
        plain = plain && (isalnum(static_cast<unsigned char>(*p)) != 0 || strchr("/._-", *p));
    [[maybe_unused]] const int status =
        plain ? system(("rm " + std::string(name)).c_str()) : remove(name);
}

}  // namespace

bool uploadFile(const char *filename) {
    MyUpdata file(filename);
    const auto serial = Singleton<MySerial>::getInstance();
    if (!file.FileCheckOut()) return refuse("file error", 336);
    setState(kWaiting);
    requestBoardList(file.type_);
    awaitBoardList();
    // From here on initUploadANDloop refuses a list.
    if (changeState(kWaiting, kIdle)) return refuse("timeout", 280);
    if (state() != kProgramming) return refuse("upload error", 280);

    const Boards present = chooseBoards(file);
    const std::string results = program(file, present);
    if (strchr("OBI", file.type_) != nullptr) serial->nwrite("[reset]", 7);
    logAt("uploadFile", 322, "upload reply: %s", results.c_str());
    reply(results.c_str(), 327);
    deleteFile(filename);
    setState(kIdle);
    return true;
}

bool initUploadANDloop(char *data) {
    constexpr std::size_t kTenBoards = 31, kTwentyBoards = 61;
    if (state() != kWaiting) return false;
    const std::size_t length = strlen(data);
    if (length != kTenBoards && length != kTwentyBoards) {
        changeState(kWaiting, kIdle);
        logAt("initUploadANDloop", 212, "init upload failed!");
        return false;
    }
    l_broadnum = length == kTenBoards ? 10 : 20;
    logAt("initUploadANDloop", 215, "l_broadnum: %d", l_broadnum);
    for (int i = 0; i < l_broadnum; ++i) {
        boardList[i] = strncmp(data + 3 * i + 1, "NA", 2) == 0 ? 0 : 1;
        printf("l_broadstate[%d]:%d\n", i, boardList[i]);
    }
    l_broadstate = boardList;
    if (!changeState(kWaiting, kProgramming)) return false;
    do {
        usleep(kPoll);
    } while (state() == kProgramming);
    if (state() == kIdle) l_broadstate = nullptr;
    return true;
}
