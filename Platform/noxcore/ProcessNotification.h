#pragma once

#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace noxcore::config {

/// The constants of a program, told once when its process begins. Later parts of the runtime (version texts) read them.
///
/// Threading: written on the main thread before other threads exist, then constant.
class ProcessBeginEndNotificationRegistry
{
public:
    using Value = std::variant<std::string, int, bool>;
    struct Constant
    {
        std::string mKey;
        Value mValue;
    };
    using Table = std::vector<Constant>;

    /// Keeps the table for the current context.
    static void NotifyProcessBegin(Table inTable);
    /// The constant as a text; empty when there is no such key.
    static std::string GetText(std::string_view inKey);
};

}  // namespace noxcore::config
