#pragma once

#include <vector>

#include "Client/Wire/Asset.h"
#include "Client/Wire/Differences.h"
#include "Client/Wire/Production.h"
#include "Client/Wire/Session.h"
#include "Client/Wire/SessionResource.h"
#include "Inc/Service/ServiceUtils.h"

// Wire records made of the store's records, and the links that go with them.
namespace VantryLocalHub {

/// Whether a path element names the newest commit.
bool IsHead(const ImmutableString& inRevision);

dto::ProductionResource MakeProductionResource(dto::Session inProduction);
dto::ProductionDescriptor MakeProductionDescriptor(dto::Session inProduction);
dto::SessionResource MakeSessionResource(dto::Session inSession);
dto::SessionDescriptor MakeSessionDescriptor(dto::Session inSession);

/// The tag of a production at one revision. The links, which follow the host of the request, are no part of it.
std::string ProductionTag(const dto::Session& inProduction);

void AddProductionLinks(LinkMaker& ioMaker, const ImmutableString& inProductionID, const ImmutableString& inRevision,
                        std::vector<dto::Link>& outLinks);
void AddSessionLinks(LinkMaker& ioMaker, const ImmutableString& inProductionID, std::vector<dto::Link>& outLinks);
void AddTransactionLinks(LinkMaker& ioMaker, const ImmutableString& inTransactionID, const ImmutableString& inSessionID,
                         const ImmutableString& inRevision, std::vector<dto::Link>& outLinks);
/// What a transaction leads to beside itself.
void AddTransactionReadLinks(LinkMaker& ioMaker, const ImmutableString& inSessionID, const ImmutableString& inRevision,
                             std::vector<dto::Link>& outLinks);
/// Links of each entry to the thing on the side where it last was. The sides of the record are set.
void AddDifferenceLinks(LinkMaker& ioMaker, const ImmutableString& inProductionID,
                        dto::DifferencesResource& ioDifferences);

/// "accept-theirs" or "accept-yours".
bool IsConflictStrategy(std::string_view inText);

/// Answers a session that was made, with Location and ETag. inStatus, or 500 where no URL can be made.
int AnswerSession(const RequestPtr& inRequest, const ResponsePtr& inResponse, int inStatus, URLFormat inLocation,
                  const dto::Session& inSession);
/// Answers a production at the head of the given record, with Location where inWithLocation is set.
int AnswerProduction(const RequestPtr& inRequest, const ResponsePtr& inResponse, int inStatus, bool inWithLocation,
                     const dto::Session& inProduction);
/// Answers an asset at a revision: the asset's own tag, 304 where the request has it.
int AnswerAsset(const RequestPtr& inRequest, const ResponsePtr& inResponse, const ImmutableString& inProductionID,
                const ImmutableString& inRevision, dto::Asset inAsset);

}  // namespace VantryLocalHub
