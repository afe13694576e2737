/* The SUU data and the partition pools built from it: which partitions there are, grouped by name.
 *
 * No function keeps state of its own; a context is used by one thread at a time. A null object is a
 * programming fault and ends the process. Nothing is logged: failures are results.
 */
#ifndef INSTALLED_SUUL_H
#define INSTALLED_SUUL_H

#include "installed/SuuData.h"
#include "installed/hostconfig.h"

inline constexpr char SuuDataPartName[] = "SUU data"; // of the content part in the record

extern "C" {

/* Partitions of one name. */
struct suul_pool_t {
    char name[16]; /* without terminator when it fills the field; empty: the pool is unused */
    uint8_t members[suu_data_t::PartitionCount]; /* indices of partitions, ascending */
    uint8_t count;
};

struct suul_ctx_t {
    suu_data_t data;
    suul_pool_t pools[suu_data_t::PartitionCount];
    uint32_t poolCount;
    uint32_t poolsGenerated; /* 1 once the pools are built */
};

/* Clears the context. Always 1. */
int suul_init(suul_ctx_t* ctx);

/* Copies the SUU data out of the record; what the part does not hold is zero. 1, or -1 if the record has no
 * such part. */
int suul_hostconfig_import(suul_ctx_t* ctx, hostconfig_t* hc);

/* Groups the partitions by name, in the order of their first appearance. Always 1. */
int suul_partpool_generate(suul_ctx_t* ctx);

/* The upgrade flags; always 0 on this platform. */
int upgrade_flags_read(void);

/* State of an upgrade: 0 none, 1 booted once, 2 under test; -1 if the flags cannot be read. */
int get_upgrade_state(void);

/* The same for given flags: bit 0 an upgrade is going on, bit 1 it is under test; negative: unreadable. */
int upgrade_state_of_flags(int flags);
}

static_assert(sizeof(suul_pool_t) == 37);

#endif
