// The records that consoles send, one in each datagram, recognised by their length alone: 57 AB, a
// kind, and what a keyboard or mouse has to say. docs/protocols.md has the layouts.
#pragma once

/// Every record begins with these, and so does every frame of either chip.
constexpr unsigned char kFrameHead1 = 0x57, kFrameHead2 = 0xAB;

constexpr int kRecordHead = 2 + 1;  // 57 AB, kind
constexpr int kKeyboardReport = 8;  // modifiers, a reserved byte, six usages
constexpr int kKeyboardRecord = kRecordHead + kKeyboardReport;
constexpr int kAbsMouseRecord = kRecordHead + 1 + 1 + 2 + 2 + 1;  // 01, buttons, x, y, wheel
constexpr int kRelMouseRecord = kRecordHead + 1 + 1 + 1 + 1;      // buttons, dx, dy, wheel

/// Where the low byte of an absolute mouse record's position lies; the high byte follows.
constexpr int kAbsMouseX = kRecordHead + 1 + 1, kAbsMouseY = kAbsMouseX + 2;

/// Records that press one lock key, and that release all keys.
constexpr char kCapsPress[kKeyboardRecord] = {0x57, '\xAB', 0x01, 0, 0, 0x39};
constexpr char kNumPress[kKeyboardRecord] = {0x57, '\xAB', 0x01, 0, 0, 0x53};
constexpr char kKeyRelease[kKeyboardRecord] = {0x57, '\xAB', 0x01};
