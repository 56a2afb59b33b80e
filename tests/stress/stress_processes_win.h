// Processes that meet in a shared file at full speed: a test starts its own program again under other names,
// and all of them count in a block of memory that they share.
#pragma once

#include <windows.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

#include "base/unique_win.h"
#include "broker_fixture_win.h"

namespace vextra::stress {

using Count = std::atomic<std::uint64_t>;

struct BridgeReaderCounts {
    Count accepted;       // snapshots that the sequence word vouched for
    Count distinct;       // of them, of another update than the one before
    Count rejected;       // attempts that it did not
    Count wholeFrames;    // every pixel compared
    Count torn;           // accepted, and yet a mixture
    Count carelessReads;  // the same copies with the sequence word ignored
    Count carelessTorn;
};

// Of all leases of one process; all of them only grow.
struct LeaseCounts {
    Count takesBegun;
    Count takesDone;
    Count releasesBegun;
    Count releasesDone;
};

constexpr std::size_t kMostReaders = 2;
constexpr std::size_t kMostHolderProcesses = 4;

struct StressBlock {
    std::atomic<bool> stop;
    Count updates;  // by all writers together
    Count frames;   // of them, with pixels
    Count repairs;  // of a sequence word that a dead writer left odd
    Count wrongSequences;
    std::array<BridgeReaderCounts, kMostReaders> readers;
    std::array<LeaseCounts, kMostHolderProcesses> holders;
    Count ready;  // processes that have begun their work
    Count ghosts;
};

// A block of zeros under a name.
class SharedBlock {
public:
    explicit SharedBlock(const std::wstring& name)
        : mapping_(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(StressBlock),
                                      name.c_str())),
          view_(mapping_
                    ? MapViewOfFile(mapping_.get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, sizeof(StressBlock))
                    : nullptr) {
        if (!view_)
            failSetUp("shared block");
    }
    StressBlock* operator->() const { return static_cast<StressBlock*>(view_.get()); }
    StressBlock& operator*() const { return *operator->(); }

private:
    UniqueHandle mapping_;
    UniqueView view_;
};

// What a started process is told.
struct Role {
    std::wstring name;
    std::wstring block;
    std::wstring file;  // the shared file that it works on
    std::uint32_t number = 0;
};

// A process of this program that plays a role; killed when this ends.
class RoleProcess {
public:
    explicit RoleProcess(const Role& role);
    RoleProcess(const RoleProcess&) = delete;
    RoleProcess& operator=(const RoleProcess&) = delete;
    ~RoleProcess() { kill(); }

    HANDLE mainThread() const { return thread_.get(); }
    bool waitForEnd(DWORD timeoutMs) const;  // true when it ended with 0
    void kill();

private:
    UniqueHandle process_;
    UniqueHandle thread_;
};

// The roles; each runs until the block says stop, or its work is done. The result is an exit code.
int playBridgeRole(const Role& role);  // 0 when it knows the role and went through it, -1 when it does not
int playLeaseRole(const Role& role);

}  // namespace vextra::stress
