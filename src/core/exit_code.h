// What the process tells whoever started it.
#pragma once

namespace vextra {

enum class ExitCode : int {
    kSuccess = 0,
    kFailed = 1,          // an output file, the self-test or a Media Foundation call
    kAlreadyRunning = 2,  // the other broker of this user was asked to show its window
    kRefused = 3,         // session 0, elevation, another owner, not this user's broker, no stop signal
    kImportFailed = 5,    // --import-legacy-env
    kBusy = 9,            // capture is active or unknown, or the broker did not stop in time
};

}  // namespace vextra
