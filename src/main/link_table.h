// The holder of this endpoint and their outputs, kept across restarts. The table is curtInfo with
// its counter curLink_num; main/arbitration.h has the rules by which it changes.
#pragma once

#include "state.h"

/// One change of the table, made by the main thread. Other threads wait to read while it exists, so
/// nothing slow may happen during it. Changes that must be seen together belong in one.
class TableChange {
  public:
    TableChange();
    ~TableChange();
    TableChange(const TableChange &) = delete;
    TableChange &operator=(const TableChange &) = delete;

    /// Texts that are too long are cut.
    void setHolder(const char *name, int level);
    void setOutput(unsigned slot, const char *address);
    /// Marks the slots 0 to count - 1 as in use.
    void setCount(unsigned count);
    /// Removes the holder and all outputs.
    void clear();
};

/// The outputs as the table held them at one moment.
struct LinkedSlots {
    unsigned count;  ///< slots in use, kMaxOutputs at most
    bool linked[kMaxOutputs];
    char address[kMaxOutputs][kAddressSize];
};

/// For any thread. Waits while the table is being changed.
LinkedSlots linkedSlots();

/// Stores slot index, with withNameAndPer also the holder's name and level, and writes the settings
/// file. False, with nothing stored, for an index above 7.
bool saveLinkInfo(unsigned index, bool withNameAndPer);

/// Stores the empty table and writes the settings file; always true. The caller clears the table in
/// memory.
bool disconnectSaveInfo();

/// Rebuilds the table from the settings, and takes the mouse mode from them. Stored slots are a
/// packed list: the first empty one ends it. Always true.
bool iniCurrentInfo();
