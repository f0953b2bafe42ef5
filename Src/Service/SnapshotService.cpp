#include "Inc/Service/SnapshotService.h"

#include <stdexcept>
#include <string>

#include "Client/Wire/Production.h"
#include "Client/Wire/URLTemplates.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Model/ProjectBox.h"
#include "Inc/Service/FormReader.h"
#include "Inc/Service/Resources.h"
#include "Inc/Service/WorkerHandler.h"
#include "Inc/Sync/SyncBox.h"
#include "Platform/noxcore/Logging.h"

namespace VantryLocalHub {

namespace Template = VYCL::URLTemplate;
using namespace VYCL::LocalHub;
using noxcore::logging::LogWarning;
using noxnet::http::server::Request;

namespace {

/// What a form asks for. A key that is absent leaves its default.
struct Settings
{
    std::string mZipFile;
    dto::RawJSON mProperties;
    ImmutableString mRootAssetID;
    bool mKeepSessionProperties = false;
    bool mDeleteAssetsNotInSnapshot = false;
    bool mCreateSession = false;
};

struct BooleanRow
{
    const ImmutableString& (*mKey)();
    bool Settings::*mMember;
};

constexpr BooleanRow kBooleans[] = {
    {FormKey_Snapshot_KeepSessionProperties, &Settings::mKeepSessionProperties},
    {FormKey_Snapshot_DeleteAssetsNotInSnapshot, &Settings::mDeleteAssetsNotInSnapshot},
    {FormKey_Snapshot_CreateSession, &Settings::mCreateSession},
};

/// Throws std::invalid_argument for a form that cannot be used.
Settings ReadForm(const FormReader& inForm)
{
    Settings settings;
    settings.mZipFile = inForm.TextOrEmpty(FormKey_Snapshot_ZipFile().View());
    if (!settings.mZipFile.starts_with('/') || settings.mZipFile.ends_with('/') ||
        settings.mZipFile.find('\0') != std::string::npos) {
        throw std::invalid_argument("ReadForm: invalid input");
    }
    const auto properties = inForm.Text(FormKey_Snapshot_Properties().View());
    if (properties && !dto::RawJSON::FromText(*properties, settings.mProperties))
        throw std::invalid_argument("ReadForm: invalid input");
    settings.mRootAssetID = inForm.TextOrEmpty(FormKey_Snapshot_RootAssetID().View());
    if (!settings.mRootAssetID.empty() && !IsUsableID(settings.mRootAssetID))
        throw std::invalid_argument("ReadForm: invalid input");
    for (const BooleanRow& row : kBooleans) {
        if (const auto text = inForm.Text(row.mKey().View()))
            settings.*row.mMember = ReadFormBoolean(row.mKey().View(), *text);
    }
    return settings;
}

/// 200 or 400.
int ReadSettings(const Request& inRequest, Settings& outSettings)
{
    FormReader form;
    if (!form.Read(inRequest) || form.empty()) return Refuse(inRequest, "SnapshotService: Bad form element");
    try {
        outSettings = ReadForm(form);
        return noxnet::kHTTPStatus_OK;
    } catch (const std::exception& exception) {
        LogWarning(kServiceLogCategory, "SnapshotService: Bad form element",
                   {{"url", inRequest.URL()}, {"exception", exception.what()}});
        return noxnet::kHTTPStatus_BadRequest;
    }
}

int OpenSnapshot(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    const auto syncBox = SyncBox::Instance();
    if (syncBox == nullptr || !CanMakeURLs(*inRequest)) return noxnet::kHTTPStatus_InternalServerError;
    Settings settings;
    int status = ReadSettings(*inRequest, settings);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    dto::Session session;
    status = syncBox->OpenSnapshot(settings.mZipFile, settings.mRootAssetID, {settings.mProperties, {}},
                                   settings.mCreateSession, session);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    return AnswerSession(inRequest, inResponse, status, Template::kProduction, session);
}

/// The form's properties are those of the copy, and name the revision that the client means.
int TakeSnapshot(const RequestPtr& inRequest, const ResponsePtr&)
{
    const auto projectBox = ProjectBox::Instance();
    if (projectBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    ImmutableString session;
    ImmutableString revision;
    if (!ExtractSubExpression(*inRequest, 2, session) || !ExtractSubExpression(*inRequest, 3, revision))
        return noxnet::kHTTPStatus_BadRequest;
    Settings settings;
    const int status = ReadSettings(*inRequest, settings);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    dto::ProductionResource copy;
    if (!dto::FromJSON(settings.mProperties.Text(), copy))
        return Refuse(*inRequest, "SnapshotService: Bad form element");
    if (!(revision == copy.mCommitID) || revision.empty()) {
        LogWarning(kServiceLogCategory,
                   "TakeSnapshot: URL revision (revisionID) does not match revision to copy (commitID)",
                   {{"expression", "revisionID != settings.mProperties.commitId"},
                    {"sessionID", session},
                    {"revisionID", revision},
                    {"properties", settings.mProperties.Text()}});
        return noxnet::kHTTPStatus_BadRequest;
    }
    return projectBox->TakeSnapshot(session, revision, {copy.mProperties, {}}, settings.mRootAssetID,
                                    settings.mZipFile);
}

int CloseSnapshot(const RequestPtr& inRequest, const ResponsePtr&)
{
    const auto syncBox = SyncBox::Instance();
    if (syncBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    ImmutableString session;
    if (!ExtractSubExpression(*inRequest, 2, session)) return noxnet::kHTTPStatus_BadRequest;
    return syncBox->CloseSnapshot(session);
}

int ApplySnapshot(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    const auto projectBox = ProjectBox::Instance();
    if (projectBox == nullptr || !CanMakeURLs(*inRequest)) return noxnet::kHTTPStatus_InternalServerError;
    ImmutableString sessionID;
    if (!ExtractSubExpression(*inRequest, 2, sessionID)) return noxnet::kHTTPStatus_BadRequest;
    Settings settings;
    int status = ReadSettings(*inRequest, settings);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    dto::Session session;
    status = projectBox->ApplySnapshot(sessionID, settings.mZipFile, settings.mKeepSessionProperties,
                                       settings.mDeleteAssetsNotInSnapshot, session);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    return AnswerSession(inRequest, inResponse, noxnet::kHTTPStatus_OK, Template::kProduction, session);
}

}  // namespace

SnapshotService::SnapshotService()
{
    Async("POST", "open", OnWorker(OpenSnapshot));
    Async("POST", "take", OnWorker(TakeSnapshot));
    Sync("POST", "close", CloseSnapshot);
    Async("POST", "apply", OnWorker(ApplySnapshot));
}

}  // namespace VantryLocalHub
