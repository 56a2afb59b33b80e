#include "base/secret.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <ostream>
#include <string>
#include <type_traits>

#include "heap_watch.h"

namespace vextra {
namespace {

using test::HeapWatch;

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
