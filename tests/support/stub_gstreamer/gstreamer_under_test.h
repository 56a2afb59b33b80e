// A GStreamer that a test makes up, as the pipeline meets it: by its table alone, so that the sanitizers see
// everything, or with VEXTRA_THROUGH_STUB_LIBRARIES through five libraries that a GstRuntime found and
// loaded.
#pragma once

#include "stub_gstreamer/fake_gstreamer.h"
#ifdef VEXTRA_THROUGH_STUB_LIBRARIES
#include "producers/gst_runtime_win.h"
#include "stub_gstreamer/stub_runtime_win.h"
#endif

namespace vextra::test {

class GstreamerUnderTest {
public:
#ifdef VEXTRA_THROUGH_STUB_LIBRARIES
    GstreamerUnderTest() {
        fake().calls.clear();
    }
    FakeGstreamer& fake() {
        return machine_.gstreamer;
    }
    const GstApi* api() const {
        return runtime_.api();
    }

private:
    // A folder under the broker's own, which is looked into first.
    static GstRuntimePlaces install(const StubMachine& machine) {
        makeStubRuntime(machine.installRoot() + L"\\deps\\gstreamer\\bin", LibraryNames::kMinGw);
        return {machine.installRoot(), machine.dataFolder()};
    }
    StubMachine machine_;
    GstRuntime runtime_{install(machine_)};
#else
    FakeGstreamer& fake() {
        return fake_;
    }
    const GstApi* api() const {
        return &fake_.api();
    }

private:
    FakeGstreamer fake_;
#endif
};

}  // namespace vextra::test
