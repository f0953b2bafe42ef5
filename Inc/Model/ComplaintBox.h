#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Platform/noxcore/Guid.h"
#include "Platform/noxcore/ImmutableString.h"
#include "Platform/noxcore/Messaging.h"
#include "Platform/noxcore/RecursiveMutex.h"

namespace VantryLocalHub {

/// A problem that clients should show.
struct Complaint
{
    std::string mID;  ///< text of a guid
    std::int64_t mErrorCode = 0;
    std::string mErrorString;
};

/// The problems of sessions and servers that stand at present. Filed by store and engine, shown by the errors resource.
///
/// Threading: any thread. mMutex guards both tables (rank ComplaintBox); ComplaintsChangedMessage is posted after it
/// was given back.
class ComplaintBox
{
public:
    class ComplaintsChangedMessage : public noxcore::messaging::MessageBase<ComplaintsChangedMessage>
    {
    public:
        static constexpr std::string_view kTypeName = "VantryLocalHub::ComplaintBox::ComplaintsChangedMessage";
    };

    using Complaints = std::map<std::string, Complaint>;  ///< complaint id -> complaint
    using Table = std::map<std::string, Complaints>;      ///< session id or server URL -> complaints

    /// The current hub's, made on first use.
    static std::shared_ptr<ComplaintBox> Instance();
    /// Where changes are posted.
    const std::shared_ptr<noxcore::messaging::MessageStation>& Station() const { return mStation; }

    /// Adds one for a session and gives its id.
    std::string FileComplaint(const noxcore::utility::ImmutableString& inSessionID, std::int64_t inErrorCode,
                              const std::string& inErrorString);
    /// Adds one for a server, in place of one with the same error code.
    std::string FileComplaintForServer(const std::string& inServerURL, std::int64_t inErrorCode,
                                       const std::string& inErrorString);
    /// False when no such complaint stands.
    bool RemoveComplaint(const std::string& inID);
    /// Takes back all that a session's complaints say, when the session is gone.
    void RemoveComplaintsOfSession(const noxcore::utility::ImmutableString& inSessionID);

    [[nodiscard]] Table SessionComplaints() const;
    [[nodiscard]] Table ServerComplaints() const;

private:
    void PostChanged();

    const std::shared_ptr<noxcore::messaging::MessageStation> mStation =
        std::make_shared<noxcore::messaging::MessageStation>();
    mutable noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::ComplaintBox};
    Table mSessions GUARDED_BY(mMutex);
    Table mServers GUARDED_BY(mMutex);
};

}  // namespace VantryLocalHub
