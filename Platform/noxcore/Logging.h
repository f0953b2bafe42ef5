#pragma once

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <source_location>
#include <string>
#include <string_view>
#include <vector>

namespace noxcore::logging {

enum class Level
{
    Error = 3,
    Warning = 4,
    Information = 5,
    Detail = 6
};

/// One key and value of a record. Values are turned into text at once.
struct Pair
{
    std::string mKey;
    std::string mValue;

    Pair(std::string_view inKey, std::string_view inValue) : mKey(inKey), mValue(inValue) {}
    Pair(std::string_view inKey, const char* inValue) : mKey(inKey), mValue(inValue) {}
    Pair(std::string_view inKey, const std::string& inValue) : mKey(inKey), mValue(inValue) {}
    Pair(std::string_view inKey, bool inValue) : mKey(inKey), mValue(inValue ? "true" : "false") {}
    template <std::integral T>
    Pair(std::string_view inKey, T inValue) : mKey(inKey), mValue(std::to_string(inValue))
    {
    }
    Pair(std::string_view inKey, double inValue) : mKey(inKey), mValue(std::to_string(inValue)) {}
};

/// One structured event.
struct Record
{
    Level mLevel = Level::Information;
    std::string mFile;
    unsigned mLine = 0;
    std::string mCategory;
    std::uint64_t mThread = 0;
    std::string mMessage;
    std::vector<Pair> mPairs;

    /// The message, then each pair as a comma, a blank, the key, a colon, a blank and the value.
    [[nodiscard]] std::string Text() const;
    /// The value of a key; empty when the record has no such key.
    [[nodiscard]] std::string_view Value(std::string_view inKey) const;
};

/// Where records go. Threading: any thread, and no lock of the hub may be needed by a sink.
class Sink
{
public:
    virtual ~Sink() = default;
    virtual void Write(const Record& inRecord) = 0;
    virtual void Flush() {}
};

using Pairs = std::initializer_list<Pair>;

void Log(Level inLevel, std::string_view inCategory, std::string_view inMessage, Pairs inPairs,
         const std::source_location& inWhere);

inline void LogError(std::string_view inCategory, std::string_view inMessage, Pairs inPairs = {},
                     const std::source_location& inWhere = std::source_location::current())
{
    Log(Level::Error, inCategory, inMessage, inPairs, inWhere);
}
inline void LogWarning(std::string_view inCategory, std::string_view inMessage, Pairs inPairs = {},
                       const std::source_location& inWhere = std::source_location::current())
{
    Log(Level::Warning, inCategory, inMessage, inPairs, inWhere);
}
inline void LogInformation(std::string_view inCategory, std::string_view inMessage, Pairs inPairs = {},
                           const std::source_location& inWhere = std::source_location::current())
{
    Log(Level::Information, inCategory, inMessage, inPairs, inWhere);
}
inline void LogDetail(std::string_view inCategory, std::string_view inMessage, Pairs inPairs = {},
                      const std::source_location& inWhere = std::source_location::current())
{
    Log(Level::Detail, inCategory, inMessage, inPairs, inWhere);
}

/// The calling functions, innermost first, as one text; for records that carry a stack trace.
std::string StackTrace(int inDepth);

/// Records to standard error, one line each; what the process logs to before its log file stands.
std::shared_ptr<Sink> MakeConsoleSink();
/// Records to rotating files in a folder, written by a thread of their own. Null when the folder cannot be used.
std::shared_ptr<Sink> MakeFileSink(const std::string& inFolder, const std::string& inBaseName);

}  // namespace noxcore::logging
