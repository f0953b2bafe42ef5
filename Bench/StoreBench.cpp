// Times of the object store beside a bare SQLite file that takes the same bytes.
//
//   store_bench <folder> [assets] [edits] [threads]
//
// An asset is a blob of properties (1 KB), an enclosure of 4 KB with its name, and the three trees around them.

#include <sqlite3.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/Guid.h"
#include "Platform/noxcore/HubContext.h"
#include "Platform/noxstorage/Git.h"
#include "Platform/noxstorage/SQLite3OdbBackend.h"

namespace {

namespace ng = noxstorage::git;
namespace backend = noxstorage::git::SQLite3OdbBackend;

constexpr std::size_t kPropertiesSize = 1000;
constexpr std::size_t kContentSize = 4096;

double Now()
{
    return static_cast<double>(noxcore::HubContext::Current()->GetClock().MonotonicTicks()) / 1e7;
}

/// Processor time of the process: on a busy machine it tells more than the clock.
double Cpu()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

long PeakMegabytes()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024;
}

std::string Properties(std::mt19937_64& inRandom, const std::string& inID)
{
    std::string text = "{\"vy:assetId\":\"" + inID + "\",\"type\":\"clip\",\"items\":[";
    while (text.size() < kPropertiesSize)
        text += "{\"name\":\"Take " + std::to_string(inRandom() % 100000) +
                "\",\"in\":" + std::to_string(inRandom() % 10000000) + "},";
    text.resize(kPropertiesSize - 1);
    return text + "}";
}

std::string Content(std::mt19937_64& inRandom)
{
    std::string bytes(kContentSize, '\0');
    for (std::size_t at = 0; at < bytes.size(); at += 8) {
        const std::uint64_t value = inRandom();
        std::copy_n(reinterpret_cast<const char*>(&value), 8, bytes.begin() + static_cast<std::ptrdiff_t>(at));
    }
    return bytes;
}

const ng::Signature kAuthor{"Bench", "", 1700000000, 0};

ng::Oid WriteAsset(const ng::RepoPtr& inRepo, const std::string& inID, const std::string& inProperties,
                   const std::string& inContent)
{
    const std::string name = "audio " + inID.substr(0, 6);
    const ng::Oid properties = ng::WriteBlob(inRepo, inProperties.data(), inProperties.size());
    const ng::Oid content = ng::WriteBlob(inRepo, inContent.data(), inContent.size());
    const ng::Oid nameBlob = ng::WriteBlob(inRepo, name.data(), name.size());
    const ng::Oid enclosure =
        ng::WriteTree(inRepo, {{"name", ng::kModeBlob, nameBlob}, {"content", ng::kModeBlob, content}});
    const ng::Oid enclosures = ng::WriteTree(inRepo, {{inID, ng::kModeTree, enclosure}});
    return ng::WriteTree(inRepo,
                         {{"properties", ng::kModeBlob, properties}, {"enclosures", ng::kModeTree, enclosures}});
}

ng::CommitPtr CommitAssets(const ng::RepoPtr& inRepo, const std::vector<std::pair<std::string, ng::Oid>>& inAssets)
{
    const auto root = ng::ConstructRootTreeBuilderNode(
        inRepo, ng::GetTreeAtCommit(inRepo, ng::GetCommitForBranch(inRepo, "session")));
    for (const auto& [id, tree] : inAssets) {
        std::string leaf;
        const auto node =
            ng::ConstructSubTreeBuilderNodeForPath(inRepo, root, "assets/" + id.substr(0, 2) + "/" + id, leaf);
        node->Insert(leaf, tree, ng::kModeTree);
    }
    const ng::Oid tree = ng::FinalizeTreeBuilderNode(inRepo, root);
    return ng::WriteCommit(inRepo, tree, kAuthor, kAuthor, "bench", "session");
}

void Bare(const std::string& inFile, std::size_t inAssets)
{
    sqlite3* db = nullptr;
    sqlite3_open(inFile.c_str(), &db);
    sqlite3_exec(db,
                 "PRAGMA page_size=16384;PRAGMA journal_mode=WAL;PRAGMA synchronous=FULL;"
                 "PRAGMA wal_autocheckpoint=0;CREATE TABLE t(id INTEGER PRIMARY KEY, data BLOB)",
                 nullptr, nullptr, nullptr);
    std::mt19937_64 random(1);
    sqlite3_stmt* insert = nullptr;
    sqlite3_prepare_v2(db, "INSERT INTO t(data) VALUES(?)", -1, &insert, nullptr);
    const auto add = [&](const std::string& inBytes) {
        sqlite3_bind_blob(insert, 1, inBytes.data(), static_cast<int>(inBytes.size()), SQLITE_STATIC);
        sqlite3_step(insert);
        sqlite3_reset(insert);
    };
    std::vector<std::string> made;  // the same few over and over: making them is not what is measured
    for (int index = 0; index < 100; ++index) {
        made.push_back(Properties(random, "00000000-0000-0000-0000-000000000000"));
        made.push_back(Content(random));
    }
    const double start = Now();
    const double cpu = Cpu();
    sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr);
    for (std::size_t index = 0; index < inAssets; ++index) {
        const std::string& properties = made[2 * (index % 100)];
        const std::string& content = made[2 * (index % 100) + 1];
        add(properties);
        add(content);
        add("audio 000000");
        add(content.substr(0, 60));
        add(content.substr(60, 64));
        add(content.substr(124, 72));
    }
    sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
    std::printf("bare SQLite: %.2f s, processor %.2f s\n", Now() - start, Cpu() - cpu);
    sqlite3_finalize(insert);
    sqlite3_close(db);
}

void Report(const char* inName, std::vector<double> inSeconds)
{
    std::sort(inSeconds.begin(), inSeconds.end());
    const auto at = [&](double inPart) {
        return 1000 * inSeconds[static_cast<std::size_t>(inPart * static_cast<double>(inSeconds.size() - 1))];
    };
    std::printf("%-22s p50 %.2f ms  p90 %.2f  p99 %.2f  max %.2f\n", inName, at(0.5), at(0.9), at(0.99), at(1));
}

struct Session
{
    ng::RepoPtr mRepo;
    std::vector<std::pair<std::string, ng::Oid>> mAssets;
};

void Fill(Session& inoutSession, std::size_t inAssets, std::size_t inThreads)
{
    inoutSession.mAssets.resize(inAssets);
    std::vector<std::string> made;
    std::mt19937_64 random(5);
    for (int index = 0; index < 100; ++index) {
        made.push_back(Properties(random, noxcore::utility::Guid::CreateUnique().Text()));
        made.push_back(Content(random));
    }
    for (auto& asset : inoutSession.mAssets)
        asset.first = noxcore::utility::Guid::CreateUnique().Text();
    const auto part = [&](std::size_t inThread) {
        for (std::size_t index = inThread; index < inAssets; index += inThreads) {
            const std::string& id = inoutSession.mAssets[index].first;
            std::string properties = made[2 * (index % 100)];
            std::string content = made[2 * (index % 100) + 1];
            properties.replace(16, id.size(), id);
            content.replace(100, id.size(), id);
            inoutSession.mAssets[index].second = WriteAsset(inoutSession.mRepo, id, properties, content);
        }
    };
    const double cpu = Cpu();
    const double start = Now();
    if (inThreads == 1)
        part(0);
    else
        noxcore::threads::ExecuteCPUBoundTaskOnAllProcessors([&](std::size_t inIndex, std::size_t) {
            if (inIndex < inThreads) part(inIndex);
        });
    const double written = Now();
    if (!ng::FlushObjects(inoutSession.mRepo)) std::abort();
    const double flushed = Now();
    if (CommitAssets(inoutSession.mRepo, inoutSession.mAssets) == nullptr) std::abort();
    const double done = Now();
    std::printf("commit of %zu assets: %.2f s processor %.2f (write %.2f, flush %.2f, commit %.2f), peak %ld MB\n",
                inAssets, done - start, Cpu() - cpu, written - start, flushed - written, done - flushed,
                PeakMegabytes());
}

void Edit(const Session& inSession, std::size_t inEdits)
{
    std::mt19937_64 random(77);
    std::vector<double> times;
    const double cpu = Cpu();
    for (std::size_t edit = 0; edit < inEdits; ++edit) {
        const std::string& id = inSession.mAssets[random() % inSession.mAssets.size()].first;
        const std::string properties = Properties(random, id);
        const double start = Now();
        const auto head = ng::GetTreeAtCommit(inSession.mRepo, ng::GetCommitForBranch(inSession.mRepo, "session"));
        const auto asset = ng::GetTree(inSession.mRepo, head, "assets/" + id.substr(0, 2) + "/" + id);
        ng::TreeEntry enclosures;
        asset->Find("enclosures", enclosures);
        const ng::Oid tree = ng::WriteTree(
            inSession.mRepo,
            {{"properties", ng::kModeBlob, ng::WriteBlob(inSession.mRepo, properties.data(), properties.size())},
             {"enclosures", ng::kModeTree, enclosures.mOid}});
        if (!ng::FlushObjects(inSession.mRepo) || CommitAssets(inSession.mRepo, {{id, tree}}) == nullptr) std::abort();
        times.push_back(Now() - start);
    }
    Report("edit of one asset", times);
    std::printf("    processor %.2f ms an edit\n", 1000 * (Cpu() - cpu) / static_cast<double>(inEdits));
}

void ReadAll(const ng::RepoPtr& inRepo)
{
    const double start = Now();
    const double cpu = Cpu();
    const ng::ReadScope scope(inRepo);
    const auto head = ng::GetTreeAtCommit(inRepo, ng::GetCommitForBranch(inRepo, "session"));
    std::size_t bytes = 0;
    std::size_t count = 0;
    for (const ng::TreeEntry& bucket : ng::Entries(ng::GetTree(inRepo, head, "assets")))
        for (const ng::TreeEntry& entry : ng::Entries(ng::GetTree(inRepo, bucket.mOid))) {
            const auto properties = ng::GetBlob(inRepo, ng::GetTree(inRepo, entry.mOid), "properties");
            bytes += properties->Content().size();
            ++count;
        }
    std::printf("read of all %zu assets: %.2f s, processor %.2f s, %zu MB\n", count, Now() - start, Cpu() - cpu,
                bytes >> 20);
}

}  // namespace

int main(int inCount, char** inArguments)
{
    if (inCount < 2) return 1;
    const auto number = [&](int inIndex, std::size_t inDefault) {
        return inCount > inIndex ? static_cast<std::size_t>(std::atoll(inArguments[inIndex])) : inDefault;
    };
    const std::size_t assets = number(2, 100000);
    const std::size_t edits = number(3, 1000);
    const std::size_t threads = number(4, 1);
    auto& files = noxcore::filesupport::Files();
    const std::string folder = noxcore::filesupport::Join(inArguments[1], "store-bench");
    files.DeleteDirectory(folder);
    files.EnsureDirectoryExists(folder);
    Bare(folder + "/bare.sqlite3", assets);
    files.DeleteFile(folder + "/bare.sqlite3");

    ng::Startup();
    Session session;
    ng::CommitPtr commit;
    if (!backend::InitRepository(folder + "/git", {{"sessionid", noxcore::utility::CopyToRecycledMemory("s")}}, kAuthor,
                                 kAuthor, "first", 16384, 10485760, backend::kReadWrite, session.mRepo, commit) ||
        !ng::SetBranchToCommit(session.mRepo, commit, "session"))
        return 1;
    Fill(session, assets, threads);
    Edit(session, edits);
    ReadAll(session.mRepo);
    double start = Now();
    const bool complete = backend::Checkpoint(session.mRepo);
    std::printf("checkpoint: %.2f s%s; file %.0f MB\n", Now() - start, complete ? "" : " (incomplete)",
                static_cast<double>(files.Size(folder + "/git")) / 1e6);
    Edit(session, edits);
    session.mRepo.reset();
    start = Now();
    session.mRepo = backend::OpenRepository(folder + "/git", backend::kReadWrite);
    std::printf("open: %.2f ms\n", 1000 * (Now() - start));
    ReadAll(session.mRepo);
    ReadAll(session.mRepo);
    session.mRepo.reset();
    ng::Shutdown();
    files.DeleteDirectory(folder);
    return 0;
}
