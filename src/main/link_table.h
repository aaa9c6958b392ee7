// Who controls this endpoint, and on which outputs, kept across restarts. The table is curtInfo
// with its counter curLink_num; its rules of change are the arbitration's.
#pragma once

#include "state.h"

/// A change of the table, by the main thread: while one lives, other threads wait to read. So it
/// never lives across anything that takes time, and what must not be seen apart is one change.
class TableChange {
  public:
    TableChange();
    ~TableChange();
    TableChange(const TableChange &) = delete;
    TableChange &operator=(const TableChange &) = delete;

    /// Cut to their fields.
    void setHolder(const char *name, int level);
    void setOutput(unsigned slot, const char *address);
    /// Slots from 0 on that are in use.
    void setCount(unsigned count);
    /// Nobody is linked.
    void clear();
};

/// The outputs as the table held them at one moment.
struct LinkedSlots {
    unsigned count;  ///< slots in use, kMaxOutputs at most
    bool linked[kMaxOutputs];
    char address[kMaxOutputs][kAddressSize];
};

/// For every thread. Waits while the table is being changed.
LinkedSlots linkedSlots();

/// Stores slot index, if asked with the user's name and level, and writes the settings file.
/// False, with nothing stored, for an index above 7.
bool saveLinkInfo(unsigned index, bool withNameAndPer);

/// Stores the empty table and writes the settings file; always true. The table in memory is the
/// caller's.
bool disconnectSaveInfo();

/// Rebuilds the table from the settings, and takes the mouse mode from them. Stored slots are a
/// packed list: the first empty one ends it. Always true.
bool iniCurrentInfo();
