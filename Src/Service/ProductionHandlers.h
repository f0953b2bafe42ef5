#pragma once

#include "Inc/Model/ProjectBox.h"
#include "Inc/Service/VantryAPIService.h"
#include "Inc/Sync/SyncBox.h"

// The handlers of ProductionService, by file: deletion, properties, content.
namespace VantryLocalHub::ProductionHandlers {

/// The two elements of the URL that every handler reads.
struct Place
{
    ImmutableString mProductionID;
    ImmutableString mRevision;
};

/// False with a record when the match has no such groups.
bool ReadPlace(const RequestPtr& inRequest, Place& outPlace);
/// 400 for a body that cannot be used, with the record.
int RefuseBadPayload(const RequestPtr& inRequest);
/// The production at "HEAD", for operations that do not care about the revision of the URL.
int GetAtHead(ProjectBox& inProjectBox, const ImmutableString& inProductionID, dto::Session& outProduction);

void Delete(const RequestPtr& inRequest, const ResponsePtr& inResponse, Completion inCompletion);

void GetProperties(const RequestPtr& inRequest, const ResponsePtr& inResponse, const Completion& inCompletion);
int EditProperties(const RequestPtr& inRequest, const ResponsePtr& inResponse);

int GetEnclosures(const RequestPtr& inRequest, const ResponsePtr& inResponse);
int GetEnclosure(const RequestPtr& inRequest, const ResponsePtr& inResponse);
int GetEnclosureByContentID(const RequestPtr& inRequest, const ResponsePtr& inResponse);
int GetSizeInfo(const RequestPtr& inRequest, const ResponsePtr& inResponse);

}  // namespace VantryLocalHub::ProductionHandlers
