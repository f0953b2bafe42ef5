#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace noxcore::config {

/// Turns the keys of texts into the words of a language. One localizer is the process's at a time.
///
/// Threading: Set on the main thread, before others ask.
class Localizer
{
public:
    using Table = std::map<std::string, std::string, std::less<>>;

    Localizer() = default;
    /// A localizer that goes is the process's no more.
    virtual ~Localizer();
    Localizer(const Localizer&) = delete;
    Localizer& operator=(const Localizer&) = delete;

    /// Makes a localizer the current context's; it must take itself out (by going) before the context goes. Null for
    /// none.
    static void Set(Localizer* inLocalizer);
    static Localizer* Get();

    void AttachTable(std::shared_ptr<const Table> inTable) { mTable = std::move(inTable); }
    /// The table's text; the key itself where there is no table or no such key.
    [[nodiscard]] std::string Localize(std::string_view inKey) const;

private:
    std::shared_ptr<const Table> mTable;
};

}  // namespace noxcore::config
