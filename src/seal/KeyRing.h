// The keys whose seals a terminal trusts. For any thread; nothing here throws or logs.
#ifndef SEAL_KEYRING_H
#define SEAL_KEYRING_H

#include "seal/Signature.h"

namespace seal {

struct KeyRing {
    enum State {
        Off,   // there are no keys: releases need no seal
        On,    // releases need a seal by one of the keys
        Closed // there are keys that cannot be told: no release is good enough
    };

    State state = Off;
    std::vector<PublicKey> keys;
    std::string problem; // of a closed one: the file, and what is wrong
};

// Reads all keys of a directory. No directory, or an empty one, is off. A directory or a file that cannot be
// read, or anything in it that is no public key in a file named *.pub, closes the ring; names that begin with
// a dot are passed over.
KeyRing loadKeys(const std::string& directory);

} // namespace seal

#endif
