// Text that must not outlive its use: addresses, user names, passwords, and what is built from them.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

namespace vextra {

// Overwrites memory in a way that the compiler may not remove.
inline void wipeMemory(void* memory, std::size_t bytes) {
    auto* const volatileBytes = static_cast<volatile unsigned char*>(memory);
    for (std::size_t i = 0; i < bytes; ++i)
        volatileBytes[i] = 0;
}

// Wipes every block it gives back, so that a growing container leaves no copies behind.
template <typename T>
struct WipingAllocator {
    using value_type = T;

    WipingAllocator() = default;
    template <typename U>
    WipingAllocator(const WipingAllocator<U>&) {}

    T* allocate(std::size_t count) { return std::allocator<T>().allocate(count); }
    void deallocate(T* block, std::size_t count) {
        wipeMemory(block, count * sizeof(T));
        std::allocator<T>().deallocate(block, count);
    }
    template <typename U>
    bool operator==(const WipingAllocator<U>&) const {
        return true;
    }
};

// A string without stream operators, formatters or implicit conversions: a caller that wants the text has to
// say `view()` or `c_str()`. Every block that ever held the text is wiped before it is freed.
template <typename Char>
class SecretString {
public:
    using View = std::basic_string_view<Char>;

    SecretString() = default;
    explicit SecretString(View text) { assign(text); }
    // So many zero units, to be filled through data().
    static SecretString ofZeros(std::size_t length) {
        SecretString text;
        text.units_.resize(length + 1);
        return text;
    }

    void assign(View text) {
        std::vector<Char, WipingAllocator<Char>> fresh;
        fresh.reserve(text.size() + 1);
        fresh.insert(fresh.end(), text.begin(), text.end());
        fresh.push_back(Char{});
        units_.swap(fresh);
    }
    // `text` may not be a part of this one, as it may for assign().
    void append(View text) {
        if (units_.empty())
            units_.push_back(Char{});
        units_.insert(units_.end() - 1, text.begin(), text.end());
    }
    void append(Char unit) { append(View(&unit, 1)); }
    void reserve(std::size_t length) { units_.reserve(length + 1); }
    void clear() { decltype(units_)().swap(units_); }

    bool empty() const { return size() == 0; }
    std::size_t size() const { return units_.empty() ? 0 : units_.size() - 1; }
    View view() const { return View(c_str(), size()); }
    const Char* c_str() const { return units_.empty() ? &kNothing : units_.data(); }
    // For interfaces that want writable, zero-terminated text; null while the string was never filled.
    Char* data() { return units_.empty() ? nullptr : units_.data(); }

    bool operator==(const SecretString& other) const { return view() == other.view(); }

private:
    static constexpr Char kNothing{};
    std::vector<Char, WipingAllocator<Char>> units_;  // empty, or the text and its terminator
};

using SecretText = SecretString<wchar_t>;  // UTF-16 units
using SecretBytes = std::vector<std::byte, WipingAllocator<std::byte>>;
using SecretUtf8 = SecretString<char>;

}  // namespace vextra
