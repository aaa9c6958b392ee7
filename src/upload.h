// One firmware upload to the boards behind the microcontroller, and its state.
//
// quillon-flash calls this, on an endpoint whose daemon is stopped. The daemon itself never starts
// an upload: this code is not linked into it.
//
// It needs two threads: one runs uploadFile, the other receives the microcontroller's board list
// and passes it to initUploadANDloop. They share only the variables below, which they poll every
// half second.
#pragma once

extern int l_isupdata;      ///< 0 idle, 2 waiting for the board list, 1 boards are being programmed
extern int l_broadnum;      ///< boards in the list: 10 or 20, or 1 for a single one
extern char *l_broadstate;  ///< 1 present, 0 absent, for each of them; null while there is no list

/// Programs filename, a ".mot" file of S-records (see MyUpdata), into every board that is present,
/// and then deletes it. Nobody else may use the serial port meanwhile. True when the upload ran to
/// its end, even if boards failed or none is present. The result goes to the queue c_netmsgid,
/// message type 3: "file error", "timeout" (no board list within 2.5 s), "upload error", or
/// "0:OK;1:N/A;2:Failed;" board by board.
bool uploadFile(const char *filename);

/// Takes the board list, 31 characters for 10 boards or 61 for 20: "(OK,NA,...)", "NA" for an
/// absent one. True when uploadFile has ended. False at once when uploadFile is not waiting for a
/// list, or when the list has another length.
bool initUploadANDloop(char *data);
