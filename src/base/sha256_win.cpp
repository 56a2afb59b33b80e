#include <windows.h>

#include <bcrypt.h>

#include <vector>

#include "base/sha256.h"
#include "base/unique_win.h"

namespace vextra {

// The hash lives in the object's memory, and the provider outlasts both: members are destroyed in reverse
// order.
struct Sha256::State {
    UniqueCryptoProvider provider;
    std::vector<UCHAR> object;
    UniqueCryptoHash hash;
};

Sha256::Sha256() {
    auto state = std::make_unique<State>();
    DWORD objectBytes = 0;
    ULONG written = 0;
    if (BCryptOpenAlgorithmProvider(state->provider.put(), BCRYPT_SHA256_ALGORITHM, nullptr, 0) < 0 ||
        BCryptGetProperty(state->provider.get(), BCRYPT_OBJECT_LENGTH, reinterpret_cast<PUCHAR>(&objectBytes),
                          sizeof objectBytes, &written, 0) < 0 ||
        written != sizeof objectBytes)
        return;
    state->object.resize(objectBytes);
    if (BCryptCreateHash(state->provider.get(), state->hash.put(), state->object.data(), objectBytes, nullptr,
                         0, 0) >= 0)
        state_ = std::move(state);
}

Sha256::~Sha256() = default;

bool Sha256::add(std::span<const std::byte> bytes) {
    // The system takes a pointer to what it does not change.
    auto* const data = const_cast<PUCHAR>(reinterpret_cast<const UCHAR*>(bytes.data()));
    if (state_ && BCryptHashData(state_->hash.get(), data, static_cast<ULONG>(bytes.size()), 0) < 0)
        state_.reset();
    return ready();
}

std::optional<Sha256Digest> Sha256::finish() {
    Sha256Digest digest{};
    const auto state = std::move(state_);
    if (!state || BCryptFinishHash(state->hash.get(), reinterpret_cast<PUCHAR>(digest.data()),
                                   static_cast<ULONG>(digest.size()), 0) < 0)
        return std::nullopt;
    return digest;
}

std::optional<Sha256Digest> sha256Of(std::span<const std::byte> bytes) {
    Sha256 hash;
    hash.add(bytes);
    return hash.finish();
}

}  // namespace vextra
