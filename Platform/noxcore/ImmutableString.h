#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace noxcore::utility {

/// An interned 8-bit string: equal strings share their data, so equality compares addresses and a copy is a pointer.
///
/// Meant for names that repeat: identifiers, keys, methods, states. Payloads and JSON travel as RecycledMemory.
/// Threading: any thread. The table of strings is divided into shards, each with a mutex of its own that is held for
/// one look-up; a text nobody refers to any more leaves the table.
class ImmutableString
{
public:
    ImmutableString() noexcept = default;
    ImmutableString(std::string_view inText);
    ImmutableString(const char* inText) : ImmutableString(std::string_view(inText)) {}
    ImmutableString(const std::string& inText) : ImmutableString(std::string_view(inText)) {}
    ImmutableString(const ImmutableString& inOther) noexcept;
    ImmutableString(ImmutableString&& inOther) noexcept : mEntry(inOther.mEntry) { inOther.mEntry = nullptr; }
    ImmutableString& operator=(ImmutableString inOther) noexcept
    {
        std::swap(mEntry, inOther.mEntry);
        return *this;
    }
    ~ImmutableString();

    /// The text, ended by a zero byte; valid as long as any equal string lives.
    [[nodiscard]] const char* c_str() const noexcept;
    [[nodiscard]] std::string_view View() const noexcept;
    [[nodiscard]] std::string Text() const { return std::string(View()); }
    [[nodiscard]] std::size_t size() const noexcept { return View().size(); }
    [[nodiscard]] bool empty() const noexcept { return mEntry == nullptr; }

    operator std::string_view() const noexcept { return View(); }

    friend bool operator==(const ImmutableString& inLeft, const ImmutableString& inRight) noexcept
    {
        return inLeft.mEntry == inRight.mEntry;
    }
    /// Order by text, so that maps list in a stable order.
    friend bool operator<(const ImmutableString& inLeft, const ImmutableString& inRight) noexcept
    {
        return inLeft.mEntry != inRight.mEntry && inLeft.View() < inRight.View();
    }
    [[nodiscard]] std::size_t AddressHash() const noexcept { return std::hash<const void*>()(mEntry); }

    struct Entry;

private:
    Entry* mEntry = nullptr;  ///< null for the empty string
};

/// Compares by text, without interning the right side.
inline bool operator==(const ImmutableString& inLeft, std::string_view inRight) noexcept
{
    return inLeft.View() == inRight;
}
inline bool operator==(const ImmutableString& inLeft, const char* inRight) noexcept
{
    return inLeft.View() == std::string_view(inRight);
}

}  // namespace noxcore::utility

template <>
struct std::hash<noxcore::utility::ImmutableString>
{
    std::size_t operator()(const noxcore::utility::ImmutableString& inText) const noexcept
    {
        return inText.AddressHash();
    }
};
