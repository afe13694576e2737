// Loads the host configuration record and takes the SUU data out of it.
#ifndef INSTALLED_LOADHOSTCONFIG_H
#define INSTALLED_LOADHOSTCONFIG_H

#include "installed/hostconfig.h"
#include "installed/suul.h"

// Where the record is read from.
struct options_t {
    char primary[100];
    char secondary[100]; // tried when the primary one fails; empty: there is none
};

// Initialises both objects and fills them. 1, or -1 with the reason in the log. The pools are not built yet.
[[nodiscard]] int loadHostConfig(const options_t* options, suul_ctx_t* ctx, hostconfig_t* hc);

#endif
