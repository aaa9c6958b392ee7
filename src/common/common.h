// Small helpers for all parts of the program.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <string>
#include <vector>

/// Line number for messages that have none of their own.
constexpr int kNoLine = 0;

/// Prints and flushes one whole log line, "[function]-line: " and the formatted text, cut at 1023
/// characters. The format has no line end.
void logAt(const char *function, int line, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

/// Copies text into a field of size bytes: cut to fit, always terminated, the rest zero.
void copyText(char *field, std::size_t size, const char *text);

/// Characters of one byte in the logs, "0xff ".
constexpr int kHexWidth = 5;
/// Writes count bytes as hexadecimal at end, at most kHexWidth characters for each, and a
/// terminator if count is not 0. Returns the new end of the text.
char *appendHex(char *end, const char *bytes, int count);

/// Opens /dev/null for each of the descriptors 0 to 2 that is closed, or ends the process. Call it
/// before anything is opened: otherwise a file, or /dev/mem, could get the number of standard
/// output and receive the log.
void holdStandardDescriptors();

/// Decimal text to int. Leading white space and a sign are accepted, text after the digits is
/// ignored; 0 without a number, the nearest int for a number beyond int.
int str2int(const std::string &s);

/// Appends the pieces of s between separators c to v. A separator at the end adds no empty piece;
/// an empty s adds nothing.
void SplitString(const std::string &s, std::vector<std::string> &v, const std::string &c);

/// Starts a thread; its id, or 0 when it could not be started. Priority and policy are stored in
/// the attributes but a thread inherits its creator's scheduling, so they have no effect.
pthread_t CreateThread(void *(*pThreadFunc)(void *), int priority, int schedpolicy, bool b_detached,
                       void *threadin);

/// A System V message. The size that msgsnd takes is that of the text, which has no terminator.
struct msg_st {
    long mtype;  ///< the kernel's type; 32 bits on a 32-bit board
    char mtext[1024];
};

/// Opens the message queue whose key comes from the existing path msgpath, or makes it. Returns its
/// id; 0 (which may also be an id) when the path gives no key; -1 when there is no queue.
int CreateMessageQueue(const char *msgpath);

/// Removes a queue; false, with a line on standard output, when that failed.
bool DeleteMessageQueue(int msgid);

/// Sends data, cut at 1024 characters, as one message of a type above 0; waits while the queue is
/// full. False when that failed.
bool sendMessage(const char *data, int msgid, int msgtype);

/// Parses unsigned decimal digits and nothing else: 0 and the value, or -1 and the value of the
/// digits before the offending character. An empty text is 0.
int atoul(const char *str, unsigned int *pulValue);

/// Hexadecimal digits without prefix, at most eight significant ones; results as atoul.
int atoulx(const char *str, unsigned int *pulValue);

/// "0x.." or "0X.." as hexadecimal, all else as decimal (no octal). A bare prefix is -1 and
/// stores nothing.
int StrToNumber(const char *str, unsigned int *pulValue);
