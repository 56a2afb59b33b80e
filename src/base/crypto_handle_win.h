// Owners for what the system's cryptography (CNG) hands out. A key or hash has to end before its provider.
#pragma once

#include <windows.h>

#include <bcrypt.h>

#include "base/unique_win.h"

namespace vextra {

struct CryptoProviderTraits {
    using Value = BCRYPT_ALG_HANDLE;
    static Value invalid() { return nullptr; }
    static void close(Value value) { BCryptCloseAlgorithmProvider(value, 0); }
};
struct CryptoHashTraits {
    using Value = BCRYPT_HASH_HANDLE;
    static Value invalid() { return nullptr; }
    static void close(Value value) { BCryptDestroyHash(value); }
};
struct CryptoKeyTraits {
    using Value = BCRYPT_KEY_HANDLE;
    static Value invalid() { return nullptr; }
    static void close(Value value) { BCryptDestroyKey(value); }
};

using UniqueCryptoProvider = Unique<CryptoProviderTraits>;
using UniqueCryptoHash = Unique<CryptoHashTraits>;
using UniqueCryptoKey = Unique<CryptoKeyTraits>;

}  // namespace vextra
