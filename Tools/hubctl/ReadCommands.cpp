#include "Tools/hubctl/ReadCommands.h"

#include <ostream>

#include "Client/Wire/Discovery.h"
#include "Client/Wire/OpaqueMembers.h"
#include "Client/Wire/Production.h"
#include "Client/Wire/URLTemplates.h"
#include "Platform/noxnet/HTTPStatus.h"
#include "Tools/hubctl/Table.h"
#include "Tools/hubctl/UTF8Text.h"

namespace hubctl {

namespace Template = VYCL::URLTemplate;

namespace {

std::string TextMember(const dto::RawJSON& inObject, std::string_view inKey)
{
    return dto::TextOf(dto::FindMember(inObject.Text(), inKey));
}

std::string NameOf(const dto::RawJSON& inProperties)
{
    return TextMember(inProperties, "name");
}

const char* YesOrNo(bool inFlag)
{
    return inFlag ? "yes" : "no";
}

bool PrintProductions(std::string_view inBody, std::ostream& outStream)
{
    dto::ProductionsResource resource;
    if (!dto::FromJSON(inBody, resource)) return false;
    Table table({"PRODUCTION", "LOCAL", "BINS", "MODIFIED", "NAME"});
    for (const auto& production : resource.mProductions) {
        table.Add({production.mProductionID.Text(), YesOrNo(production.mLocalOnly), YesOrNo(production.mHasBin),
                   production.mLastModified.Text(), NameOf(production.mProperties)});
    }
    table.Print(outStream);
    return true;
}

bool PrintSessions(std::string_view inBody, std::ostream& outStream)
{
    dto::SessionsResource resource;
    if (!dto::FromJSON(inBody, resource)) return false;
    Table table({"SESSION", "HEAD", "SHARED", "LOCAL", "NAME"});
    for (const auto& session : resource.mSessions) {
        table.Add({session.mSessionID.Text(), session.mCommitID.Text(), session.mBaseCommitID.Text(),
                   YesOrNo(session.mLocalOnly), NameOf(session.mProperties)});
    }
    table.Print(outStream);
    return true;
}

bool PrintAssets(std::string_view inBody, std::ostream& outStream)
{
    dto::AssetsResource resource;
    if (!dto::FromJSON(inBody, resource)) return false;
    Table table({"ASSET", "CONTENT", "TYPE", "ENCLOSURES", "NAME"});
    for (const auto& asset : resource.mAssets) {
        table.Add({asset.mAssetID.Text(), asset.mAssetContentID.Text(), TextMember(asset.mProperties, "lumo:assetType"),
                   std::to_string(asset.mEnclosures.size()), NameOf(asset.mProperties)});
    }
    table.Print(outStream);
    return true;
}

void PrintMembers(const dto::RawJSON& inProperties, std::ostream& outStream)
{
    dto::ForEachMember(inProperties.Text(), [&](std::string_view inKey, std::string_view inValue) {
        outStream << "  " << Printable(inKey) << ": " << Printable(inValue) << '\n';
        return true;
    });
}

bool PrintAsset(std::string_view inBody, std::ostream& outStream)
{
    dto::Asset asset;
    if (!dto::FromJSON(inBody, asset)) return false;
    outStream << "asset:   " << asset.mAssetID.Text() << "\ncontent: " << asset.mAssetContentID.Text()
              << "\nproperties:\n";
    PrintMembers(asset.mProperties, outStream);
    if (asset.mEnclosures.empty()) return true;
    Table table({"ENCLOSURE", "CONTENT", "NAME"});
    for (const auto& enclosure : asset.mEnclosures)
        table.Add({enclosure.mEnclosureID.Text(), enclosure.mEnclosureContentID.Text(), enclosure.mName});
    table.Print(outStream);
    return true;
}

bool PrintProperties(std::string_view inBody, std::ostream& outStream)
{
    dto::ProductionPropertiesResource resource;
    if (!dto::FromJSON(inBody, resource)) return false;
    outStream << "properties:\n";
    PrintMembers(resource.mProperties, outStream);
    return true;
}

bool PrintTransactions(std::string_view inBody, std::ostream& outStream)
{
    dto::TransactionsResource resource;
    if (!dto::FromJSON(inBody, resource)) return false;
    Table table({"TRANSACTION", "OPENED AT", "MODIFIED", "OWNER", "MESSAGE"});
    for (const auto& transaction : resource.mTransactions) {
        table.Add({transaction.mTransactionID.Text(), transaction.mCommitID.Text(), transaction.mLastModified.Text(),
                   transaction.mOwner, transaction.mMetadata.mCommitMessage});
    }
    table.Print(outStream);
    return true;
}

bool PrintDiscovery(std::string_view inBody, std::ostream& outStream)
{
    dto::DiscoveryResource resource;
    if (!dto::FromJSON(inBody, resource)) return false;
    outStream << "server:  " << Printable(resource.mServer.mName) << " (" << Printable(resource.mServer.mDescription)
              << ")\nversion: " << Printable(resource.mServer.mVersion) << "\nAPI:     " << resource.mMajorVersion
              << '.' << resource.mMinorVersion << '\n';
    Table table({"RELATION", "URL"});
    for (const auto& link : resource.mEndpoints)
        table.Add({link.mRel.Text(), link.mHref});
    table.Print(outStream);
    return true;
}

constexpr ReadCommand kReadCommands[] = {
    {"productions", "List the productions", Template::kProductions, "", false, &PrintProductions},
    {"sessions", "List the sessions of a production", Template::kSessions, "i", false, &PrintSessions},
    {"assets", "List the assets of a session", Template::kAssets, "ir", true, &PrintAssets},
    {"asset", "Show one asset", Template::kAsset, "ira", true, &PrintAsset},
    {"properties", "Show the properties of a session", Template::kProductionProperties, "ir", true, &PrintProperties},
    {"transactions", "List the open transactions of a session", Template::kTransactions, "ir", false,
     &PrintTransactions},
    {"discovery", "Show what the hub offers", Template::kDiscovery, "", false, &PrintDiscovery},
};

bool CheckIdentifier(const char* inWhat, const std::string& inText, std::string& outError)
{
    if (IsIdentifier(inText)) return true;
    outError = "\"" + Printable(inText) + "\" cannot be the id of " + inWhat;
    return false;
}

bool MakeURL(const ReadCommand& inCommand, const ReadArguments& inArguments, std::string& outURL, std::string& outError)
{
    std::vector<std::string_view> values;
    for (const char letter : inCommand.mFilling) {
        const std::string& value = letter == 'i'   ? inArguments.mID
                                   : letter == 'r' ? inArguments.mRevision
                                                   : inArguments.mAsset;
        const char* what = letter == 'i' ? "a production or session" : letter == 'r' ? "a revision" : "an asset";
        if (!CheckIdentifier(what, value, outError)) return false;
        values.push_back(value);
    }
    outURL = FillURL(inCommand.mTemplate, values);
    return true;
}

bool FindEnclosure(const dto::Asset& inAsset, const std::string& inIDOrName, std::string& outID)
{
    for (const auto& enclosure : inAsset.mEnclosures) {
        if (enclosure.mEnclosureID.View() != inIDOrName && enclosure.mName != inIDOrName) continue;
        outID = enclosure.mEnclosureID.Text();
        return true;
    }
    return false;
}

}  // namespace

std::span<const ReadCommand> ReadCommands()
{
    return kReadCommands;
}

bool RunReadCommand(const ReadCommand& inCommand, const ReadArguments& inArguments, bool inJSON, HubAPI& inAPI,
                    std::ostream& outStream, std::string& outError)
{
    std::string url;
    if (!MakeURL(inCommand, inArguments, url, outError)) return false;
    std::string body;
    Failure failure;
    if (!inAPI.Get(url, body, failure)) {
        outError = failure.mText;
        return false;
    }
    if (inJSON) {
        outStream << body << '\n';
        return true;
    }
    if (inCommand.mPrint(body, outStream)) return true;
    outError = url + ": the answer cannot be understood";
    return false;
}

bool RunCat(const ReadArguments& inArguments, HubAPI& inAPI, std::ostream& outStream, std::string& outError)
{
    if (!CheckIdentifier("a production or session", inArguments.mID, outError) ||
        !CheckIdentifier("a revision", inArguments.mRevision, outError) ||
        !CheckIdentifier("an asset", inArguments.mAsset, outError)) {
        return false;
    }
    dto::Asset asset;
    Failure failure;
    if (!inAPI.GetAsset(inArguments.mID, inArguments.mRevision, inArguments.mAsset, asset, failure)) {
        outError = failure.mText;
        return false;
    }
    std::string enclosure;
    if (!FindEnclosure(asset, inArguments.mEnclosure, enclosure)) {
        outError = "the asset has no enclosure \"" + Printable(inArguments.mEnclosure) + "\"";
        return false;
    }
    const std::string url =
        FillURL(Template::kAssetEnclosureById, {inArguments.mID, inArguments.mRevision, inArguments.mAsset, enclosure});
    const auto sink = [&](std::string_view inBytes) {
        return outStream.write(inBytes.data(), static_cast<std::streamsize>(inBytes.size())).good();
    };
    if (inAPI.Download(url, sink, failure)) return true;
    outError = failure.mText;
    return false;
}

bool RunDelete(const ReadArguments& inArguments, bool inJSON, HubAPI& inAPI, std::ostream& outStream,
               std::string& outError)
{
    if (!CheckIdentifier("a production or session", inArguments.mID, outError)) return false;
    Failure failure;
    if (!inAPI.Delete(FillURL(Template::kProduction_LocalOnly, {inArguments.mID}), failure)) {
        outError = failure.mText;
        // What is not here is looked for at the server, which this hub does not talk to.
        if (failure.mStatus == noxnet::kHTTPStatus_NotImplemented)
            outError = "there is no local production or session " + inArguments.mID;
        return false;
    }
    if (inJSON) {
        outStream << "{\"deleted\":\"" << inArguments.mID << "\"}\n";
    } else {
        outStream << "Deleted " << inArguments.mID << '\n';
    }
    return true;
}

bool RunStatus(std::uint16_t inPort, bool inJSON, HubAPI& inAPI, std::ostream& outStream, std::string& outError)
{
    dto::DiscoveryResource discovery;
    dto::ProductionsResource productions;
    Failure failure;
    if (!inAPI.GetRecord(std::string(Template::kDiscovery), discovery, failure) ||
        !inAPI.GetRecord(std::string(Template::kProductions), productions, failure)) {
        outError = failure.mText;
        return false;
    }
    if (inJSON) {
        dto::JSONWriter writer;
        writer.BeginObject();
        writer.Member("name", discovery.mServer.mName);
        writer.Member("version", discovery.mServer.mVersion);
        writer.Key("port");
        writer.Int(inPort);
        writer.Key("productions");
        writer.Int(static_cast<std::int64_t>(productions.mProductions.size()));
        writer.EndObject();
        outStream << writer.Text() << '\n';
        return true;
    }
    outStream << Printable(discovery.mServer.mName) << ' ' << Printable(discovery.mServer.mVersion)
              << "\nlistens on http://127.0.0.1:" << inPort << "\nproductions: " << productions.mProductions.size()
              << '\n';
    return true;
}

}  // namespace hubctl
