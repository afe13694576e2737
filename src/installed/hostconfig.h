/* The host configuration record: a small record in the ZEMP format, in a flash partition or a backup file,
 * that tells what is installed on the terminal. This module loads and validates it.
 *
 * No function keeps state of its own; an object is used by one thread at a time. A null object is a
 * programming fault and ends the process. Nothing is logged: failures are results.
 */
#ifndef INSTALLED_HOSTCONFIG_H
#define INSTALLED_HOSTCONFIG_H

#include "image/ZempFormat.h"

inline constexpr unsigned HostconfigMaximumSize = 5120; // of the whole record
inline constexpr unsigned HostconfigMinimumSize = ZempFormat::MagicSize + ZempFormat::HeaderSize;
inline constexpr unsigned HostconfigMaximumParts = 20; // that are kept; a record may hold more
inline constexpr unsigned HostconfigUnparsedTail = 32; // so many last bytes of the body are never a part

extern "C" {

/* Points into itself, so it is not copied. */
struct hostconfig_t {
    uint8_t raw[HostconfigMaximumSize];                   /* the record as read, zero behind it */
    zemp_header_t* header;                                /* main header in raw */
    zemp_content_header_t* parts[HostconfigMaximumParts]; /* content parts in raw */
    unsigned capacity;                                    /* as given to hostconfig_new() */
    int count;                                            /* entries of parts in use */
    unsigned body_offset;                                 /* of the first content part in raw */
    int expected; /* parts after which parsing stops, if no more than an unparsed tail is left; -1: no limit
                   */
};

/* Clears the object and makes it ready for loading. 1, or 0 if `capacity` exceeds 5120. */
int hostconfig_new(hostconfig_t* hc, unsigned capacity);

/* Reads one record and checks its main header and its body, not the content parts. A path of a raw flash
 * device is read as exactly 5120 bytes, a file whole. 0, or -1. */
int hostconfig_load_raw(hostconfig_t* hc, const char* path);

/* Loads the record at `primary`, or if that cannot be read or is not valid the one at `secondary` (null or
 * empty: there is none; it is a regular file, no link), and finds its content parts. 1: loaded from primary;
 * 2: from secondary; -1: failure, and no parts are known. Parts are checked only in the record chosen. */
int hostconfig_load(hostconfig_t* hc, const char* primary, const char* secondary);

/* The two checks of a load, for records that come from elsewhere: bytes, at most 5120, copied into raw of a
 * new object. Both return the validity code of zemp_validate.h, or HostconfigBadLength when a declared length
 * exceeds what is there. */
enum HostconfigValidity { HostconfigBadLength = 0 };

/* Checks the main header and the whole body in raw. */
int hostconfig_check_raw(hostconfig_t* hc);

/* Finds and checks the content parts; the main header is valid. On failure no parts are known, and `fault`,
 * unless null, receives the offset in raw of the part that is not valid. */
int hostconfig_find_parts(hostconfig_t* hc, unsigned* fault);

/* The first content part whose name begins with `name`, or null. */
const zemp_content_header_t* hostconfig_get_part(const hostconfig_t* hc, const char* name);

/* The body of that part, or null; it has `body_length` bytes, and lives in the object. */
void* hostconfig_get_body(hostconfig_t* hc, const char* name);
}

#endif
