// A broker whose camera a viewer watches; the decoder is the stub, whose frames are numbers.
#pragma once

#include <cstdint>

#include "broker_test_win.h"

namespace vextra::test {

class DemandTest : public BrokerTest {
protected:
    DemandTest() { decoder().behave("frames=endless\nframesPerSecond=16"); }

    void startWithTestPattern() { broker().start(L"--test-pattern --background"); }
    void goLive() {
        startWithTestPattern();
        viewer().takeLease();
        ASSERT_TRUE(viewer().waitForState(BridgeState::kLive));
    }
    std::uint32_t state() { return viewer().header().state; }
    DWORD decoderProcess(std::uint32_t start = 1) { return decoder().record(start).number("pid"); }
};

}  // namespace vextra::test
