#include "installed/loadHostConfig.h"

#include "common/VexStreamLog.h"

int loadHostConfig(const options_t* options, suul_ctx_t* ctx, hostconfig_t* hc) {
    const std::string primary = ZempFormat::text(options->primary);
    const std::string secondary = ZempFormat::text(options->secondary);
    if (suul_init(ctx) != 1) {
        VEX_LOG(LogWarning) << "loadHostConfig() suul_init failed!";
        return -1;
    }
    if (hostconfig_new(hc, HostconfigMaximumSize) != 1) {
        VEX_LOG(LogWarning) << "loadHostConfig() hostconfig_new failed!";
        return -1;
    }
    if (!secondary.empty()) {
        VEX_LOG(LogDebug) << "loadHostConfig() hostconfig_load primary='" << primary << "' secondary='"
                          << secondary << "'.";
    } else {
        VEX_LOG(LogDebug) << "loadHostConfig() hostconfig_load file='" << primary << "'.";
    }
    const int result = hostconfig_load(hc, primary.c_str(), secondary.empty() ? nullptr : secondary.c_str());
    if (result == 2) {
        VEX_LOG(LogWarning) << "loadHostConfig() hostconfig_load failed; loaded backup (" << secondary
                            << ") successfully.";
    } else if (result != 1) {
        VEX_LOG(LogWarning) << "loadHostConfig() hostconfig_load failed!";
        return -1;
    }
    if (suul_hostconfig_import(ctx, hc) != 1) {
        VEX_LOG(LogWarning) << "loadHostConfig() suul_hostconfig_import failed!";
        return -1;
    }
    return 1;
}
