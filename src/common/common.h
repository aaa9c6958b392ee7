// Small helpers that every room may use.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <string>
#include <vector>

/// Line number in the prefix of messages that have none of their own.
constexpr int kNoLine = 0;

/// Prints one whole log line: "[function]-line: " and the formatted text, and pushes it out; cut
/// at 1023 characters. The format carries no line end.
void logAt(const char *function, int line, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

/// Copies text into a field of size bytes: cut to fit, always terminated, the rest zero.
void copyText(char *field, std::size_t size, const char *text);

/// Characters of one byte in the logs, "0xff ".
constexpr int kHexWidth = 5;
/// Appends count bytes to a text that ends at end, kHexWidth characters at most for each and a
/// terminator; where the text then ends.
char *appendHex(char *end, const char *bytes, int count);

/// Sees that descriptors 0 to 2 exist, on /dev/null where they were closed, or ends the process.
/// Before anything is opened: else a file, or /dev/mem, would take the number of standard output
/// and get the log.
void holdStandardDescriptors();

/// Decimal text to int; leading white space and a sign are taken, what follows the digits is
/// ignored, no number gives 0 and a number beyond int the nearest int.
int str2int(const std::string &s);

/// Appends the pieces of s between separators c to v. A separator at the end adds no empty piece;
/// an empty s adds nothing.
void SplitString(const std::string &s, std::vector<std::string> &v, const std::string &c);

/// Starts a thread; its id, or 0 when it could not be started. Priority and policy are stored in
/// the attributes but a thread inherits its creator's scheduling, so they have no effect.
pthread_t CreateThread(void *(*pThreadFunc)(void *), int priority, int schedpolicy, bool b_detached,
                       void *threadin);

/// A System V message. The size of one in msgsnd counts its text alone, which has no terminator.
struct msg_st {
    long mtype;  ///< a long for every kernel; 32 bits on the board
    char mtext[1024];
};

/// The queue of the key that the existing path msgpath gives, made if there is none. The queue's
/// id, 0 (which may also be an id) when the path gives no key, -1 when there is no queue to be had.
int CreateMessageQueue(const char *msgpath);

/// Removes a queue; false, with a line on standard output, when that failed.
bool DeleteMessageQueue(int msgid);

/// Sends data, cut at 1024 characters, as one message of a type above 0; waits while the queue is
/// full. False when that failed.
bool sendMessage(const char *data, int msgid, int msgtype);

/// Unsigned decimal digits, nothing else: 0 and the value, or -1 with the value up to the
/// offending character. An empty text is 0.
int atoul(const char *str, unsigned int *pulValue);

/// Hexadecimal digits without prefix, at most eight significant ones; results as atoul.
int atoulx(const char *str, unsigned int *pulValue);

/// "0x.." or "0X.." as hexadecimal, all else as decimal (no octal). A bare prefix is -1 and
/// stores nothing.
int StrToNumber(const char *str, unsigned int *pulValue);
