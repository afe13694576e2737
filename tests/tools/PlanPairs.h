// Pairs of an image and what a terminal has installed, for plans to be compared with what is done.
#ifndef TESTS_TOOLS_PLANPAIRS_H
#define TESTS_TOOLS_PLANPAIRS_H

#include "update/rig/Samples.h"

struct PlanPair {
    const char* name;
    std::vector<rig::PoolSpec> pools;
    std::string text; // of the release
};

inline std::vector<PlanPair> planPairs() {
    std::vector<rig::PoolSpec> nothingInstalled = rig::standardPools();
    std::vector<rig::PoolSpec> allInstalled = rig::standardPools();
    for (size_t i = 0; i < allInstalled.size(); ++i) {
        nothingInstalled[i].isInstalled = false;
        allInstalled[i].isInstalled = true;
    }
    return {
        {"standard", rig::standardPools(), "Release\n"},
        {"nothing installed", nothingInstalled, "Release\n"},
        {"all installed", allInstalled, "Release\n"},
        {"around the first span",
         {{2, "kernel", "-", 447, false}, {4, "root", "-", 448, false}, {5, "app", "-", 449, false}},
         "Release\n"},
        {"small last", {{2, "kernel", "-", 5000, false}, {4, "root", "-", 1, false}}, "Release\n"},
        {"empty part", {{2, "kernel", "-", 0, false}, {4, "root", "-", 90001, false}}, "Release\n"},
        {"long start", rig::standardPools(), std::string(300, 'r') + "\n"},
        {"other platform first",
         {{3, "kernel", "4812", 70000, false}, {4, "root", "-", 640, true}},
         "Release\n"},
    };
}

#endif
