// Recording into the core library's error state: used by the stand-in
// libraries themselves, never by the generator.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// Records a failure. `file` is copied, so any string will do.
void VLIBCErrSet(int code, const char* file, int line);

#ifdef __cplusplus
}
#endif

// Records `code` with the call site's file name and line.
#define VLIBC_ERR_SET(code) VLIBCErrSet((code), __FILE_NAME__, __LINE__)

// Error codes of the stand-in platform.
enum VlibcErrorCode {
    VLIBC_ERR_NO_POLICY = 0x700,         // the unit carries no [X-Vela] section
    VLIBC_ERR_NO_SUCH_UNIT = 0x701,      // no unit file of that name
    VLIBC_ERR_UNIT_UNREADABLE = 0x702,   // unit file unreadable or [X-Vela] malformed
    VLIBC_ERR_SUPPORT_TABLE = 0x703,     // the support table cannot be read
    VLIBC_ERR_LIST_UNITS = 0x704,        // a unit or link directory cannot be listed
    VLIBC_ERR_UNIT_MASKED = 0x705,       // a masked unit cannot be enabled
    VLIBC_ERR_NOTHING_TO_INSTALL = 0x706,  // static unit or bare template: no links to make
    VLIBC_ERR_WRITE = 0x707,             // a directory, link or file cannot be written
    VLIBC_ERR_BAD_ARGUMENT = 0x708,      // a name, key or value cannot be written as given
    VLIBC_ERR_FORK = 0x710,
    VLIBC_ERR_EXEC = 0x711,
    VLIBC_ERR_TOUCH = 0x712,
};
