// The channel of a broker that is built for tests: its origin and the file with its key are named by the
// environment, which the broker that ships never reads.
//
//   VEXTRA_TEST_CHANNEL_ORIGIN   https://localhost:PORT
//   VEXTRA_TEST_CHANNEL_KEY      a PEM file with the public key
#include <windows.h>

#include <string>

#include "broker_fixture_win.h"
#include "update/channel.h"
#include "update/channel_key.h"
#include "update/strict_url.h"
#include "windows_path.h"

namespace vextra {
namespace {

std::wstring variable(const wchar_t* name) {
    wchar_t text[1024];
    const DWORD length = GetEnvironmentVariableW(name, text, ARRAYSIZE(text));
    if (length == 0 || length >= ARRAYSIZE(text))
        return {};
    return {text, length};
}

// Without its variables this broker has a channel that nobody can reach.
UpdateChannelIdentity channelOfTheTest() {
    UpdateChannelIdentity channel{"https://test.invalid", {}};
    const std::wstring origin = variable(L"VEXTRA_TEST_CHANNEL_ORIGIN");
    const std::wstring keyFile = variable(L"VEXTRA_TEST_CHANNEL_KEY");
    if (origin.empty() || keyFile.empty())
        return channel;
    channel.origin = narrowedUrl(origin).view();
    channel.publicKey = publicKeyFromPem(readFile(test::windowsPath(keyFile))).value();
    return channel;
}

}  // namespace

const UpdateChannelIdentity& builtInChannel() {
    static const UpdateChannelIdentity channel = channelOfTheTest();
    return channel;
}

}  // namespace vextra
