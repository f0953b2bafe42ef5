#include "Inc/Model/UtilsIO.h"

#include <pwd.h>
#include <unistd.h>

#include <array>

#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/ProgramIdentity.h"

namespace VantryLocalHub::GitBox {

namespace git = noxstorage::git;

namespace {

std::int64_t NowInSeconds()
{
    return noxcore::HubContext::Current()->GetClock().NowTicks() / noxcore::kTicksPerSecond;
}

std::string LookUpSystemUserName()
{
    std::array<char, 4096> buffer{};
    passwd entry = {};
    passwd* found = nullptr;
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr &&
        found->pw_name[0] != '\0') {
        return found->pw_name;
    }
    return "user " + std::to_string(getuid());
}

}  // namespace

git::Signature MakeAuthor()
{
    static const std::string name = LookUpSystemUserName();
    return {name, {}, NowInSeconds(), 0};
}

git::Signature MakeCommitter()
{
    return {"localhub " + noxcore::ProgramIdentity::Current()->mVersion, {}, NowInSeconds(), 0};
}

git::CommitPtr CommitBranchTreeBuilderNode(const git::RepoPtr& inRepo, std::string_view inBranch,
                                           const git::TreeBuilderNodePtr& inNode, std::string_view inMessage,
                                           std::string_view inBackup)
{
    const git::Oid tree = git::FinalizeTreeBuilderNode(inRepo, inNode);
    if (tree.IsZero()) return nullptr;
    return git::WriteCommit(inRepo, tree, MakeAuthor(), MakeCommitter(), inMessage, inBranch, inBackup);
}

}  // namespace VantryLocalHub::GitBox
