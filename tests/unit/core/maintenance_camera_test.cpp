#include "core/maintenance.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "base/system_types.h"

namespace vextra {
namespace {

using Calls = std::vector<std::string>;

constexpr std::int32_t kFails = kResultAccessDenied;
constexpr std::int32_t kAlsoGood = 1;

// A system that does what it is asked and remembers it; the call named `failing` fails.
class CameraOperation : public testing::Test {
protected:
    std::int32_t operate(RunMode mode) {
        return operateCamera(
            mode, {
                      .startMediaFoundation = call("MFStartup"),
                      .stopMediaFoundation = [this] { calls.push_back("MFShutdown"); },
                      .create = call("create"),
                      .start = call("start"),
                      .remove = call("remove"),
                      .recordLink = call("link"),
                      .discard = [this] { calls.push_back("discard"); },
                      .log =
                          [this](EventCode code, std::int32_t value) {
                              calls.push_back(std::string(eventText(code)) + (value < 0 ? " failed" : ""));
                          },
                  });
    }
    std::int32_t operateFailing(RunMode mode, std::string call) {
        failing = std::move(call);
        return operate(mode);
    }

    std::string failing;
    std::int32_t good = 0;
    Calls calls;

private:
    std::function<std::int32_t()> call(std::string name) {
        return [this, name] {
            calls.push_back(name);
            return name == failing ? kFails : good;
        };
    }
};

TEST_F(CameraOperation, RegistersStartsAndRecordsTheLink) {
    EXPECT_EQ(operate(RunMode::kRegisterCamera), 0);
    EXPECT_EQ(calls, (Calls{"MFStartup", "create", "CREATE_SYSTEM_CURRENTUSER", "start", "REGISTER_SYSTEM",
                            "link", "discard", "MFShutdown"}));
}

TEST_F(CameraOperation, ResetsByRemovingBeforeStarting) {
    EXPECT_EQ(operate(RunMode::kReset), 0);
    EXPECT_EQ(calls, (Calls{"MFStartup", "create", "CREATE_SYSTEM_CURRENTUSER", "remove", "start",
                            "RESET_OWN_SYSTEM_CAMERA", "discard", "MFShutdown"}));
}

TEST_F(CameraOperation, Removes) {
    EXPECT_EQ(operate(RunMode::kRemoveCamera), 0);
    EXPECT_EQ(calls, (Calls{"MFStartup", "create", "CREATE_SYSTEM_CURRENTUSER", "remove", "REMOVE_SYSTEM",
                            "discard", "MFShutdown"}));
}

TEST_F(CameraOperation, TakesEverySuccessForOne) {
    good = kAlsoGood;
    EXPECT_EQ(operate(RunMode::kReset), kAlsoGood);
    EXPECT_EQ(calls.size(), 8u);
}

TEST_F(CameraOperation, WithoutMediaFoundationSaysSoAndStopsNothing) {
    for (const RunMode mode : {RunMode::kRegisterCamera, RunMode::kReset, RunMode::kRemoveCamera}) {
        calls.clear();
        EXPECT_EQ(operateFailing(mode, "MFStartup"), kFails);
        EXPECT_EQ(calls, (Calls{"MFStartup", "CREATE_SYSTEM_CURRENTUSER failed"}));
    }
}

TEST_F(CameraOperation, WithoutACameraStopsMediaFoundationOnly) {
    for (const RunMode mode : {RunMode::kRegisterCamera, RunMode::kReset, RunMode::kRemoveCamera}) {
        calls.clear();
        EXPECT_EQ(operateFailing(mode, "create"), kFails);
        EXPECT_EQ(calls, (Calls{"MFStartup", "create", "CREATE_SYSTEM_CURRENTUSER failed", "MFShutdown"}));
    }
}

// What is called when all is well up to the camera's creation.
Calls withCamera(Calls calls) {
    calls.insert(calls.begin(), {"MFStartup", "create", "CREATE_SYSTEM_CURRENTUSER"});
    calls.insert(calls.end(), {"discard", "MFShutdown"});
    return calls;
}

TEST_F(CameraOperation, RecordsNoLinkOfACameraThatDidNotStart) {
    EXPECT_EQ(operateFailing(RunMode::kRegisterCamera, "start"), kFails);
    EXPECT_EQ(calls, withCamera({"start", "REGISTER_SYSTEM failed"}));
}

TEST_F(CameraOperation, FailsWithoutTheLinkOfARegisteredCamera) {
    EXPECT_EQ(operateFailing(RunMode::kRegisterCamera, "link"), kFails);
    EXPECT_EQ(calls, withCamera({"start", "REGISTER_SYSTEM", "link"}));
}

TEST_F(CameraOperation, StartsNothingThatAResetCouldNotRemove) {
    EXPECT_EQ(operateFailing(RunMode::kReset, "remove"), kFails);
    EXPECT_EQ(calls, withCamera({"remove", "RESET_OWN_SYSTEM_CAMERA failed"}));
}

TEST_F(CameraOperation, ReportsAResetThatEndedWithoutACamera) {
    EXPECT_EQ(operateFailing(RunMode::kReset, "start"), kFails);
    EXPECT_EQ(calls, withCamera({"remove", "start", "RESET_OWN_SYSTEM_CAMERA failed"}));
}

TEST_F(CameraOperation, ReportsACameraThatCouldNotBeRemoved) {
    EXPECT_EQ(operateFailing(RunMode::kRemoveCamera, "remove"), kFails);
    EXPECT_EQ(calls, withCamera({"remove", "REMOVE_SYSTEM failed"}));
}

}  // namespace
}  // namespace vextra
