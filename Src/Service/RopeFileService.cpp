#include "Inc/Service/RopeFileService.h"

#include <map>
#include <optional>
#include <stdexcept>

#include "Client/VYClient/Registry.h"
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
using noxnet::IsSuccessfulHTTPStatus;
using noxnet::http::server::Request;

namespace {

constexpr int kProductionGroup = 2;
constexpr int kCommitGroup = 3;

enum class CreateMode
{
    Never,
    NewOnly,
    Overwrite
};

struct ModeName
{
    const ImmutableString& (*mText)();
    CreateMode mMode;
};

constexpr ModeName kModes[] = {{FormValue_RopeFile_NeverCreate, CreateMode::Never},
                               {FormValue_RopeFile_CreateNewOnly, CreateMode::NewOnly},
                               {FormValue_RopeFile_CreateOverwrite, CreateMode::Overwrite}};

/// What a form says; what it leaves out has no value.
struct RopeSettings
{
    std::string mPath;
    std::optional<CreateMode> mCreateMode;
    ImmutableString mSyncMode;  ///< empty: not said
    dto::ProductionProperties mProperties;
    ImmutableString mCommitID;  ///< of the properties
};

[[noreturn]] void RefuseInput()
{
    throw std::invalid_argument("ReadForm: invalid input");
}

CreateMode ReadCreateMode(std::string_view inText)
{
    for (const ModeName& mode : kModes)
        if (mode.mText().View() == inText) return mode.mMode;
    RefuseInput();
}

ImmutableString ReadSyncMode(std::string_view inText)
{
    for (const ImmutableString& mode : {SyncMode_LocalOnly(), SyncMode_Synchronized()})
        if (mode.View() == inText) return mode;
    RefuseInput();
}

/// The properties of the project, and the commit where they name one: a client may send a production as it got it.
void ReadProperties(std::string_view inText, RopeSettings& outSettings)
{
    noxcore::serialization::JSONDocument document;
    if (!document.Parse(std::string(inText)) || !document.Root().IsObject()) RefuseInput();
    dto::ProductionResource production;
    if (!dto::ReadRecord(document.Root(), production)) RefuseInput();
    outSettings.mCommitID = production.mCommitID;
    const bool isProduction = document.Root()["properties"].IsObject();
    outSettings.mProperties.mProperties = isProduction ? production.mProperties : dto::RawJSON(std::string(inText));
}

/// Throws std::invalid_argument for a form that cannot be used.
RopeSettings ReadSettings(const FormReader& inForm)
{
    RopeSettings settings;
    settings.mPath = inForm.TextOrEmpty(FormKey_RopeFile_Path().View());
    if (!settings.mPath.empty() && (!settings.mPath.starts_with('/') || settings.mPath.find('\0') != std::string::npos))
        RefuseInput();
    if (const auto mode = inForm.Text(FormKey_RopeFile_CreateMode().View()))
        settings.mCreateMode = ReadCreateMode(*mode);
    if (const auto mode = inForm.Text(FormKey_RopeFile_SyncMode().View())) settings.mSyncMode = ReadSyncMode(*mode);
    if (const auto properties = inForm.Text(FormKey_RopeFile_Properties().View()))
        ReadProperties(*properties, settings);
    else
        settings.mProperties.mProperties = dto::RawJSON("{}");
    return settings;
}

/// The instances that each operation needs, and what its form says.
struct RopeCall
{
    std::shared_ptr<ProjectBox> mProjectBox = ProjectBox::Instance();
    std::shared_ptr<SyncBox> mSyncBox = SyncBox::Instance();
    RopeSettings mSettings;

    /// 200, 400 or 500.
    int Enter(const Request& inRequest)
    {
        if (mProjectBox == nullptr || mSyncBox == nullptr || !CanMakeURLs(inRequest))
            return noxnet::kHTTPStatus_InternalServerError;
        FormReader form;
        if (!form.Read(inRequest) || form.empty()) return Refuse(inRequest, "RopeFileService: Bad form element");
        try {
            mSettings = ReadSettings(form);
        } catch (const std::invalid_argument& exception) {
            LogWarning(kServiceLogCategory, "RopeFileService: Bad form element",
                       {{"url", inRequest.URL()}, {"exception", exception.what()}});
            return noxnet::kHTTPStatus_BadRequest;
        }
        return noxnet::kHTTPStatus_OK;
    }
};

/// The session of the single-file project that the URL names. 200, 400, 404 or 500.
int FindRopeSession(const Request& inRequest, ProjectBox& inBox, dto::Session& outSession)
{
    ImmutableString id;
    if (!ExtractSubExpression(inRequest, kProductionGroup, id) || id.empty()) return noxnet::kHTTPStatus_BadRequest;
    std::string path;
    const int status = inBox.GetRopeFilePath(id, path);
    return IsSuccessfulHTTPStatus(status) ? inBox.GetSession(id, outSession) : status;
}

/// Whether the person who signed in last may open a file: one that belongs to nobody is anybody's. 200; 403; 500: whose
/// it is cannot be read.
int MayOpen(ProjectBox& inBox, const dto::Session& inSession, const std::string& inPath)
{
    LinkState link;
    if (!inBox.ReadLinkState(inSession.mIdentifier, link)) return noxnet::kHTTPStatus_InternalServerError;
    const std::string associatedGUID = link.mAssociation.mCorvaneID.Text();
    const std::string associatedEmail = link.mAssociation.mUserID.Text();
    if (associatedGUID.empty() && associatedEmail.empty()) return noxnet::kHTTPStatus_OK;
    VYCL::VYLoginData login;
    VYCL::Registry::GetLastLoginData(login);
    const bool isSame =
        associatedGUID.empty() ? associatedEmail == login.mUserEmail : associatedGUID == login.mPersonGUID;
    if (isSame) return noxnet::kHTTPStatus_OK;
    LogWarning(kServiceLogCategory, "OpenRopeFile: user does not have permission to open this file",
               {{"file", inPath},
                {"associatedGUID", associatedGUID},
                {"associatedEmail", associatedEmail},
                {"currentGUID", login.mPersonGUID},
                {"currentEmail", login.mUserEmail}});
    return noxnet::kHTTPStatus_Forbidden;
}

/// The same of a session that is known: 200 as well where it lies in no file; 404: there is none.
int MayUse(ProjectBox& inBox, const ImmutableString& inID)
{
    std::string path;
    dto::Session session;
    const int status = inBox.GetSession(inID, session);
    if (!IsSuccessfulHTTPStatus(status) || session.mRopeFileID.empty()) return status;
    inBox.GetRopeFilePath(inID, path);
    return MayOpen(inBox, session, path);
}

/// A synchronized project is somebody's and gets its remote side, and what happens there is looked for. Whether that
/// succeeds is no matter of the file.
void Engage(SyncBox& inSyncBox, const dto::Session& inSession)
{
    LinkState link;
    const auto box = ProjectBox::Instance();
    if (box && box->ReadLinkState(inSession.mIdentifier, link)) {
        // One that stayed here for a while belongs to nobody, whatever its remote side is.
        if (link.mAssociation.mUserID.empty() && link.mAssociation.mCorvaneID.empty()) {
            VYCL::VYLoginData login;
            VYCL::Registry::GetLastLoginData(login);
            inSyncBox.AssociateWithUserOnly(inSession.mIdentifier, login.mUserEmail, false);
        }
        if (!link.mAssociated) inSyncBox.CreateRemoteAssociatedSession(inSession.mIdentifier, {});
    }
    inSyncBox.EngagePollingForSync(inSession.mIdentifier, false);
}

/// The link goes last: until the store has let go of the session, a question for its status makes one.
int Close(ProjectBox& inBox, SyncBox& inSyncBox, const ImmutableString& inSessionID)
{
    inSyncBox.DisengagePollingForSync(inSessionID);
    inSyncBox.TerminateSyncJobsForSession(inSessionID);
    const int status = inBox.ClearSandbox(inSessionID);
    if (IsSuccessfulHTTPStatus(status)) inSyncBox.DisconnectAndCloseSession(inSessionID);
    return status;
}

int SetMode(const RopeCall& inCall, const ImmutableString& inMode, dto::Session& ioSession)
{
    const int status = inCall.mProjectBox->SetSyncModeOfRopeFile(ioSession.mIdentifier, inMode);
    if (!IsSuccessfulHTTPStatus(status)) return status;
    ioSession.mLocalOnly = inMode == SyncMode_LocalOnly();
    if (ioSession.mLocalOnly) inCall.mSyncBox->DisengagePollingForSync(ioSession.mIdentifier);
    inCall.mSyncBox->DisconnectAndCloseSession(ioSession.mIdentifier);
    if (!ioSession.mLocalOnly) Engage(*inCall.mSyncBox, ioSession);
    return status;
}

/// The sessions that lie in files, open ones and such as were found by a scan: which project each one is.
using Projects = std::map<ImmutableString, ImmutableString>;
Projects SessionsInFiles(ProjectBox& inBox)
{
    Projects projects;
    for (const dto::Session& session : inBox.GetSessions())
        if (!session.mRopeFileID.empty()) projects.emplace(session.mIdentifier, session.mRopeFileID);
    return projects;
}

/// A file that was moved is no longer the session that it was, and its link is not that of what lies there now.
void EndLinksOfMoved(ProjectBox& inBox, SyncBox& inSyncBox, const Projects& inBefore)
{
    const Projects now = SessionsInFiles(inBox);
    for (const auto& [id, project] : inBefore) {
        const auto same = now.find(id);
        if (same != now.end() && same->second == project) continue;
        inSyncBox.DisengagePollingForSync(id);
        inSyncBox.TerminateSyncJobsForSession(id);
        inSyncBox.DisconnectAndCloseSession(id);
    }
}

int MakeOrOpen(const RopeCall& inCall, dto::Session& outSession)
{
    const RopeSettings& settings = inCall.mSettings;
    const CreateMode mode = settings.mCreateMode.value_or(CreateMode::Never);
    if (mode == CreateMode::Never) return inCall.mProjectBox->OpenRopeFile(settings.mPath, outSession);
    const int status = inCall.mProjectBox->CreateRopeFile(settings.mPath, settings.mProperties,
                                                          mode == CreateMode::Overwrite, outSession);
    // What is known of a file that was there before is not true of this one.
    if (IsSuccessfulHTTPStatus(status)) inCall.mSyncBox->DisconnectAndCloseSession(outSession.mIdentifier);
    return status;
}

int OpenRopeFile(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    RopeCall call;
    int status = call.Enter(*inRequest);
    if (!IsSuccessfulHTTPStatus(status)) return status;
    if (call.mSettings.mPath.empty()) return Refuse(*inRequest, "RopeFileService: Bad form element");
    dto::Session session;
    const Projects before = SessionsInFiles(*call.mProjectBox);
    status = MakeOrOpen(call, session);
    EndLinksOfMoved(*call.mProjectBox, *call.mSyncBox, before);
    if (!IsSuccessfulHTTPStatus(status)) return status;
    const int allowed = MayOpen(*call.mProjectBox, session, call.mSettings.mPath);
    if (!IsSuccessfulHTTPStatus(allowed)) {
        // What was known already stays so, for whom it belongs to.
        if (before.contains(session.mIdentifier))
            call.mProjectBox->ReleaseFiles(session.mIdentifier);
        else
            Close(*call.mProjectBox, *call.mSyncBox, session.mIdentifier);
        return allowed;
    }
    const bool isNew = status == noxnet::kHTTPStatus_Created;
    if (isNew && !call.mSettings.mSyncMode.empty()) {
        const int set = SetMode(call, call.mSettings.mSyncMode, session);
        if (!IsSuccessfulHTTPStatus(set)) return set;
    } else if (!session.mLocalOnly) {
        Engage(*call.mSyncBox, session);
    }
    return AnswerSession(inRequest, inResponse, status, Template::kProduction, session);
}

int CloseRopeFile(const RequestPtr& inRequest, const ResponsePtr&)
{
    const auto projectBox = ProjectBox::Instance();
    const auto syncBox = SyncBox::Instance();
    if (projectBox == nullptr || syncBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    dto::Session session;
    int status = FindRopeSession(*inRequest, *projectBox, session);
    if (!IsSuccessfulHTTPStatus(status)) return status;
    status = Close(*projectBox, *syncBox, session.mIdentifier);
    return IsSuccessfulHTTPStatus(status) ? noxnet::kHTTPStatus_NoContent : status;
}

int CopyToRopeFile(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    RopeCall call;
    int status = call.Enter(*inRequest);
    if (!IsSuccessfulHTTPStatus(status)) return status;
    const RopeSettings& settings = call.mSettings;
    ImmutableString sessionID;
    ImmutableString revision;
    if (!ExtractSubExpression(*inRequest, kProductionGroup, sessionID) ||
        !ExtractSubExpression(*inRequest, kCommitGroup, revision))
        return noxnet::kHTTPStatus_BadRequest;
    if (settings.mPath.empty() || settings.mCreateMode == CreateMode::Never)
        return Refuse(*inRequest, "RopeFileService: Bad form element");
    if (!(revision == settings.mCommitID)) {
        LogWarning(kServiceLogCategory,
                   "CopyToRopeFile: URL revision (revisionID) does not match revision to copy (commitID)",
                   {{"expression", "revisionID != settings.mProperties.commitId"},
                    {"sessionID", sessionID},
                    {"revisionID", revision},
                    {"commitID", settings.mCommitID},
                    {"properties", settings.mProperties.mProperties.Text()}});
        return noxnet::kHTTPStatus_BadRequest;
    }
    status = MayUse(*call.mProjectBox, sessionID);
    if (!IsSuccessfulHTTPStatus(status)) return status;
    dto::Session copy;
    const bool overwrite = settings.mCreateMode == CreateMode::Overwrite;
    status = call.mProjectBox->CopyToRopeFile(sessionID, revision, settings.mPath, overwrite, copy);
    if (!IsSuccessfulHTTPStatus(status)) return status;
    call.mSyncBox->DisconnectAndCloseSession(copy.mIdentifier);
    if (!settings.mSyncMode.empty()) {
        const int set = SetMode(call, settings.mSyncMode, copy);
        if (!IsSuccessfulHTTPStatus(set)) return set;
    }
    return AnswerSession(inRequest, inResponse, status, Template::kProduction, copy);
}

int SetSyncMode(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    RopeCall call;
    int status = call.Enter(*inRequest);
    if (!IsSuccessfulHTTPStatus(status)) return status;
    if (call.mSettings.mSyncMode.empty()) return Refuse(*inRequest, "RopeFileService: Bad form element");
    dto::Session session;
    status = FindRopeSession(*inRequest, *call.mProjectBox, session);
    if (IsSuccessfulHTTPStatus(status)) status = MayUse(*call.mProjectBox, session.mIdentifier);
    if (IsSuccessfulHTTPStatus(status)) status = SetMode(call, call.mSettings.mSyncMode, session);
    return IsSuccessfulHTTPStatus(status) ? AnswerSession(inRequest, inResponse, status, Template::kProduction, session)
                                          : status;
}

}  // namespace

RopeFileService::RopeFileService()
{
    Sync("POST", "open", OpenRopeFile);
    Async("POST", "copyTo", OnWorker(CopyToRopeFile));
    Sync("POST", "close", CloseRopeFile);
    Sync("POST", "setSyncMode", SetSyncMode);
}

}  // namespace VantryLocalHub
