// latest.frame with a writer and readers in processes of their own, at full speed. Every field and every word
// of the pixels is a function of the update, so that a mixture of two is seen whatever it is made of.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <vector>

#include "bridge/bridge_protocol.h"
#include "consumer/bridge_reader.h"
#include "stress_processes_win.h"

namespace vextra::stress {
namespace {

constexpr std::uint64_t kUpdatesPerFrame = 512;
constexpr std::size_t kPixelWords = kFrameBytes / sizeof(std::uint64_t);
constexpr std::size_t kSampledWords = 16;
constexpr std::uint64_t kWholeEvery = 32;  // accepted reads with pixels to one of the whole frame
constexpr std::uint64_t kCarelessEvery = 64;

// --- What an update is made of ---

bool hasPixels(std::uint64_t update) {
    return update % kUpdatesPerFrame == 0;
}

BridgeState stateOf(std::uint64_t update) {
    constexpr BridgeState kWithout[] = {BridgeState::kStopped, BridgeState::kFallback, BridgeState::kPaused,
                                        BridgeState::kUnavailable};
    return hasPixels(update) ? BridgeState::kLive : kWithout[update % std::size(kWithout)];
}

Tick tickOf(std::uint64_t update) {
    return update * 0x9E37'79B9'7F4A'7C15;
}

std::uint64_t pixelWord(std::uint64_t frame, std::size_t index) {
    return frame * 0x9E37'79B9'7F4A'7C15 ^ index * 0xC2B2'AE3D'27D4'EB4F;
}

// Whether the fields are those of one update. A writer that has just replaced a dead one has no frame yet.
bool isOneUpdate(const BridgeHeader& header, std::uint64_t update) {
    const std::uint64_t frame = update - update % kUpdatesPerFrame;
    return header.magic == kBridgeMagic && header.version == kBridgeVersion &&
           header.width == kFrameWidthPx && header.height == kFrameHeightPx &&
           header.stride == kFrameStrideBytes && header.payloadBytes == kFrameBytes &&
           header.state == static_cast<std::uint32_t>(stateOf(update)) && header.tickMs == tickOf(update) &&
           header.writerSession == static_cast<std::uint32_t>(update) &&
           (header.frameCounter == frame || (header.frameCounter == 0 && !hasPixels(update)));
}

// --- The writer ---

void spin(std::uint64_t turns) {
    for (std::uint64_t i = 0; i < turns; ++i)
        YieldProcessor();
}

void rest(std::chrono::microseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    while (std::chrono::steady_clock::now() < end)
        SwitchToThread();
}

// The broker's protocol without its first increment.
void publishUnmarked(BridgeFile& file, const BridgeUpdate& update, const BridgeWriterIdentity& writer) {
    BridgeHeader& header = file.header;
    storeShared(header.state, static_cast<std::uint32_t>(update.state));
    storeShared(header.tickMs, update.tickMs);
    storeShared(header.frameCounter, update.frameCounter);
    storeShared(header.writerSession, writer.sessionId);
    if (update.pixels != nullptr)
        copyShared(file.pixels, update.pixels, kFrameBytes);
    std::atomic_ref(header.sequence).fetch_add(2);
}

template <typename Publish>
int write(const Role& role, const Publish& publish) {
    constexpr std::uint64_t kRestsUs[] = {0, 100, 300, 1000};
    const SharedBlock block(role.block);
    const NeighbourView<BridgeFile> file(role.file);
    const std::atomic_ref<std::uint32_t> sequence(file->header.sequence);
    std::vector<std::uint64_t> pixels(kPixelWords);
    std::uint64_t frame = 0;
    ++block->ready;
    while (!block->stop) {
        const std::uint32_t before = sequence;
        const bool repairs = before % 2 == 1;
        const std::uint32_t after = before + (repairs ? 3 : 2);
        const std::uint64_t update = after / 2;
        if (hasPixels(update)) {
            frame = update;
            for (std::size_t i = 0; i < kPixelWords; ++i)
                pixels[i] = pixelWord(frame, i);
        }
        publish(*file,
                BridgeUpdate{stateOf(update), tickOf(update), frame,
                             hasPixels(update) ? reinterpret_cast<const std::byte*>(pixels.data()) : nullptr},
                BridgeWriterIdentity{GetCurrentProcessId(), static_cast<std::uint32_t>(update)});
        block->wrongSequences += sequence != after;
        block->repairs += repairs;
        ++block->updates;
        block->frames += hasPixels(update);
        if (hasPixels(update))
            rest(std::chrono::microseconds(kRestsUs[update / kUpdatesPerFrame % std::size(kRestsUs)]));
        else
            spin(update % 7 * 20);  // none at times
    }
    return 0;
}

// --- The readers ---

class Reader {
public:
    Reader(const BridgeFile& file, BridgeReaderCounts& counts) : file_(file), counts_(counts) {}

    void readOnce() {
        ++turns_;
        if (turns_ % kCarelessEvery == 0)
            readCarelessly();
        BridgeHeader header{};
        if (!tryReadUpdate(file_, header, [&](const BridgeHeader&) { sample(); })) {
            ++counts_.rejected;
            if (header.sequence % 2 == 1)
                SwitchToThread();
            return;
        }
        ++counts_.accepted;
        counts_.distinct += header.sequence != last_;
        last_ = header.sequence;
        counts_.torn += !isOneUpdate(header, header.sequence / 2) || !samplesAreOf(header.frameCounter);
        if (header.state == static_cast<std::uint32_t>(BridgeState::kLive) && ++live_ % kWholeEvery == 0)
            readWhole();
    }

private:
    // Every word's turn comes.
    void sample() {
        const auto* const words = reinterpret_cast<const std::uint64_t*>(file_.pixels);
        first_ = (first_ + 7919) % (kPixelWords / kSampledWords);
        for (std::size_t i = 0; i < kSampledWords; ++i)
            samples_[i] = loadShared(words[first_ + i * (kPixelWords / kSampledWords)]);
    }
    bool samplesAreOf(std::uint64_t frame) const {
        for (std::size_t i = 0; frame != 0 && i < kSampledWords; ++i) {
            if (samples_[i] != pixelWord(frame, first_ + i * (kPixelWords / kSampledWords)))
                return false;
        }
        return true;
    }

    // As the camera's media source reads.
    void readWhole() {
        const ReadResult result = readBridgeFrame(file_, whole_, [] { SwitchToThread(); });
        counts_.rejected += result.attempts - (result.consistent ? 1 : 0);
        if (!result.consistent || whole_.header.state != static_cast<std::uint32_t>(BridgeState::kLive))
            return;
        ++counts_.wholeFrames;
        ++counts_.accepted;
        bool one = isOneUpdate(whole_.header, whole_.header.sequence / 2);
        const auto* const words = reinterpret_cast<const std::uint64_t*>(whole_.pixels.data());
        for (std::size_t i = 0; i < kPixelWords; ++i)
            one &= words[i] == pixelWord(whole_.header.frameCounter, i);
        counts_.torn += !one;
    }

    // The control: the same copy and the same judgement, without a look at the sequence word.
    void readCarelessly() {
        BridgeHeader header{};
        copyUpdate(file_, header, [&](const BridgeHeader&) { sample(); });
        ++counts_.carelessReads;
        counts_.carelessTorn +=
            !isOneUpdate(header, header.writerSession) || !samplesAreOf(header.frameCounter);
    }

    const BridgeFile& file_;
    BridgeReaderCounts& counts_;
    BridgeFrame whole_;
    std::array<std::uint64_t, kSampledWords> samples_{};
    std::size_t first_ = 0;
    std::uint64_t turns_ = 0;
    std::uint64_t live_ = 0;
    std::uint32_t last_ = 0;
};

int read(const Role& role) {
    const SharedBlock block(role.block);
    const NeighbourView<BridgeFile> file(role.file);
    Reader reader(*file, block->readers.at(role.number));
    ++block->ready;
    while (!block->stop)
        reader.readOnce();
    return 0;
}

// --- The tests ---

class BridgeStress : public testing::Test {
protected:
    BridgeStress() { makeFile(path_, kBridgeFileBytes); }

    std::unique_ptr<RoleProcess> start(const wchar_t* role, std::uint32_t number = 0) const {
        return std::make_unique<RoleProcess>(Role{role, blockName_, path_, number});
    }
    std::uint64_t sum(Count BridgeReaderCounts::*count) const {
        std::uint64_t all = 0;
        for (const BridgeReaderCounts& reader : block_->readers)
            all += (reader.*count).load();
        return all;
    }
    template <typename Condition>
    static bool waitFor(const Condition& condition, std::chrono::seconds limit) {
        const auto end = std::chrono::steady_clock::now() + limit;
        while (!condition()) {
            if (std::chrono::steady_clock::now() >= end)
                return false;
            Sleep(2);
        }
        return true;
    }
    void print() const {
        std::printf(
            "%llu reads, %llu of them of another update than the read before, %llu of whole "
            "frames; %llu rejected, %llu torn; without the sequence word %llu reads, %llu torn; %llu "
            "updates, "
            "%llu with pixels, %llu repairs\n",
            sum(&BridgeReaderCounts::accepted), sum(&BridgeReaderCounts::distinct),
            sum(&BridgeReaderCounts::wholeFrames), sum(&BridgeReaderCounts::rejected),
            sum(&BridgeReaderCounts::torn), sum(&BridgeReaderCounts::carelessReads),
            sum(&BridgeReaderCounts::carelessTorn), block_->updates.load(), block_->frames.load(),
            block_->repairs.load());
    }

    const TemporaryFolder folder_;
    const std::wstring path_ = folder_ / L"latest.frame";
    const std::wstring blockName_ = L"vextra-stress-" + std::to_wstring(GetCurrentProcessId());
    const SharedBlock block_{blockName_};
};

// Kills the writer while it is inside an update. False when it was not met there in time.
bool killInsideAnUpdate(RoleProcess& writer, std::atomic_ref<std::uint32_t> sequence) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (std::chrono::steady_clock::now() < end) {
        if (sequence % 2 == 0) {
            YieldProcessor();
            continue;
        }
        SuspendThread(writer.mainThread());
        if (sequence % 2 == 1) {
            writer.kill();
            return sequence % 2 == 1;
        }
        ResumeThread(writer.mainThread());
    }
    return false;
}

TEST_F(BridgeStress, TenMillionReadsAndNoneIsTornAlsoWhenWritersDieInTheirUpdates) {
    constexpr std::uint64_t kReads = 10'000'000;
    constexpr std::uint64_t kWholeFrames = 10'000;
    constexpr std::uint64_t kDeaths = 12;
    const NeighbourView<BridgeFile> file(path_);
    const std::atomic_ref<std::uint32_t> sequence(file->header.sequence);
    auto writer = start(L"writer");
    // The first update makes the header a valid one.
    ASSERT_TRUE(waitFor([&] { return block_->updates > 0; }, std::chrono::seconds(20)));
    const auto first = start(L"reader", 0);
    const auto second = start(L"reader", 1);

    for (std::uint64_t death = 1; death <= kDeaths; ++death) {
        Sleep(300);
        ASSERT_TRUE(killInsideAnUpdate(*writer, sequence)) << "death " << death;
        const std::uint32_t left = sequence;
        Sleep(10);
        const std::uint64_t accepted = sum(&BridgeReaderCounts::accepted);
        Sleep(10);
        // Each reader may have been held up between its last look and its count.
        ASSERT_LE(sum(&BridgeReaderCounts::accepted), accepted + kMostReaders)
            << "a dead writer's update was accepted";
        ASSERT_EQ(sequence, left);
        writer = start(L"writer");
        ASSERT_TRUE(waitFor([&] { return block_->repairs >= death; }, std::chrono::seconds(20)));
    }
    const bool enough = waitFor(
        [&] {
            return sum(&BridgeReaderCounts::accepted) >= kReads &&
                   sum(&BridgeReaderCounts::wholeFrames) >= kWholeFrames;
        },
        std::chrono::seconds(240));
    block_->stop = true;
    EXPECT_TRUE(writer->waitForEnd(5000));
    EXPECT_TRUE(first->waitForEnd(5000));
    EXPECT_TRUE(second->waitForEnd(5000));
    print();
    EXPECT_TRUE(enough) << "too slow";
    EXPECT_EQ(sum(&BridgeReaderCounts::torn), 0u);
    EXPECT_EQ(block_->wrongSequences, 0u) << "an update advances by 2, after a dead writer by 3";
    EXPECT_EQ(block_->repairs, kDeaths);
    EXPECT_GT(sum(&BridgeReaderCounts::rejected), 0u) << "readers and writer never met";
    EXPECT_GT(sum(&BridgeReaderCounts::carelessTorn), 0u) << "this test would not see a torn read";
}

TEST_F(BridgeStress, TearsAreSeenOfAWriterThatDoesNotMarkTheBeginningOfItsUpdates) {
    // A valid header to begin with.
    const NeighbourView<BridgeFile> file(path_);
    publishUpdate(*file, {stateOf(1), tickOf(1), 0, nullptr}, {1, 1});
    const auto writer = start(L"unmarked-writer");
    const auto reader = start(L"reader");
    const bool seen = waitFor([&] { return sum(&BridgeReaderCounts::torn) > 0; }, std::chrono::seconds(60));
    block_->stop = true;
    EXPECT_TRUE(writer->waitForEnd(5000));
    EXPECT_TRUE(reader->waitForEnd(5000));
    print();
    EXPECT_TRUE(seen);
}

}  // namespace

int playBridgeRole(const Role& role) {
    if (role.name == L"writer")
        return write(role, &publishUpdate);
    if (role.name == L"unmarked-writer")
        return write(role, &publishUnmarked);
    if (role.name == L"reader")
        return read(role);
    return -1;
}

}  // namespace vextra::stress
