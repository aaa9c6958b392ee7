// What must hold, whatever operators send. Both end the run when it does not.
#pragma once

/// Used slots are packed, texts end inside their fields, a table without outputs is all zero.
void checkLinkTable();
/// The settings file gives back what was stored.
void checkSettings();
