#include "common/common.h"

#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <sstream>

void logAt(const char *function, int line, const char *format, ...) {
    // One write for the whole line, so that the lines of different threads do not mix.
    char text[1024];
    const int prefix = snprintf(text, sizeof text, "[%s]-%d: ", function, line);
    va_list args;
    va_start(args, format);
    vsnprintf(text + prefix, sizeof text - static_cast<std::size_t>(prefix), format, args);
    va_end(args);
    puts(text);
    fflush(stdout);
}

void copyText(char *field, std::size_t size, const char *text) {
    const std::size_t length = strnlen(text, size - 1);
    memcpy(field, text, length);
    memset(field + length, 0, size - length);
}

char *appendHex(char *end, const char *bytes, int count) {
    for (int i = 0; i < count; ++i)
        end += snprintf(end, kHexWidth + 1, "0x%x ", static_cast<unsigned char>(bytes[i]));
    return end;
}

void holdStandardDescriptors() {
    // In ascending order, because open() takes the lowest free number.
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd)
        if (fcntl(fd, F_GETFD) < 0 && open("/dev/null", O_RDWR) != fd) _exit(1);
}

int str2int(const std::string &s) {
    int number = 0;
    std::istringstream(s) >> number;
    return number;
}

void SplitString(const std::string &s, std::vector<std::string> &v, const std::string &c) {
    std::size_t start = 0;
    // An empty separator would be found for ever.
    std::size_t at = c.empty() ? std::string::npos : s.find(c);
    for (; at != std::string::npos; at = s.find(c, start)) {
        v.push_back(s.substr(start, at - start));
        start = at + c.size();
    }
    if (start != s.size()) v.push_back(s.substr(start));
}

pthread_t CreateThread(void *(*pThreadFunc)(void *), int priority, int schedpolicy, bool b_detached,
                       void *threadin) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    sched_param scheduling{};
    scheduling.sched_priority = priority;
    pthread_attr_setschedparam(&attributes, &scheduling);
    pthread_attr_setschedpolicy(&attributes, schedpolicy);
    if (b_detached) pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);

    pthread_t id = 0;
    // pthread_create reports its errors as positive numbers.
    const bool started = pthread_create(&id, &attributes, pThreadFunc, threadin) == 0;
    pthread_attr_destroy(&attributes);
    return started ? id : 0;
}

int CreateMessageQueue(const char *msgpath) {
    const key_t key = ftok(msgpath, 'a');
    if (key == -1) {
        printf("[%s]-%d: ftok create error: %d", "CreateMessageQueue", 23, errno);
        return 0;
    }
    for (;;) {
        const int id = msgget(key, IPC_CREAT | 0666);
        if (id >= 0) return id;
        logAt("CreateMessageQueue", 32, "msgget create error: %d", errno);
        // Deliberate: there is no queue -1 to remove, so this fails and ends the loop.
        if (msgctl(-1, IPC_RMID, nullptr) == 0) continue;
        logAt("CreateMessageQueue", 35, "msgctl delete error: %d", errno);
        return -1;
    }
}

bool DeleteMessageQueue(int msgid) {
    if (msgctl(msgid, IPC_RMID, nullptr) == 0) return true;
    logAt("DeleteMessageQueue", 56, "msgctl(IPC_RMID) failed");
    return false;
}

bool sendMessage(const char *data, int msgid, int msgtype) {
    msg_st message;
    const std::size_t length = strnlen(data, sizeof message.mtext);
    memcpy(message.mtext, data, length);
    message.mtype = msgtype;
    if (msgsnd(msgid, &message, length, 0) == 0) return true;
    perror("msgsnd failed");
    return false;
}

int atoul(const char *str, unsigned int *pulValue) {
    constexpr unsigned kLimit = 429496729;  // UINT_MAX / 10; the last digit may then be 0 to 5
    unsigned value = 0;
    const char *p = str;
    for (; *p >= '0' && *p <= '9'; ++p) {
        if (value > kLimit || (value == kLimit && *p >= '6')) break;
        value = value * 10 + static_cast<unsigned>(*p - '0');
    }
    *pulValue = value;
    return *p == '\0' ? 0 : -1;
}

int atoulx(const char *str, unsigned int *pulValue) {
    unsigned value = 0;
    const char *p = str;
    for (; isxdigit(static_cast<unsigned char>(*p)) != 0; ++p) {
        if (value > 0x0FFFFFFF) break;
        const int c = toupper(static_cast<unsigned char>(*p));
        value = value * 16 + static_cast<unsigned>(c <= '9' ? c - '0' : c - 'A' + 10);
    }
    *pulValue = value;
    return *p == '\0' ? 0 : -1;
}

int StrToNumber(const char *str, unsigned int *pulValue) {
    if (str[0] != '0' || (str[1] != 'x' && str[1] != 'X')) return atoul(str, pulValue);
    return str[2] == '\0' ? -1 : atoulx(str + 2, pulValue);
}
