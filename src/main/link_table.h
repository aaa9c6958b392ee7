// Who controls this endpoint, and on which outputs, kept across restarts. The table is curtInfo
// with its counter curLink_num; its rules of change are the arbitration's.
#pragma once

/// Stores slot index, if asked with the user's name and level, and writes the settings file.
/// False, with nothing stored, for an index above 7. The counter is the caller's.
bool saveLinkInfo(unsigned index, bool withNameAndPer);

/// Stores the empty table and writes the settings file; always true. The table in memory is the
/// caller's.
bool disconnectSaveInfo();

/// Rebuilds the table from the settings, and takes the mouse mode from them. Stored slots are a
/// packed list: the first empty one ends it. Always true.
bool iniCurrentInfo();
