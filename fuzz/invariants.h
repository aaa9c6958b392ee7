// What holds whatever operators send.
#pragma once

/// Slots are packed, texts end in their fields, and an empty table is empty.
void checkLinkTable();
/// The settings file gives back what was stored.
void checkSettings();
