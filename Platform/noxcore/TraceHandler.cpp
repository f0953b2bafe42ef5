#include "Platform/noxcore/TraceHandler.h"

#include <unistd.h>

#include <array>
#include <ctime>
#include <mutex>
#include <utility>
#include <vector>

#include "Platform/noxcore/ConsoleLogFile.h"
#include "Platform/noxcore/DebugDatabase.h"
#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/PlatformCall.h"

namespace noxcore::debug {

namespace {

class EarlySink final : public logging::Sink
{
public:
    ~EarlySink() override
    {
        if (mHandedOver || mRecords.empty()) return;
        const auto console = logging::MakeConsoleSink();
        for (const auto& record : mRecords) {
            if (record.mLevel <= logging::Level::Warning) console->Write(record);
        }
    }

    void Write(const logging::Record& inRecord) override
    {
        const std::lock_guard lock(mMutex);
        if (!mHandedOver) mRecords.push_back(inRecord);
    }

    void HandOver(logging::Sink& inSink)
    {
        std::vector<logging::Record> records;
        {
            const std::lock_guard lock(mMutex);
            mHandedOver = true;
            records.swap(mRecords);
        }
        for (const auto& record : records)
            inSink.Write(record);
    }

private:
    std::mutex mMutex;
    std::vector<logging::Record> mRecords;
    bool mHandedOver = false;
};

class DoubleSink final : public logging::Sink
{
public:
    DoubleSink(std::shared_ptr<logging::Sink> inFirst, std::shared_ptr<logging::Sink> inSecond)
        : mFirst(std::move(inFirst)), mSecond(std::move(inSecond))
    {
    }
    void Write(const logging::Record& inRecord) override
    {
        mFirst->Write(inRecord);
        mSecond->Write(inRecord);
    }
    void Flush() override
    {
        mFirst->Flush();
        mSecond->Flush();
    }

private:
    const std::shared_ptr<logging::Sink> mFirst;
    const std::shared_ptr<logging::Sink> mSecond;
};

/// "-20231114T221320-4711": the moment in UTC and the process.
std::string NameOfThisRun()
{
    const auto now = static_cast<std::time_t>(HubContext::Current()->GetClock().NowTicks() / kTicksPerSecond);
    std::tm parts = {};
    gmtime_r(&now, &parts);
    std::array<char, 32> text{};
    const std::size_t size = std::strftime(text.data(), text.size(), "-%Y%m%dT%H%M%S-", &parts);
    return std::string(text.data(), size) + std::to_string(getpid());
}

/// Lets records go to one more sink. Where they were only kept so far, they go there alone, the kept ones first.
void InstallBeside(std::shared_ptr<logging::Sink> inSink, bool inOnlyInPlaceOfEarlySink)
{
    const auto& context = HubContext::Current();
    auto previous = context->GetLog();
    if (auto* early = dynamic_cast<EarlySink*>(previous.get())) {
        context->SetLog(inSink);
        early->HandOver(*inSink);
    } else if (!inOnlyInPlaceOfEarlySink) {
        context->SetLog(std::make_shared<DoubleSink>(std::move(previous), std::move(inSink)));
    }
}

}  // namespace

TraceHandlerInstaller::TraceHandlerInstaller(const filesupport::Path& inLogFolder, std::string_view inProgram)
{
    logging::LogDetail(kPlatformCategory, kPlatformCall, {{"name", "TraceHandlerInstaller"}, {"path", inLogFolder}});
    OpenLogFile(inLogFolder, inProgram);
}

void TraceHandlerInstaller::OpenLogFile(const filesupport::Path& inLogFolder, std::string_view inProgram)
{
    const auto settings = DebugDatabase::Instance();
    std::string baseName(inProgram);
    if (settings->GetBoolean("AddTimestampToLogFileNames", false)) baseName += NameOfThisRun();
    std::shared_ptr<logging::Sink> file;
    if (settings->GetBoolean("CreateLogFilesThatDoNotExist", false) ||
        filesupport::Files().FileExists(filesupport::Join(inLogFolder, baseName + ".log"))) {
        file = logging::MakeFileSink(inLogFolder, baseName);
        if (!file) logging::LogWarning(kPlatformCategory, "There will be no log file", {{"path", inLogFolder}});
    }
    if (!file) {
        InstallBeside(logging::MakeConsoleSink(), true);
        return;
    }
    InstallBeside(std::move(file), false);
    HubContext::Current()->SetInstance(
        std::make_shared<console::ConsoleLogFile>(inLogFolder, std::string(inProgram), std::move(baseName)));
}

TraceHandlerInstaller::~TraceHandlerInstaller()
{
    if (const auto log = HubContext::Current()->GetLog()) log->Flush();
}

void Trace(std::string_view inCategory, std::string_view inText, const std::source_location& inWhere)
{
    logging::LogDetail(inCategory, inText, {}, inWhere);
}

std::shared_ptr<logging::Sink> MakeEarlySink()
{
    return std::make_shared<EarlySink>();
}

}  // namespace noxcore::debug
