#include "installed/suul.h"

#include "vex/kq.h"
#include <algorithm>

namespace {

constexpr const char* ModuleName = "suul.c";

// Line numbers of the assertions, known to those who read panics.
constexpr int LineImportContext = 223;
constexpr int LineImportRecord = 224;
constexpr int LineGenerate = 283;

constexpr int FlagUpgrade = 1; // an upgrade is going on
constexpr int FlagTest = 2;    // it is under test

void assertNotNull(const void* object, int line) {
    if (object == nullptr)
        kq_panic("*** ASSERT in %s at %d\n", ModuleName, line);
}

// The pool of this name, a new one if there is none yet, or null if all are in use by other names.
suul_pool_t* poolFor(suul_ctx_t* ctx, const char (&name)[16]) {
    for (suul_pool_t& pool : ctx->pools) {
        if (pool.name[0] == '\0') {
            memcpy(pool.name, name, sizeof name);
            ++ctx->poolCount;
            return &pool;
        }
        if (strncmp(pool.name, name, sizeof name) == 0)
            return &pool;
    }
    return nullptr;
}

} // namespace

int suul_init(suul_ctx_t* ctx) {
    *ctx = {};
    return 1;
}

int suul_hostconfig_import(suul_ctx_t* ctx, hostconfig_t* hc) {
    assertNotNull(ctx, LineImportContext);
    assertNotNull(hc, LineImportRecord);
    const zemp_content_header_t* part = hostconfig_get_part(hc, SuuDataPartName);
    const void* body = hostconfig_get_body(hc, SuuDataPartName);
    if (part == nullptr || body == nullptr)
        return -1;
    ctx->data = {};
    memcpy(&ctx->data, body, std::min<size_t>(part->body_length, sizeof ctx->data));
    return 1;
}

int suul_partpool_generate(suul_ctx_t* ctx) {
    assertNotNull(ctx, LineGenerate);
    for (suul_pool_t& pool : ctx->pools)
        pool = {};
    ctx->poolCount = 0;
    ctx->poolsGenerated = 0;
    for (uint8_t i = 0; i < suu_data_t::PartitionCount; ++i) {
        const suu_partition_t& partition = ctx->data.partitions[i];
        if (partition.name[0] == '\0')
            continue;
        if (suul_pool_t* pool = poolFor(ctx, partition.name))
            pool->members[pool->count++] = i;
    }
    ctx->poolsGenerated = 1;
    return 1;
}

int upgrade_flags_read(void) {
    return 0;
}

int get_upgrade_state(void) {
    return upgrade_state_of_flags(upgrade_flags_read());
}

int upgrade_state_of_flags(int flags) {
    if (flags < 0)
        return -1;
    if ((flags & FlagUpgrade) == 0)
        return 0;
    return (flags & FlagTest) != 0 ? 2 : 1;
}
