// A store with many sessions: how it starts, and what it keeps of those that nobody asks for.
//
//   sessions_round make <empty home> <sessions> <assets of each>
//   sessions_round open <home>     One round: start, a read of every session, release of all.

#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "Bench/BoxSession.h"
#include "Platform/noxcore/Clock.h"
#include "Platform/noxcore/HubContext.h"

namespace {

using namespace bench;

void Make(const std::string& inHome, std::size_t inSessions, std::size_t inAssets)
{
    const auto store = OpenStore(inHome);
    const GeneratedAssets assets;
    for (std::size_t number = 0; number < inSessions; ++number) {
        BoxSession session(*store);
        const ImmutableString transaction = session.Open();
        for (std::size_t index = 0; index < inAssets; ++index)
            session.Add(transaction, assets.Make(number * inAssets + index));
        session.Commit(transaction);
        store->ReleaseUnusedDB(noxcore::HubContext::Current()->GetClock().MonotonicTicks() + 1);
    }
}

double OpenFiles()
{
    const std::filesystem::directory_iterator files("/proc/self/fd");
    return static_cast<double>(std::distance(begin(files), end(files)));
}

double ResidentKilobytes()
{
    std::ifstream sizes("/proc/self/statm");
    double all = 0;
    double resident = 0;
    sizes >> all >> resident;
    return resident * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024;
}

/// What is open and resident now, beyond what was before.
void ReportGrowth(const char* inFiles, const char* inKilobytes, double inFilesBefore, double inKilobytesBefore,
                  Report& ioReport)
{
    ioReport.Add(inFiles, OpenFiles() - inFilesBefore);
    ioReport.Add(inKilobytes, ResidentKilobytes() - inKilobytesBefore);
}

void OpenAndRelease(const std::string& inHome)
{
    Report report;
    const double files = OpenFiles();
    const double kilobytes = ResidentKilobytes();
    const double start = Now();
    const auto store = OpenStore(inHome);
    report.Add("start", Now() - start);
    ReportGrowth("files", "kilobytes", files, kilobytes, report);
    const std::vector<dto::Session> sessions = store->GetSessions();
    report.Add("sessions", static_cast<double>(sessions.size()));
    for (const dto::Session& session : sessions) {
        AssetListPtr assets;
        Check(store->GetAssets(session.mIdentifier, {}, {}, true, assets) == 200, "reading");
    }
    ReportGrowth("files_read", "kilobytes_read", files, kilobytes, report);
    store->ReleaseUnusedDB(noxcore::HubContext::Current()->GetClock().MonotonicTicks() + 1);
    ReportGrowth("files_released", "kilobytes_released", files, kilobytes, report);
    report.Print();
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc == 5 && std::strcmp(argv[1], "make") == 0) {
        Make(argv[2], std::strtoull(argv[3], nullptr, 10), std::strtoull(argv[4], nullptr, 10));
        return 0;
    }
    if (argc != 3 || std::strcmp(argv[1], "open") != 0) return 2;
    OpenAndRelease(argv[2]);
    return 0;
}
