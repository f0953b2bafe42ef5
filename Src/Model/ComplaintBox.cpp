#include "Inc/Model/ComplaintBox.h"

#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"

namespace VantryLocalHub {

using noxcore::threads::ScopedLock;
using noxcore::utility::ImmutableString;

namespace {

Complaint MakeComplaint(std::int64_t inErrorCode, const std::string& inErrorString)
{
    return {noxcore::utility::Guid::CreateUnique().Text(), inErrorCode, inErrorString};
}

bool RemoveFrom(ComplaintBox::Table& ioTable, const std::string& inID)
{
    for (auto entry = ioTable.begin(); entry != ioTable.end(); ++entry) {
        if (entry->second.erase(inID) == 0) continue;
        if (entry->second.empty()) ioTable.erase(entry);
        return true;
    }
    return false;
}

}  // namespace

std::shared_ptr<ComplaintBox> ComplaintBox::Instance()
{
    return noxcore::HubContext::Current()->GetOrCreateInstance<ComplaintBox>();
}

void ComplaintBox::PostChanged()
{
    noxcore::messaging::PostMessageToUIThread(mStation, std::make_shared<ComplaintsChangedMessage>());
}

std::string ComplaintBox::FileComplaint(const ImmutableString& inSessionID, std::int64_t inErrorCode,
                                        const std::string& inErrorString)
{
    const Complaint complaint = MakeComplaint(inErrorCode, inErrorString);
    {
        const ScopedLock lock(mMutex);
        mSessions[inSessionID.Text()].emplace(complaint.mID, complaint);
    }
    noxcore::logging::LogInformation("GitBox", "Filed complaint",
                                     {{"sessionID", inSessionID},
                                      {"errorID", complaint.mID},
                                      {"errorCode", inErrorCode},
                                      {"errorString", inErrorString}});
    PostChanged();
    return complaint.mID;
}

std::string ComplaintBox::FileComplaintForServer(const std::string& inServerURL, std::int64_t inErrorCode,
                                                 const std::string& inErrorString)
{
    const Complaint complaint = MakeComplaint(inErrorCode, inErrorString);
    std::size_t count = 0;
    {
        const ScopedLock lock(mMutex);
        Complaints& complaints = mServers[inServerURL];
        std::erase_if(complaints, [&](const auto& inEntry) { return inEntry.second.mErrorCode == inErrorCode; });
        complaints.emplace(complaint.mID, complaint);
        count = complaints.size();
    }
    noxcore::logging::LogInformation("HubSync", "Filed complaint",
                                     {{"complaints", count},
                                      {"serverURL", inServerURL},
                                      {"errorID", complaint.mID},
                                      {"errorCode", inErrorCode},
                                      {"errorString", inErrorString}});
    PostChanged();
    return complaint.mID;
}

bool ComplaintBox::RemoveComplaint(const std::string& inID)
{
    {
        const ScopedLock lock(mMutex);
        if (!RemoveFrom(mSessions, inID) && !RemoveFrom(mServers, inID)) return false;
    }
    PostChanged();
    return true;
}

void ComplaintBox::RemoveComplaintsOfSession(const ImmutableString& inSessionID)
{
    {
        const ScopedLock lock(mMutex);
        if (mSessions.erase(inSessionID.Text()) == 0) return;
    }
    PostChanged();
}

ComplaintBox::Table ComplaintBox::SessionComplaints() const
{
    const ScopedLock lock(mMutex);
    return mSessions;
}

ComplaintBox::Table ComplaintBox::ServerComplaints() const
{
    const ScopedLock lock(mMutex);
    return mServers;
}

}  // namespace VantryLocalHub
