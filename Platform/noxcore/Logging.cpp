#include "Platform/noxcore/Logging.h"

#include <execinfo.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>

#include "Platform/noxcore/HubContext.h"

namespace noxcore::logging {

std::string Record::Text() const
{
    std::string text = mMessage;
    for (const Pair& pair : mPairs) {
        text += ", ";
        text += pair.mKey;
        text += ": ";
        text += pair.mValue;
    }
    return text;
}

std::string_view Record::Value(std::string_view inKey) const
{
    for (const Pair& pair : mPairs) {
        if (pair.mKey == inKey) return pair.mValue;
    }
    return {};
}

void Log(Level inLevel, std::string_view inCategory, std::string_view inMessage, Pairs inPairs,
         const std::source_location& inWhere)
{
    const auto sink = HubContext::Current()->GetLog();
    if (!sink) return;
    thread_local const auto thread = static_cast<std::uint64_t>(syscall(SYS_gettid));
    Record record;
    record.mLevel = inLevel;
    record.mFile = inWhere.file_name();
    record.mLine = inWhere.line();
    record.mCategory = inCategory;
    record.mThread = thread;
    record.mMessage = inMessage;
    record.mPairs = inPairs;
    sink->Write(record);
}

std::string StackTrace(int inDepth)
{
    constexpr int kOwnFrames = 1;
    void* frames[64];
    const int wanted = inDepth + kOwnFrames < 64 ? inDepth + kOwnFrames : 64;
    const int count = backtrace(frames, wanted);
    char** names = backtrace_symbols(frames, count);
    if (names == nullptr) return {};
    std::string text;
    for (int i = kOwnFrames; i < count; ++i) {
        if (!text.empty()) text += " < ";
        text += names[i];
    }
    std::free(static_cast<void*>(names));
    return text;
}

}  // namespace noxcore::logging
