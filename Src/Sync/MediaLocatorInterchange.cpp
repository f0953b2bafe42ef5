#include "Inc/Sync/MediaLocatorInterchange.h"

#include <unordered_map>
#include <utility>

#include "Client/Wire/OpaqueMembers.h"
#include "Inc/Model/ProjectBox.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxnet/HTTPStatus.h"

namespace VantryLocalHub {

using namespace noxcore::logging;
using noxcore::threads::ScopedLock;

namespace {

constexpr std::string_view kCategory = "HubSync";
/// From here on, one read of all locators of a session costs less than a read of each.
constexpr std::size_t kWorthReadingAll = 256;

using Locators = std::vector<dto::MediaLocator>;
using LocatorMap = std::unordered_map<ImmutableString, dto::MediaLocator>;  // id -> as stored, then as edited

int FailEdit(const ImmutableString& inLocatorID, int inStatus)
{
    LogWarning(kCategory, "MediaLocatorInterchange::EditMediaLocators: Failed to update media locator",
               {{"mediaLocatorId", inLocatorID.View()}, {"statusCode", inStatus}});
    return inStatus;
}

/// Reads the locators that edits are of, each once; those that are not there are left out.
int ReadAll(ProjectBox& inBox, const ImmutableString& inSessionID, const Locators& inEdits, LocatorMap& outStored)
{
    Locators all;
    const int status = inBox.GetMediaLocators(inSessionID, all);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return FailEdit(inEdits.front().mMediaLocatorID, status);
    LocatorMap stored;
    stored.reserve(all.size());
    for (dto::MediaLocator& locator : all) {
        const ImmutableString id = locator.mMediaLocatorID;
        stored.emplace(id, std::move(locator));
    }
    outStored = std::move(stored);
    return status;
}

int ReadEach(ProjectBox& inBox, const ImmutableString& inSessionID, const Locators& inEdits, LocatorMap& outStored)
{
    for (const dto::MediaLocator& edit : inEdits) {
        if (outStored.contains(edit.mMediaLocatorID)) continue;
        dto::MediaLocator stored;
        const int status = inBox.GetMediaLocator(inSessionID, edit.mMediaLocatorID, stored);
        if (!noxnet::IsSuccessfulHTTPStatus(status)) return FailEdit(edit.mMediaLocatorID, status);
        outStored.emplace(edit.mMediaLocatorID, std::move(stored));
    }
    return noxnet::kHTTPStatus_OK;
}

/// What is asked of one locator: its edits, which follow one another.
struct LocatorEdit
{
    ImmutableString mID;
    const dto::RawJSON* mFirst = nullptr;
    std::size_t mCount = 0;
    dto::MemberEdits mMembers;

    void Add(const dto::RawJSON& inProperties)
    {
        if (mCount++ == 0) mFirst = &inProperties;
        mMembers.Add(inProperties);
    }
    void ApplyTo(dto::RawJSON& ioProperties) const
    {
        // What nobody has written before is taken as it came, repeated keys and all.
        if (mCount == 1 && ioProperties.Text() == dto::RawJSON().Text())
            ioProperties = *mFirst;
        else
            mMembers.ApplyTo(ioProperties);
    }
};

/// Each locator once, in the order in which the edits name them first.
std::vector<LocatorEdit> GatherEdits(const Locators& inEdits)
{
    std::vector<LocatorEdit> gathered;
    std::unordered_map<ImmutableString, std::size_t> places;
    for (const dto::MediaLocator& edit : inEdits) {
        const auto [place, isNew] = places.try_emplace(edit.mMediaLocatorID, gathered.size());
        if (isNew) gathered.emplace_back().mID = edit.mMediaLocatorID;
        gathered[place->second].Add(edit.mProperties);
    }
    return gathered;
}

int MergeEdits(const Locators& inEdits, LocatorMap& ioStored, Locators& outMerged)
{
    for (const LocatorEdit& edit : GatherEdits(inEdits)) {
        const auto stored = ioStored.find(edit.mID);
        if (stored == ioStored.end()) return FailEdit(edit.mID, noxnet::kHTTPStatus_NotFound);
        edit.ApplyTo(stored->second.mProperties);
        outMerged.push_back(std::move(stored->second));
    }
    return noxnet::kHTTPStatus_OK;
}

}  // namespace

std::shared_ptr<MediaLocatorInterchange::Writers> MediaLocatorInterchange::WritersOf(const ImmutableString& inID,
                                                                                     int& outStatus)
{
    const auto box = ProjectBox::Instance();
    dto::Session session;
    outStatus = box ? box->GetSession(inID, session) : noxnet::kHTTPStatus_InternalServerError;
    if (!noxnet::IsSuccessfulHTTPStatus(outStatus)) return nullptr;
    const ScopedLock lock(mMutex);
    std::erase_if(mWriters, [](const auto& inEntry) { return inEntry.second.expired(); });
    auto writers = mWriters[session.mIdentifier].lock();
    if (!writers) {
        writers = std::make_shared<Writers>(noxcore::threads::LockRank::MediaLocators);
        mWriters[session.mIdentifier] = writers;
    }
    return writers;
}

int MediaLocatorInterchange::AddMediaLocators(const ImmutableString& inSessionID, Locators& ioLocators)
{
    const auto box = ProjectBox::Instance();
    if (!box) return noxnet::kHTTPStatus_InternalServerError;
    int status = noxnet::kHTTPStatus_OK;
    const auto writers = WritersOf(inSessionID, status);
    if (!writers) return status;
    const ScopedLock lock(*writers);
    return box->AddMediaLocators(inSessionID, WriteMode::LocalEdit, ioLocators);
}

int MediaLocatorInterchange::EditMediaLocators(const ImmutableString& inSessionID, Locators& ioLocators)
{
    const auto box = ProjectBox::Instance();
    if (!box) return noxnet::kHTTPStatus_InternalServerError;
    int status = noxnet::kHTTPStatus_OK;
    const auto writers = WritersOf(inSessionID, status);
    if (!writers) return ioLocators.empty() ? status : FailEdit(ioLocators.front().mMediaLocatorID, status);
    const ScopedLock lock(*writers);
    LocatorMap stored;
    Locators merged;
    const auto read = ioLocators.size() < kWorthReadingAll ? ReadEach : ReadAll;
    status = read(*box, inSessionID, ioLocators, stored);
    if (noxnet::IsSuccessfulHTTPStatus(status)) status = MergeEdits(ioLocators, stored, merged);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    // As one batch, which is one write of the file: what is there is replaced and keeps its creation.
    status = box->AddMediaLocators(inSessionID, WriteMode::LocalEdit, merged);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) {
        return ioLocators.empty() ? status : FailEdit(ioLocators.front().mMediaLocatorID, status);
    }
    ioLocators = std::move(merged);
    return status;
}

int MediaLocatorInterchange::EditMediaLocators(const ImmutableString& inSessionID, dto::MediaLocator& ioLocator)
{
    Locators locators{ioLocator};
    const int status = EditMediaLocators(inSessionID, locators);
    if (noxnet::IsSuccessfulHTTPStatus(status)) ioLocator = std::move(locators.front());
    return status;
}

}  // namespace VantryLocalHub
