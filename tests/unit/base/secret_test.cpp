#include "base/secret.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>
#include <ostream>
#include <string>
#include <type_traits>

namespace {

// Looks into every block at the moment when it is given back to the heap: the only moment at which it can be
// seen whether a secret stays behind. One watch at a time, on one thread.
class HeapWatch {
public:
    explicit HeapWatch(unsigned char secretByte) : secretByte_(secretByte) { active = this; }
    ~HeapWatch() { active = nullptr; }
    HeapWatch(const HeapWatch&) = delete;
    HeapWatch& operator=(const HeapWatch&) = delete;

    void noteAllocation(void* block, std::size_t bytes) {
        Block* const unused =
            std::find_if(blocks_, std::end(blocks_), [](const Block& b) { return !b.start; });
        if (unused == std::end(blocks_))
            std::abort();  // a watch too small would be blind
        *unused = {static_cast<unsigned char*>(block), bytes};
    }
    void noteRelease(void* block) {
        Block* const known =
            std::find_if(blocks_, std::end(blocks_), [&](const Block& b) { return b.start == block; });
        if (known == std::end(blocks_))
            return;  // older than the watch
        ++blocksFreed;
        const volatile unsigned char* bytes = known->start;
        for (std::size_t i = 0; i < known->bytes; ++i) {
            if (bytes[i] == secretByte_)
                ++secretBytesLeft;
        }
        *known = {};
    }

    int blocksFreed = 0;
    int secretBytesLeft = 0;

    static inline std::atomic<HeapWatch*> active{nullptr};

private:
    struct Block {
        unsigned char* start = nullptr;
        std::size_t bytes = 0;
    };
    const unsigned char secretByte_;
    Block blocks_[256];
};

}  // namespace

// The whole test program allocates through these.
void* operator new(std::size_t bytes) {
    void* const block = std::malloc(bytes != 0 ? bytes : 1);
    if (block == nullptr)
        throw std::bad_alloc();
    if (HeapWatch* const watch = HeapWatch::active)
        watch->noteAllocation(block, bytes);
    return block;
}
void operator delete(void* block) noexcept {
    if (HeapWatch* const watch = HeapWatch::active; watch != nullptr && block != nullptr)
        watch->noteRelease(block);
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    operator delete(block);
}

namespace vextra {
namespace {

// In UTF-16 and UTF-8 alike one byte that nothing else here holds.
constexpr wchar_t kSecretUnit = L'\xA7';
constexpr char kSecretByte = '\xA7';
constexpr unsigned char kSecretPattern = 0xA7;
constexpr std::size_t kManyUnits = 1000;

// Everything gone that the heap took back, and it did take something back.
void expectNothingLeft(const HeapWatch& watch, int blocksAtLeast) {
    EXPECT_GE(watch.blocksFreed, blocksAtLeast);
    EXPECT_EQ(watch.secretBytesLeft, 0);
}

TEST(WipeMemory, ZeroesTheGivenBytesAndNoOthers) {
    unsigned char memory[8];
    std::memset(memory, 0xFF, sizeof memory);
    wipeMemory(memory + 2, 4);
    const unsigned char expected[8] = {0xFF, 0xFF, 0, 0, 0, 0, 0xFF, 0xFF};
    EXPECT_EQ(std::memcmp(memory, expected, sizeof memory), 0);
}

TEST(WipeMemory, OfNoBytesTouchesNothing) {
    unsigned char memory = 0xFF;
    wipeMemory(&memory, 0);
    EXPECT_EQ(memory, 0xFF);
}

TEST(HeapWatch, SeesWhatAnOrdinaryBlockLeavesBehind) {
    HeapWatch watch(kSecretPattern);
    void* const block = ::operator new(16);
    static_cast<volatile unsigned char*>(block)[3] = kSecretPattern;
    ::operator delete(block);
    EXPECT_EQ(watch.blocksFreed, 1);
    EXPECT_EQ(watch.secretBytesLeft, 1);
}

TEST(SecretString, LeavesNothingBehindWhenItEnds) {
    const std::wstring text(kManyUnits, kSecretUnit);
    HeapWatch watch(kSecretPattern);
    { const SecretText secret(text); }
    expectNothingLeft(watch, 1);
}

TEST(SecretString, LeavesNothingBehindWhenItGrows) {
    HeapWatch watch(kSecretPattern);
    {
        SecretUtf8 secret;
        for (std::size_t i = 0; i < kManyUnits; ++i)
            secret.append(kSecretByte);
    }
    expectNothingLeft(watch, 5);  // one for each time it had to move
}

TEST(SecretString, LeavesNothingBehindWhenItIsAssignedAnew) {
    const std::wstring text(kManyUnits, kSecretUnit);
    SecretText secret;
    HeapWatch watch(kSecretPattern);
    secret.assign(text);
    secret.assign(L"other");
    expectNothingLeft(watch, 1);
}

TEST(SecretString, LeavesNothingBehindWhenItIsCopiedOver) {
    const std::wstring text(kManyUnits, kSecretUnit);
    const SecretText other(std::wstring(2 * kManyUnits, L'x'));
    HeapWatch watch(kSecretPattern);
    SecretText secret(text);
    secret = other;
    expectNothingLeft(watch, 1);
}

TEST(SecretString, LeavesNothingBehindWhenItIsMovedOver) {
    const std::wstring text(kManyUnits, kSecretUnit);
    HeapWatch watch(kSecretPattern);
    SecretText secret(text);
    secret = SecretText(L"other");
    expectNothingLeft(watch, 1);
}

TEST(SecretString, LeavesNothingBehindWhenItIsCleared) {
    const std::wstring text(kManyUnits, kSecretUnit);
    SecretText secret;
    HeapWatch watch(kSecretPattern);
    secret.assign(text);
    secret.clear();
    expectNothingLeft(watch, 1);
}

// A shorter text in the same block would leave the tail of a longer one to be found later, were the block not
// wiped whole.
TEST(SecretString, WipesTheWholeBlockAndNotOnlyTheTextInIt) {
    HeapWatch watch(kSecretPattern);
    {
        SecretUtf8 secret;
        secret.reserve(kManyUnits);
        secret.append(std::string(kManyUnits / 2, kSecretByte));
        std::memset(secret.data(), kSecretPattern, kManyUnits);  // behind its end, inside its block
    }
    EXPECT_EQ(watch.blocksFreed, 2);  // the secret's and the ordinary string's
    EXPECT_EQ(watch.secretBytesLeft, static_cast<int>(kManyUnits / 2));  // the ordinary string's alone
}

TEST(SecretString, StartsEmptyAndStillGivesAText) {
    const SecretText secret;
    EXPECT_TRUE(secret.empty());
    EXPECT_EQ(secret.size(), 0u);
    EXPECT_STREQ(secret.c_str(), L"");
}

TEST(SecretString, GivesNoWritableTextBeforeItWasFilled) {
    SecretText secret;
    EXPECT_EQ(secret.data(), nullptr);
}

TEST(SecretString, HoldsWhatItWasGivenAndItsTerminator) {
    const SecretText secret(L"rtsp://a");
    EXPECT_EQ(secret.size(), 8u);
    EXPECT_STREQ(secret.c_str(), L"rtsp://a");
}

TEST(SecretString, KeepsItsTerminatorBehindWhatIsAppended) {
    SecretUtf8 secret;
    secret.append('a');
    secret.append("bc");
    EXPECT_EQ(secret.view(), "abc");
    EXPECT_STREQ(secret.c_str(), "abc");
}

TEST(SecretString, KeepsAZeroUnitInside) {
    const SecretUtf8 secret(std::string_view("a\0b", 3));
    EXPECT_EQ(secret.size(), 3u);
    EXPECT_EQ(secret.view(), std::string_view("a\0b", 3));
}

TEST(SecretString, CanBeAssignedAPartOfItself) {
    SecretUtf8 secret("abcdef");
    secret.assign(secret.view().substr(2, 3));
    EXPECT_EQ(secret.view(), "cde");
}

TEST(SecretString, IsEmptyAfterClear) {
    SecretUtf8 secret("abc");
    secret.clear();
    EXPECT_TRUE(secret.empty());
    EXPECT_STREQ(secret.c_str(), "");
}

TEST(SecretString, ComparesByText) {
    SecretUtf8 grown;
    grown.reserve(100);
    grown.append("abc");
    EXPECT_TRUE(grown == SecretUtf8("abc"));
    EXPECT_FALSE(grown == SecretUtf8("abd"));
    EXPECT_TRUE(SecretUtf8() == SecretUtf8(""));
}

TEST(SecretString, OfZerosHasThatLengthAndIsFilledInPlace) {
    SecretUtf8 text = SecretUtf8::ofZeros(3);
    EXPECT_EQ(text.size(), 3u);
    EXPECT_EQ(text.view(), std::string_view("\0\0\0", 3));
    EXPECT_EQ(text.data()[3], '\0');
    std::memcpy(text.data(), "abc", 3);
    EXPECT_EQ(text.view(), "abc");
    EXPECT_EQ(SecretUtf8::ofZeros(0).size(), 0u);
}

// Containers free through one allocator what they got through another.
TEST(WipingAllocator, IsAsGoodAsAnyOther) {
    EXPECT_TRUE(WipingAllocator<char>() == WipingAllocator<char>());
    EXPECT_TRUE(WipingAllocator<char>() == WipingAllocator<wchar_t>());
}

template <typename Stream, typename Value>
concept Streamable = requires(Stream& stream, const Value& value) {
    stream << value;
};

TEST(SecretString, HasNoSilentWayOut) {
    EXPECT_FALSE((Streamable<std::ostream, SecretUtf8> || Streamable<std::wostream, SecretText>));
    EXPECT_FALSE((std::is_convertible_v<SecretUtf8, std::string>));
    EXPECT_FALSE((std::is_convertible_v<SecretUtf8, std::string_view>));
    EXPECT_FALSE((std::is_convertible_v<SecretUtf8, const char*>));
}

}  // namespace
}  // namespace vextra
