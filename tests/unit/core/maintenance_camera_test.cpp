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
    bool operate(RunMode mode) {
        return operateCamera(
            mode, {
                      .startMediaFoundation = call("MFStartup"),
                      .stopMediaFoundation = [this] { calls.push_back("MFShutdown"); },
                      .create = call("create"),
                      .start = call("start"),
                      .remove = call("remove"),
                      .recordLink =
                          [this] {
                              calls.push_back("link");
                              return failing != "link";
                          },
                      .discard = [this] { calls.push_back("discard"); },
                      .log =
                          [this](EventCode code, std::int32_t value) {
                              EXPECT_TRUE(value == good || value == kFails) << value;
                              calls.push_back(std::string(eventText(code)) + (value < 0 ? " failed" : ""));
                          },
                  });
    }
    bool operateFailing(RunMode mode, std::string call) {
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
    EXPECT_TRUE(operate(RunMode::kRegisterCamera));
    EXPECT_EQ(calls, (Calls{"MFStartup", "create", "CREATE_SYSTEM_CURRENTUSER", "start", "REGISTER_SYSTEM",
                            "link", "discard", "MFShutdown"}));
}

TEST_F(CameraOperation, ResetsByRemovingBeforeStarting) {
    EXPECT_TRUE(operate(RunMode::kReset));
    EXPECT_EQ(calls, (Calls{"MFStartup", "create", "CREATE_SYSTEM_CURRENTUSER", "remove", "start",
                            "RESET_OWN_SYSTEM_CAMERA", "discard", "MFShutdown"}));
}

TEST_F(CameraOperation, Removes) {
    EXPECT_TRUE(operate(RunMode::kRemoveCamera));
    EXPECT_EQ(calls, (Calls{"MFStartup", "create", "CREATE_SYSTEM_CURRENTUSER", "remove", "REMOVE_SYSTEM",
                            "discard", "MFShutdown"}));
}

TEST_F(CameraOperation, TakesEverySuccessForOne) {
    good = kAlsoGood;
    EXPECT_TRUE(operate(RunMode::kReset));
    EXPECT_EQ(calls.size(), 8u);
}

TEST_F(CameraOperation, WithoutMediaFoundationSaysSoAndStopsNothing) {
    for (const RunMode mode : {RunMode::kRegisterCamera, RunMode::kReset, RunMode::kRemoveCamera}) {
        calls.clear();
        EXPECT_FALSE(operateFailing(mode, "MFStartup"));
        EXPECT_EQ(calls, (Calls{"MFStartup", "CREATE_SYSTEM_CURRENTUSER failed"}));
    }
}

TEST_F(CameraOperation, WithoutACameraStopsMediaFoundationOnly) {
    for (const RunMode mode : {RunMode::kRegisterCamera, RunMode::kReset, RunMode::kRemoveCamera}) {
        calls.clear();
        EXPECT_FALSE(operateFailing(mode, "create"));
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
    EXPECT_FALSE(operateFailing(RunMode::kRegisterCamera, "start"));
    EXPECT_EQ(calls, withCamera({"start", "REGISTER_SYSTEM failed"}));
}

TEST_F(CameraOperation, FailsWithoutTheLinkOfARegisteredCamera) {
    EXPECT_FALSE(operateFailing(RunMode::kRegisterCamera, "link"));
    EXPECT_EQ(calls, withCamera({"start", "REGISTER_SYSTEM", "link"}));
}

TEST_F(CameraOperation, StartsNothingThatAResetCouldNotRemove) {
    EXPECT_FALSE(operateFailing(RunMode::kReset, "remove"));
    EXPECT_EQ(calls, withCamera({"remove", "RESET_OWN_SYSTEM_CAMERA failed"}));
}

TEST_F(CameraOperation, ReportsAResetThatEndedWithoutACamera) {
    EXPECT_FALSE(operateFailing(RunMode::kReset, "start"));
    EXPECT_EQ(calls, withCamera({"remove", "start", "RESET_OWN_SYSTEM_CAMERA failed"}));
}

TEST_F(CameraOperation, ReportsACameraThatCouldNotBeRemoved) {
    EXPECT_FALSE(operateFailing(RunMode::kRemoveCamera, "remove"));
    EXPECT_EQ(calls, withCamera({"remove", "REMOVE_SYSTEM failed"}));
}

}  // namespace
}  // namespace vextra
