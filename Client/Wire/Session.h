#pragma once

#include <optional>
#include <string>

#include "Client/Wire/Differences.h"
#include "Client/Wire/Production.h"
#include "Client/Wire/Record.h"
#include "Client/Wire/SessionResource.h"

namespace VantryLocalHub::dto {

/// A session, or the production that it belongs to, as store and engine hand it around: the record of one session's
/// head, or of a production's head. Not a wire record; the services make SessionResource, SessionDescriptor,
/// ProductionResource and ProductionDescriptor of it.
struct Session
{
    ImmutableString mIdentifier;          ///< session id
    ImmutableString mProductionID;        ///< "p-..." for what was made here
    ImmutableString mRevision;            ///< head of branch `session`; of a production's record, of `production`
    ImmutableString mProductionRevision;  ///< head of branch `production`: `vy:baseCommitId` on the wire
    RawJSON mProperties;                  ///< of mRevision
    RFC3339DateTime mModified;            ///< time of mRevision
    std::string mOwner;
    bool mLocalOnly = false;
    ImmutableString mRopeFileID;  ///< empty unless the session is a single-file project
    ImmutableString mRemoteSharedProductionID;
    ImmutableString mSnapshotRootAssetID;
    ImmutableString mPlexaID;
    ImmutableString mPlexaURN;
    bool mHasBin = false;  ///< the head holds at least one asset of type bin

    friend bool operator==(const Session&, const Session&) = default;
};

/// The properties of a session or production, with the mark of a conflict where they are in one.
struct ProductionProperties
{
    RawJSON mProperties;
    std::optional<ConflictMarker> mConflict;

    friend bool operator==(const ProductionProperties&, const ProductionProperties&) = default;
};

using ProductionLink = ProductionDescriptor;
using SessionLink = SessionDescriptor;

}  // namespace VantryLocalHub::dto
