// A pipeline configures its source on one of its own threads, while the Supervisor pulls: under
// ThreadSanitizer.
#include <gtest/gtest.h>

#include <atomic>
#include <string_view>
#include <thread>
#include <vector>

#include "producers/gst_pipeline.h"
#include "stub_gstreamer/fake_gstreamer.h"

namespace vextra::test {
namespace {

// A GStreamer whose pipeline has a thread, which runs while it plays. What it calls back touches nothing of
// the FakeGstreamer, which knows one thread only.
class ThreadedGstreamer {
public:
    ThreadedGstreamer() {
        the = this;
        plain_ = fake.api();
        api_ = plain_;
        api_.g_signal_connect_data = [](void*, const char*, GstSourceSetup handler, void* data, void*,
                                        std::int32_t) -> std::uint32_t {
            the->handler_ = handler;
            the->data_ = data;
            return 1;
        };
        api_.gst_element_set_state = [](GstElement* element, std::int32_t state) {
            if (state == kGstStatePlaying)
                the->streaming_ = std::jthread([element](const std::stop_token& stop) {
                    do {
                        the->handler_(element, element, the->data_);
                    } while (!stop.stop_requested());
                });
            else
                the->streaming_ = {};
            return the->plain_.gst_element_set_state(element, state);
        };
        api_.gst_element_get_factory = [](GstElement*) {
            static std::byte factory{};
            return reinterpret_cast<GstElementFactory*>(&factory);
        };
        api_.gst_object_get_name = [](void*) {
            static char name[] = "rtspsrc";
            return name;
        };
        api_.g_free = [](void*) {};
        api_.g_object_set = &noteProperties;
    }
    ThreadedGstreamer(const ThreadedGstreamer&) = delete;
    ThreadedGstreamer& operator=(const ThreadedGstreamer&) = delete;
    ~ThreadedGstreamer() { the = nullptr; }

    const GstApi& api() const { return api_; }

    FakeGstreamer fake;
    std::atomic<int> configured{0};

private:
    static void noteProperties(void*, const char* first, ...) {
        if (std::string_view(first) == "protocols")
            ++the->configured;
    }

    static inline ThreadedGstreamer* the = nullptr;
    GstApi plain_{};
    GstApi api_{};
    GstSourceSetup handler_ = nullptr;
    void* data_ = nullptr;
    std::jthread streaming_;
};

TEST(GstPipelineRaces, TheSourceIsConfiguredOnAThreadOfThePipelineWhileFramesArePulled) {
    ThreadedGstreamer gstreamer;
    GstPipeline pipeline;
    std::vector<std::byte> frame(kFrameBytes);
    std::atomic<bool> done{false};
    // Another thread, which asks meanwhile.
    std::jthread asker([&] {
        while (!done) {
            EXPECT_FALSE(pipeline.gstreamerFailed());
            EXPECT_TRUE(pipeline.reason().empty());
            std::this_thread::yield();
        }
    });
    for (std::uint32_t start = 1; start <= 10; ++start) {
        const int before = gstreamer.configured;
        ASSERT_TRUE(pipeline.startGstreamer(
            &gstreamer.api(),
            {.url = L"rtsp://10.0.0.1/live", .transport = RtspTransport::kTcp, .latencyMs = 50 * start}));
        for (int pulls = 0; pulls < 3 || gstreamer.configured == before; ++pulls) {
            gstreamer.fake.sample = FakeGstreamer::goodSample();
            ASSERT_TRUE(pipeline.pullGstreamerFrame(frame.data()));
        }
        pipeline.stop();
    }
    done = true;
}

}  // namespace
}  // namespace vextra::test
