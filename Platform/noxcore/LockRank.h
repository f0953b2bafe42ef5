#pragma once

namespace noxcore::threads {

/// The lock order of the whole hub: a thread takes mutexes only in rising order of these values. Docs/lock-order.md
/// explains each; the class comment of each owner repeats its place.
enum class LockRank
{
    None = 0,                 ///< takes no part: held for a few instructions, calls nothing
    OutOfProcessServer = 10,  ///< client count, tasks, executor
    Service = 20,             ///< a service's in-flight map and registered flag
    HubSync = 30,             ///< the map of sync links
    SyncLink = 35,            ///< one link's fields
    JobControl = 40,          ///< the job queues
    SyncJob = 45,             ///< one job's fields
    JobLockTable = 50,        ///< the table of job locks: last of the jobs
    MediaLocators = 55,       ///< reading and writing of media locators as one step
    TransactionWindow = 60,   ///< the map of open transactions
    Transaction = 65,         ///< one transaction's fields
    RopeFilePath = 68,        ///< what becomes of the file at one path
    Sandboxes = 70,           ///< the registry of sandboxes
    SandboxWrite = 71,        ///< the history of one session moves
    SandboxMain = 72,         ///< records and handles of one session
    SandboxChange = 75,       ///< change count, media locators, user enclosures of one session
    SandboxCache = 77,        ///< one read cache of one session
    SyncDb = 78,              ///< one session's sync database
    ComplaintBox = 80,        ///< the complaints
    RepositoryWriter = 85,    ///< the one writer of a repository file: commit and checkpoint
    TreeBuilder = 87,         ///< the nodes of one tree under construction
    RepositoryFile = 88,      ///< the one connection of a single-file repository
    Leaf = 100                ///< calls nothing that locks
};

const char* LockRankName(LockRank inRank);

}  // namespace noxcore::threads
