#pragma once

#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include "Client/Wire/Differences.h"
#include "Client/Wire/Link.h"
#include "Client/Wire/Record.h"

namespace VantryLocalHub::dto {

struct Collaborator
{
    std::string mEmail;
    ImmutableString mID;
    ImmutableString mLinkedID;
    std::string mFullName;
    ImmutableString mStatus;
    std::vector<Link> mLinks;

    static constexpr auto kFields =
        std::tuple{Always("email", &Collaborator::mEmail),       Always("id", &Collaborator::mID),
                   Always("linkedId", &Collaborator::mLinkedID), Always("fullName", &Collaborator::mFullName),
                   Always("status", &Collaborator::mStatus),     Always("links", &Collaborator::mLinks)};
    friend bool operator==(const Collaborator&, const Collaborator&) = default;
};

/// An invitation as a client sends it. What the hub does not look into passes through as it came.
struct Invitation
{
    RawValue mAdditionalPermissions;
    std::string mRecipient;
    ImmutableString mRole;
    bool mCanShare = false;
    bool mCanComment = false;
    std::string mInheritance;
    std::string mPassword;  ///< belongs to the invitation; the hub leaves it empty
    bool mDiscloseCreatorEmail = false;
    RawValue mSharedOn;
    RawValue mAutoAddConfig;
    bool mUseMounts = false;
    bool mAcceptanceRequired = false;
    std::string mTemplateName;
    std::string mLocale;
    RawValue mAcceptance;
    std::string mTargetURL;
    RawValue mParameters;
    std::string mUserResponse;
    std::string mSiteKey;
    RawValue mConfiguration;
    std::string mCaptcha;
    RawValue mNotification;

    static constexpr auto kFields = std::tuple{WhenSet("additionalPermissions", &Invitation::mAdditionalPermissions),
                                               WhenSet("recipient", &Invitation::mRecipient),
                                               WhenSet("role", &Invitation::mRole),
                                               WhenSet("canShare", &Invitation::mCanShare),
                                               WhenSet("canComment", &Invitation::mCanComment),
                                               WhenSet("inheritance", &Invitation::mInheritance),
                                               ReadOnly("password", &Invitation::mPassword),
                                               WhenSet("discloseCreatorEmail", &Invitation::mDiscloseCreatorEmail),
                                               WhenSet("sharedOn", &Invitation::mSharedOn),
                                               WhenSet("autoAddConfig", &Invitation::mAutoAddConfig),
                                               WhenSet("useMounts", &Invitation::mUseMounts),
                                               WhenSet("acceptanceRequired", &Invitation::mAcceptanceRequired),
                                               WhenSet("templateName", &Invitation::mTemplateName),
                                               WhenSet("locale", &Invitation::mLocale),
                                               WhenSet("acceptance", &Invitation::mAcceptance),
                                               WhenSet("targetUrl", &Invitation::mTargetURL),
                                               WhenSet("parameters", &Invitation::mParameters),
                                               WhenSet("userResponse", &Invitation::mUserResponse),
                                               WhenSet("siteKey", &Invitation::mSiteKey),
                                               WhenSet("configuration", &Invitation::mConfiguration),
                                               WhenSet("captcha", &Invitation::mCaptcha),
                                               WhenSet("notification", &Invitation::mNotification)};
    friend bool operator==(const Invitation&, const Invitation&) = default;
};

struct InvitationAnswer
{
    std::string mRecipient;
    int mStatusCode = 0;
    std::string mStatusText;
    ImmutableString mID;
    int mStatusSubCode = 0;

    static constexpr auto kFields = std::tuple{
        Always("recipient", &InvitationAnswer::mRecipient), Always("statusCode", &InvitationAnswer::mStatusCode),
        Always("statusText", &InvitationAnswer::mStatusText), Always("id", &InvitationAnswer::mID),
        Always("statusSubCode", &InvitationAnswer::mStatusSubCode)};
    friend bool operator==(const InvitationAnswer&, const InvitationAnswer&) = default;
};

struct CollaboratorsResource
{
    std::string mResourceName;
    ImmutableString mResourceType;
    std::string mResourceURN;
    std::vector<Collaborator> mCollaborators;
    std::vector<InvitationAnswer> mInvitations;
    std::vector<Link> mLinks;

    static constexpr auto kFields = std::tuple{Always("resourceName", &CollaboratorsResource::mResourceName),
                                               Always("resourceType", &CollaboratorsResource::mResourceType),
                                               Always("resourceUrn", &CollaboratorsResource::mResourceURN),
                                               Always("collaborators", &CollaboratorsResource::mCollaborators),
                                               Always("invitations", &CollaboratorsResource::mInvitations),
                                               Always("links", &CollaboratorsResource::mLinks)};
    friend bool operator==(const CollaboratorsResource&, const CollaboratorsResource&) = default;
};

/// An invitation that the user has received.
struct Invite
{
    std::string mResourceName;
    std::string mResourceURN;
    ImmutableString mResourceType;
    std::string mSender;
    RFC3339DateTime mCreated;
    std::vector<Link> mLinks;

    static constexpr auto kFields =
        std::tuple{Always("resourceName", &Invite::mResourceName), Always("resourceUrn", &Invite::mResourceURN),
                   Always("resourceType", &Invite::mResourceType), Always("sender", &Invite::mSender),
                   Always("created", &Invite::mCreated),           Always("links", &Invite::mLinks)};
    friend bool operator==(const Invite&, const Invite&) = default;
};

struct InvitesResource
{
    std::vector<Invite> mInvites;
    std::vector<Link> mLinks;
    ImmutableString mResourceType;  ///< in the answer to an invite that was accepted or rejected
    std::string mResourceURN;

    static constexpr auto kFields =
        std::tuple{Always("invites", &InvitesResource::mInvites), Always("links", &InvitesResource::mLinks),
                   WhenSet("localhub:resourceType", &InvitesResource::mResourceType),
                   WhenSet("localhub:resourceUrn", &InvitesResource::mResourceURN)};
    friend bool operator==(const InvitesResource&, const InvitesResource&) = default;
};

/// What is to become of a collaborator or an invitation.
struct ModifyCollaborator
{
    std::string mAction;
    std::string mModifyMode;

    static constexpr auto kFields = std::tuple{Always("action", &ModifyCollaborator::mAction),
                                               Always("modifyMode", &ModifyCollaborator::mModifyMode)};
    friend bool operator==(const ModifyCollaborator&, const ModifyCollaborator&) = default;
};

/// What a collaborator has changed.
struct ActivityEntry
{
    ImmutableString mBaseCommitID;
    ImmutableString mCommitID;
    RFC3339DateTime mCreated;
    ImmutableString mCollaboratorID;
    ImmutableString mDifferenceType;
    RawJSON mProperties;
    DifferenceLists mDifferences;

    static constexpr auto kFields = std::tuple{Always("baseCommitId", &ActivityEntry::mBaseCommitID),
                                               Always("commitId", &ActivityEntry::mCommitID),
                                               Always("created", &ActivityEntry::mCreated),
                                               Always("collaboratorID", &ActivityEntry::mCollaboratorID),
                                               Always("differenceType", &ActivityEntry::mDifferenceType),
                                               Always("properties", &ActivityEntry::mProperties),
                                               Always("differences", &ActivityEntry::mDifferences)};
    friend bool operator==(const ActivityEntry&, const ActivityEntry&) = default;
};

struct ActivityResource
{
    std::vector<ActivityEntry> mProductionActivity;
    std::vector<ActivityEntry> mSessionActivity;
    std::vector<Link> mLinks;

    static constexpr auto kFields = std::tuple{Always("productionActivity", &ActivityResource::mProductionActivity),
                                               Always("sessionActivity", &ActivityResource::mSessionActivity),
                                               Always("links", &ActivityResource::mLinks)};
    friend bool operator==(const ActivityResource&, const ActivityResource&) = default;
};

/// Who has the production open now.
struct PresenceResource
{
    std::vector<Collaborator> mPresence;
    bool mEngaged = false;
    bool mConnected = false;
    std::vector<Link> mLinks;

    static constexpr auto kFields =
        std::tuple{Always("presence", &PresenceResource::mPresence), Always("engaged", &PresenceResource::mEngaged),
                   Always("connected", &PresenceResource::mConnected), Always("links", &PresenceResource::mLinks)};
    friend bool operator==(const PresenceResource&, const PresenceResource&) = default;
};

/// The lock on one asset.
struct Baton
{
    ImmutableString mHolderID;
    std::string mHolderEmail;
    std::int64_t mSequenceNumber = 0;

    static constexpr auto kFields =
        std::tuple{Always("mHolderID", &Baton::mHolderID), Always("mHolderEmail", &Baton::mHolderEmail),
                   Always("mSequenceNumber", &Baton::mSequenceNumber)};
    friend bool operator==(const Baton&, const Baton&) = default;
};

struct BatonsResource
{
    std::vector<Baton> mLockedBatons;
    bool mEngaged = false;
    bool mConnected = false;
    std::vector<Link> mLinks;

    static constexpr auto kFields =
        std::tuple{Always("lockedBatons", &BatonsResource::mLockedBatons), Always("engaged", &BatonsResource::mEngaged),
                   Always("connected", &BatonsResource::mConnected), Always("links", &BatonsResource::mLinks)};
    friend bool operator==(const BatonsResource&, const BatonsResource&) = default;
};

}  // namespace VantryLocalHub::dto
