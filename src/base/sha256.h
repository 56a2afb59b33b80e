// SHA-256 (FIPS 180-4) by the system's own implementation.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <span>

namespace vextra {

using Sha256Digest = std::array<std::byte, 32>;

// One digest, fed in pieces. After a failure of the system, everything that follows fails. One thread at a
// time.
class Sha256 {
public:
    Sha256();
    ~Sha256();
    Sha256(const Sha256&) = delete;
    Sha256& operator=(const Sha256&) = delete;

    bool ready() const { return state_ != nullptr; }

    // At most 4 GiB a call.
    bool add(std::span<const std::byte> bytes);

    // Once; nothing can be added afterwards.
    std::optional<Sha256Digest> finish();

private:
    struct State;  // provider, hash and the memory it lives in
    std::unique_ptr<State> state_;
};

std::optional<Sha256Digest> sha256Of(std::span<const std::byte> bytes);

}  // namespace vextra
