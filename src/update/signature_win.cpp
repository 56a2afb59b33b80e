#include <windows.h>

#include <bcrypt.h>

#include "base/sha256.h"
#include "base/text.h"
#include "base/unique_win.h"
#include "update/signature.h"

namespace vextra {
namespace {

// BCRYPT_ECCPUBLIC_BLOB
struct PublicKeyBlob {
    ULONG magic = BCRYPT_ECDSA_PUBLIC_P256_MAGIC;  // "ECS1"
    ULONG coordinateBytes = 32;
    EcPoint point{};
};
static_assert(offsetof(PublicKeyBlob, point) == 8 && sizeof(PublicKeyBlob) == 72);

}  // namespace

bool verifyManifestSignature(std::string_view message, std::string_view signatureHex,
                             const EcPoint& publicKey) {
    std::optional<EcSignature> signature = bytesFromHex<sizeof(EcSignature)>(signatureHex);
    if (!signature)
        return false;
    std::optional<Sha256Digest> digest = sha256Of(std::as_bytes(std::span(message)));
    PublicKeyBlob blob{.point = publicKey};
    UniqueCryptoProvider provider;
    UniqueCryptoKey key;
    return digest &&
           BCryptOpenAlgorithmProvider(provider.put(), BCRYPT_ECDSA_P256_ALGORITHM, nullptr, 0) >= 0 &&
           BCryptImportKeyPair(provider.get(), nullptr, BCRYPT_ECCPUBLIC_BLOB, key.put(),
                               reinterpret_cast<PUCHAR>(&blob), sizeof blob, 0) >= 0 &&
           BCryptVerifySignature(key.get(), nullptr, reinterpret_cast<PUCHAR>(digest->data()),
                                 static_cast<ULONG>(digest->size()),
                                 reinterpret_cast<PUCHAR>(signature->data()),
                                 static_cast<ULONG>(signature->size()), 0) >= 0;
}

}  // namespace vextra
