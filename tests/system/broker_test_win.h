// What every test of the running broker begins with: a provisioned machine and an installed broker.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

#include "broker_run_win.h"
#include "installed_machine_win.h"
#include "stub_decoder/stub_install_win.h"

namespace vextra::test {

class BrokerTest : public testing::Test {
protected:
    BrokerRun& broker() { return broker_; }
    const StubInstall& decoder() const { return decoder_; }
    bool decoderHasStarted(int start = 1) const {  // counted from 1
        return fileExists(decoder_.root() + L"\\deps\\start-" + std::to_wstring(start) + L".record");
    }
    void useRealDecoder() {
        std::filesystem::copy_file(builtFile(L"deps\\ffmpeg.exe"), decoder_.decoderPath(),
                                   std::filesystem::copy_options::overwrite_existing);
    }
    Viewer& viewer() {
        if (!viewer_)
            viewer_ = std::make_unique<Viewer>(machine_.bridgePath(), machine_.demandPath());
        return *viewer_;
    }
    void writeProfile(const std::string& url, const std::string& transport = "tcp") {
        writeFile(broker_.legacyFolder() + L"\\source.private.ini",
                  "[source]\r\nurl=" + url + "\r\ntransport=" + transport + "\r\n");
    }

    InstalledMachine machine_;

private:
    StubInstall decoder_{L"Vextra MF instalação"};
    BrokerRun broker_{decoder_.root(), machine_.root() + L"\\local"};  // before the install it ends first
    std::unique_ptr<Viewer> viewer_;
};

}  // namespace vextra::test
