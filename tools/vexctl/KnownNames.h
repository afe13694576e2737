// What the firmware download daemon knows of keys and signals, for whoever sets or reads them by hand.
#ifndef VEXCTL_KNOWNNAMES_H
#define VEXCTL_KNOWNNAMES_H

#include <string>

// The daemon's key that this one looks like without being it; empty when there is none.
std::string findMisspelt(const std::string& key);

// What a signal says, in words; empty when that is not known.
std::string explainSignal(const std::string& name, const void* data, unsigned length);

#endif
