#include "core/maintenance.h"

#include <gtest/gtest.h>

namespace vextra {
namespace {

constexpr wchar_t kUser[] = L"S-1-5-21-1-2-3-1000";

// A caller who may; each test spoils one thing.
MaintenanceCaller owner() {
    return {1, false, kUser, kUser};
}

TEST(Maintenance, IsForTheOwnerInAnInteractiveSession) {
    EXPECT_TRUE(mayMaintain(owner()));
}

TEST(Maintenance, IsForAnySessionButTheServices) {
    MaintenanceCaller caller = owner();
    caller.session = 65'536;
    EXPECT_TRUE(mayMaintain(caller));
    caller.session = 0;
    EXPECT_FALSE(mayMaintain(caller));
}

TEST(Maintenance, IsRefusedInAnUnknownSession) {
    MaintenanceCaller caller = owner();
    caller.session.reset();
    EXPECT_FALSE(mayMaintain(caller));
}

TEST(Maintenance, IsRefusedToElevatedProcesses) {
    MaintenanceCaller caller = owner();
    caller.elevatedOrUnknown = true;
    EXPECT_FALSE(mayMaintain(caller));
}

TEST(Maintenance, IsRefusedToAnotherUser) {
    MaintenanceCaller caller = owner();
    caller.userSid = L"S-1-5-21-1-2-3-1001";
    EXPECT_FALSE(mayMaintain(caller));
}

TEST(Maintenance, ComparesTheOwnerExactly) {
    MaintenanceCaller caller = owner();
    caller.ownerSid = L"s-1-5-21-1-2-3-1000";
    EXPECT_FALSE(mayMaintain(caller));
    caller.ownerSid = L"S-1-5-21-1-2-3-1000 ";
    EXPECT_FALSE(mayMaintain(caller));
}

TEST(Maintenance, IsRefusedWithoutARegisteredOwner) {
    MaintenanceCaller caller = owner();
    caller.ownerSid = {};
    EXPECT_FALSE(mayMaintain(caller));
}

TEST(Maintenance, IsRefusedWhenNeitherUserNorOwnerIsKnown) {
    MaintenanceCaller caller = owner();
    caller.userSid = {};
    caller.ownerSid = {};
    EXPECT_FALSE(mayMaintain(caller));
}

TEST(Maintenance, IsRefusedToACallerOfWhomNothingIsKnown) {
    EXPECT_FALSE(mayMaintain({}));
}

}  // namespace
}  // namespace vextra
