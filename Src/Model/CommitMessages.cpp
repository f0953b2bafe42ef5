#include "Inc/Model/CommitMessages.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <unistd.h>

#include "Platform/noxcore/Guid.h"
#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/JSON.h"
#include "Platform/noxcore/ProgramIdentity.h"

namespace VantryLocalHub::GitBox {

namespace {

struct CodeText
{
    CommitMessageCode mCode;
    std::string_view mText;
};

constexpr CodeText kTexts[] = {
    {CommitMessageCode::Initialized, "Local Tessel Project data initialized"},
    {CommitMessageCode::CopiedFromSession, "New Tessel Project created from an existing local Tessel Project"},
    {CommitMessageCode::Reverted, "Reverted Local Tessel Project to a prior version"},
    {CommitMessageCode::Synchronized, "Changes synchronized from Tessel Projects Service"},
    {CommitMessageCode::Downloaded, "Tessel Project downloaded from Tessel Projects Service"},
    {CommitMessageCode::Shared, "Changes shared to Tessel Projects Service"},
    {CommitMessageCode::Duplicated, "User edits duplicated by Tessel Projects Local Hub"},
    {CommitMessageCode::ReInitialized, "Local Tessel Project data re-initialized with new identifiers"},
    {CommitMessageCode::SnapshotApplied, "Snapshot applied to existing Tessel Project"},
    {CommitMessageCode::AssetRestored, "Asset restored from shared Tessel Project"},
};

/// What stays the same for all commits of this process: looked up once, for names of hosts may take their time.
struct CommitOrigin
{
    std::string mInstanceID = noxcore::utility::Guid::CreateUnique().Text();
    std::string mMachineName = HostName();
    std::string mMachineIP = HostAddress(mMachineName);

    static std::string HostName()
    {
        char name[256] = {};
        return gethostname(name, sizeof name - 1) == 0 ? std::string(name) : std::string();
    }

    static std::string HostAddress(const std::string& inName)
    {
        addrinfo hints = {};
        hints.ai_family = AF_INET;
        hints.ai_flags = AI_NUMERICSERV;
        addrinfo* found = nullptr;
        // The hosts file and the resolver's cache only matter here; a name that nobody knows leaves the text empty.
        if (inName.empty() || getaddrinfo(inName.c_str(), nullptr, &hints, &found) != 0 || found == nullptr) return {};
        char text[INET_ADDRSTRLEN] = {};
        const auto* address = reinterpret_cast<const sockaddr_in*>(found->ai_addr);
        inet_ntop(AF_INET, &address->sin_addr, text, sizeof text);
        freeaddrinfo(found);
        return text;
    }
};

}  // namespace

std::string_view CommitMessageText(CommitMessageCode inCode)
{
    for (const CodeText& entry : kTexts) {
        if (entry.mCode == inCode) return entry.mText;
    }
    return {};
}

std::string MakeCommitMessage(CommitMessageCode inCode, std::string_view inText, std::string_view inLocalCommitID)
{
    const auto origin = noxcore::HubContext::Current()->GetOrCreateInstance<CommitOrigin>();
    const auto program = noxcore::ProgramIdentity::Current();
    noxcore::serialization::JSONWriter writer;
    writer.BeginObject();
    writer.Member("commitMessage", inText.empty() ? CommitMessageText(inCode) : inText);
    writer.Key("metadata");
    writer.BeginObject();
    writer.Member("applicationName", program->mName);
    writer.Member("applicationBuildNumber", program->mBuild);
    writer.Member("applicationInstanceID", origin->mInstanceID);
    writer.Member("machineID", "");
    writer.Member("machineName", origin->mMachineName);
    writer.Member("machineIP", origin->mMachineIP);
    writer.Member("transactionType", "");
    writer.EndObject();
    if (inCode != CommitMessageCode::None) {
        writer.Key("commitMessageCode");
        writer.Int(static_cast<int>(inCode));
    }
    if (!inLocalCommitID.empty()) writer.Member("localCommitID", inLocalCommitID);
    writer.EndObject();
    return writer.TakeText();
}

}  // namespace VantryLocalHub::GitBox
