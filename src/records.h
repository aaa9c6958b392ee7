// The records that consoles send, one in each datagram, recognised by their length alone: 57 AB, a
// kind, and the state of a keyboard or mouse. docs/protocols.md has the layouts.
#pragma once

/// Every record begins with these, and so does every frame of either chip.
constexpr unsigned char kFrameHead1 = 0x57, kFrameHead2 = 0xAB;

constexpr int kRecordHead = 2 + 1;  // 57 AB, kind
constexpr int kKeyboardReport = 8;  // modifiers, a reserved byte, six usages
constexpr int kKeyboardRecord = kRecordHead + kKeyboardReport;
constexpr int kAbsMouseRecord = kRecordHead + 1 + 1 + 2 + 2 + 1;  // 01, buttons, x, y, wheel
constexpr int kRelMouseRecord = kRecordHead + 1 + 1 + 1 + 1;      // buttons, dx, dy, wheel

/// Offsets of the low bytes of x and y in an absolute mouse record; the high byte follows.
constexpr int kAbsMouseX = kRecordHead + 1 + 1, kAbsMouseY = kAbsMouseX + 2;

/// Records that press one lock key, and one that releases all keys.
constexpr char kCapsPress[kKeyboardRecord] = {0x57, '\xAB', 0x01, 0, 0, 0x39};
constexpr char kNumPress[kKeyboardRecord] = {0x57, '\xAB', 0x01, 0, 0, 0x53};
constexpr char kKeyRelease[kKeyboardRecord] = {0x57, '\xAB', 0x01};
