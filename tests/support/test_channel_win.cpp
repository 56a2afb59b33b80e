// The channel of a broker that is built for tests: its origin and the file with its key are named by the
// environment, which the broker that ships never reads.
//
//   VEXTRA_TEST_CHANNEL_ORIGIN   https://localhost:PORT
//   VEXTRA_TEST_CHANNEL_KEY      a PEM file with the public key
#include <windows.h>

#include <string>

#include "base/text.h"
#include "broker_fixture_win.h"
#include "services_win.h"
#include "update/channel.h"

namespace vextra {
namespace {

// Without its variables this broker has a channel that cannot be reached.
UpdateChannelIdentity channelOfTheTest() {
    UpdateChannelIdentity channel{"https://test.invalid", {}};
    const auto origin = test::variable(L"VEXTRA_TEST_CHANNEL_ORIGIN");
    const auto keyFile = test::variable(L"VEXTRA_TEST_CHANNEL_KEY");
    if (!origin || !keyFile)
        return channel;
    channel.origin = narrowedAscii(*origin).view();
    channel.publicKey = publicKeyFromPem(readFile(test::windowsPath(*keyFile))).value();
    return channel;
}

}  // namespace

const UpdateChannelIdentity& builtInChannel() {
    static const UpdateChannelIdentity channel = channelOfTheTest();
    return channel;
}

}  // namespace vextra
