#include <spdlog/async.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <string_view>
#include <utility>

#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/Logging.h"

namespace noxcore::logging {

namespace {

constexpr std::size_t kMaxFileBytes = 16 * 1024 * 1024;
constexpr std::size_t kMaxFiles = 8;
constexpr std::size_t kQueuedRecords = 1024;  ///< each has its room from the start: 400 bytes

spdlog::level::level_enum ToSpdlog(Level inLevel)
{
    switch (inLevel) {
        case Level::Error:
            return spdlog::level::err;
        case Level::Warning:
            return spdlog::level::warn;
        case Level::Information:
            return spdlog::level::info;
        case Level::Detail:
            return spdlog::level::debug;
    }
    return spdlog::level::info;
}

/// A record is one line: what came from outside must not end it, nor begin another. Control characters show as their
/// numbers.
std::string WithoutControlCharacters(std::string_view inText)
{
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    constexpr unsigned char kDelete = 0x7F;
    std::string text;
    text.reserve(inText.size());
    for (const char character : inText) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte >= ' ' && byte != kDelete) {
            text += character;
            continue;
        }
        text += "\\x";
        text += kDigits[byte >> 4U];
        text += kDigits[byte & 0xFU];
    }
    return text;
}

class SpdlogSink final : public Sink
{
public:
    SpdlogSink(std::shared_ptr<spdlog::details::thread_pool> inPool, std::shared_ptr<spdlog::logger> inLogger)
        : mPool(std::move(inPool)), mLogger(std::move(inLogger))
    {
        mLogger->set_pattern("%Y-%m-%dT%H:%M:%S.%eZ %L %v", spdlog::pattern_time_type::utc);
        mLogger->set_level(spdlog::level::debug);
        mLogger->flush_on(spdlog::level::info);
    }

    void Write(const Record& inRecord) override
    {
        mLogger->log(ToSpdlog(inRecord.mLevel), "{}:{} [{}] ({}) {}", filesupport::BaseName(inRecord.mFile),
                     inRecord.mLine, inRecord.mCategory, inRecord.mThread, WithoutControlCharacters(inRecord.Text()));
    }

    void Flush() override { mLogger->flush(); }

private:
    const std::shared_ptr<spdlog::details::thread_pool> mPool;  ///< null for a logger that writes at once
    const std::shared_ptr<spdlog::logger> mLogger;
};

}  // namespace

std::shared_ptr<Sink> MakeConsoleSink()
{
    auto sink = std::make_shared<spdlog::sinks::stderr_sink_mt>();
    auto console = std::make_shared<SpdlogSink>(nullptr, std::make_shared<spdlog::logger>("console", std::move(sink)));
    return console;
}

std::shared_ptr<Sink> MakeFileSink(const std::string& inFolder, const std::string& inBaseName)
{
    if (!filesupport::Files().EnsureDirectoryExists(inFolder)) return nullptr;
    try {
        auto file = std::make_shared<spdlog::sinks::rotating_file_sink_mt>(
            filesupport::Join(inFolder, inBaseName + ".log"), kMaxFileBytes, kMaxFiles);
        auto pool = std::make_shared<spdlog::details::thread_pool>(kQueuedRecords, 1);
        // A full queue makes writers wait: a record of trouble is worth more than the time.
        auto logger =
            std::make_shared<spdlog::async_logger>("file", std::move(file), pool, spdlog::async_overflow_policy::block);
        return std::make_shared<SpdlogSink>(std::move(pool), std::move(logger));
    } catch (const spdlog::spdlog_ex& exception) {
        LogWarning("noxcore", "Cannot open log file", {{"path", inFolder}, {"exception", exception.what()}});
        return nullptr;
    }
}

}  // namespace noxcore::logging
