#include <string>

#include "Client/Wire/Operations/Operations.h"
#include "Client/Wire/Operations/Parameters.h"
#include "Platform/noxnet/HTTPServer.h"
#include "Tools/apidoc/Documents.h"
#include "Tools/apidoc/Schemas.h"
#include "Tools/apidoc/Statuses.h"

namespace apidoc {

namespace API = VantryLocalHub::API;

namespace {

constexpr const char* kJSON = "application/json";
constexpr const char* kBinary = "application/octet-stream";
constexpr const char* kMultipart = "multipart/form-data";
constexpr const char* kURLEncoded = "application/x-www-form-urlencoded";

JSON ParameterReference(std::string_view inName)
{
    return {{"$ref", std::string("#/components/parameters/").append(inName)}};
}

JSON Content(const char* inType, JSON inSchema)
{
    return {{inType, {{"schema", std::move(inSchema)}}}};
}

JSON HeaderParameter(std::string_view inName, std::string_view inMeaning)
{
    return {{"name", inName},
            {"in", "header"},
            {"required", false},
            {"description", inMeaning},
            {"schema", {{"type", "string"}}}};
}

JSON Parameters(const Resource& inResource, const Operation& inOperation)
{
    JSON parameters = JSON::array();
    for (const std::string& name : NamesInPath(inOperation.mPath.Named()))
        parameters.push_back(ParameterReference(name));
    for (const std::string_view key : inOperation.mQueryKeys)
        parameters.push_back(ParameterReference(key));
    if (inOperation.mBody == API::BodyKind::FormOrQuery)
        for (const API::Field& field : inOperation.mBodyFields)
            parameters.push_back({{"name", field.mKey.View()},
                                  {"in", "query"},
                                  {"required", false},
                                  {"description", field.mMeaning},
                                  {"schema", SchemaOfField(field, false)}});
    if (inOperation.mIsTagged) parameters.push_back(ParameterReference(noxnet::kHEADER_IfNoneMatch));
    if (IsLongPoll(inResource, inOperation)) parameters.push_back(ParameterReference(noxnet::kHEADER_XLONGPOLL));
    return parameters;
}

/// The same fields as a multipart form, as an urlencoded one and as a JSON object.
JSON FormContent(API::Fields inFields)
{
    JSON encoding = JSON::object();
    for (const API::Field& field : inFields)
        if (field.mKind == API::ValueKind::Object) encoding[std::string(field.mKey.View())] = {{"contentType", kJSON}};
    JSON content = JSON::object();
    for (const char* type : {kMultipart, kURLEncoded}) {
        content[type] = {{"schema", SchemaOfFields(inFields, false)}};
        if (!encoding.empty()) content[type]["encoding"] = encoding;
    }
    content[kJSON] = {{"schema", SchemaOfFields(inFields, true)}};
    return content;
}

JSON BodyContent(const Operation& inOperation)
{
    switch (inOperation.mBody) {
        case API::BodyKind::None:
            break;
        case API::BodyKind::Record:
            return Content(kJSON, Reference(inOperation.mBodyRecord, Way::Read));
        case API::BodyKind::Records:
            return Content(kJSON, {{"type", "array"}, {"items", Reference(inOperation.mBodyRecord, Way::Read)}});
        case API::BodyKind::Properties:
            return Content(kJSON, {{"type", "object"}, {"additionalProperties", true}});
        case API::BodyKind::Form:
        case API::BodyKind::FormOrQuery:
            return FormContent(inOperation.mBodyFields);
        case API::BodyKind::Object:
            return Content(kJSON, SchemaOfFields(inOperation.mBodyFields, true));
        case API::BodyKind::RowsToFill:
            return Content(kMultipart, SchemaOfTransactionRows(false));
        case API::BodyKind::RowsToDelete:
            return Content(kMultipart, SchemaOfTransactionRows(true));
    }
    return {};
}

JSON Body(const Operation& inOperation)
{
    const bool isRequired = !inOperation.mBodyIsOptional && inOperation.mBody != API::BodyKind::FormOrQuery;
    JSON body = {{"required", isRequired}, {"content", BodyContent(inOperation)}};
    if (!inOperation.mBodyNote.empty()) body["description"] = inOperation.mBodyNote;
    return body;
}

JSON AnswerContent(const Answer& inAnswer)
{
    if (inAnswer.mKind == API::AnswerKind::Payload) return {{kBinary, JSON::object()}};
    JSON schemas = JSON::array();
    for (const std::string_view record : inAnswer.mRecords)
        if (!record.empty()) schemas.push_back(Reference(record, Way::Answered));
    return Content(kJSON, schemas.size() == 1 ? schemas.front() : JSON{{"anyOf", schemas}});
}

JSON AnswerHeaders(const Operation& inOperation, const Answer& inAnswer)
{
    JSON headers = JSON::object();
    const auto refer = [&headers](std::string_view inName) {
        headers[std::string(inName)] = {{"$ref", std::string("#/components/headers/").append(inName)}};
    };
    const bool hasBody = inAnswer.mKind != API::AnswerKind::Nothing;
    if (inOperation.mIsTagged || (inOperation.mIsLocated && hasBody)) refer(noxnet::kHEADER_ETag);
    if (inOperation.mIsLocated) refer(noxnet::kHEADER_Location);
    if (inOperation.mHeader.IsSet())
        headers[std::string(inOperation.mHeader.View())] = {{"description", inOperation.mHeaderMeaning},
                                                            {"schema", {{"type", "string"}}}};
    return headers;
}

JSON Response(const Operation& inOperation, int inStatus, const Status& inWhat)
{
    constexpr int kRedirected = 307;
    constexpr int kNotModified = 304;
    if (inStatus == kRedirected) return {{"$ref", "#/components/responses/Redirected"}};
    JSON response = {{"description", inWhat.mMeaning.empty() ? "done" : inWhat.mMeaning}};
    if (inStatus == kNotModified && inOperation.mIsTagged)
        response["headers"] = {{"ETag", {{"$ref", "#/components/headers/ETag"}}}};
    if (inWhat.mAnswer == nullptr) return response;
    if (JSON headers = AnswerHeaders(inOperation, *inWhat.mAnswer); !headers.empty()) response["headers"] = headers;
    if (inWhat.mAnswer->mKind != API::AnswerKind::Nothing) response["content"] = AnswerContent(*inWhat.mAnswer);
    return response;
}

JSON Responses(const Resource& inResource, const Operation& inOperation)
{
    JSON responses = JSON::object();
    for (const auto& [status, what] : StatusesOf(inResource, inOperation))
        responses[std::to_string(status)] = Response(inOperation, status, what);
    responses["default"] = {{"$ref", "#/components/responses/Refused"}};
    return responses;
}

JSON OperationObject(const Resource& inResource, const Operation& inOperation)
{
    JSON object = {
        {"tags", {inResource.mTitle}}, {"operationId", OperationID(inOperation)}, {"summary", inOperation.mSummary}};
    if (JSON parameters = Parameters(inResource, inOperation); !parameters.empty()) object["parameters"] = parameters;
    if (inOperation.mBody != API::BodyKind::None) object["requestBody"] = Body(inOperation);
    object["responses"] = Responses(inResource, inOperation);
    return object;
}

std::string LowerCase(std::string_view inText)
{
    std::string text(inText);
    for (char& letter : text)
        letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
    return text;
}

JSON Paths()
{
    JSON paths = JSON::object();
    for (const Resource& resource : API::kResources)
        for (const Operation& operation : resource.mOperations)
            paths[operation.mPath.Named()][LowerCase(operation.mMethod)] = OperationObject(resource, operation);
    return paths;
}

JSON Tags()
{
    JSON tags = JSON::array();
    for (const Resource& resource : API::kResources) {
        tags.push_back({{"name", resource.mTitle}});
        if (!resource.mAbout.empty()) tags.back()["description"] = resource.mAbout;
    }
    return tags;
}

JSON ComponentParameters()
{
    JSON parameters = JSON::object();
    for (const API::PathParameter& parameter : API::kPathParameters)
        parameters[std::string(parameter.mName)] = {{"name", parameter.mName},
                                                    {"in", "path"},
                                                    {"required", true},
                                                    {"description", parameter.mMeaning},
                                                    {"schema", {{"type", "string"}}},
                                                    {"example", parameter.mSample}};
    for (const API::QueryParameter& parameter : API::kQueryParameters)
        parameters[std::string(parameter.mKey)] = {{"name", parameter.mKey},
                                                   {"in", "query"},
                                                   {"required", false},
                                                   {"description", parameter.mMeaning},
                                                   {"schema", {{"type", "string"}}}};
    parameters[std::string(noxnet::kHEADER_IfNoneMatch)] =
        HeaderParameter(noxnet::kHEADER_IfNoneMatch, "the `ETag` of an earlier answer, as it came");
    parameters[std::string(noxnet::kHEADER_XLONGPOLL)] =
        HeaderParameter(noxnet::kHEADER_XLONGPOLL,
                        "with any value: the answer comes when the tag is no longer that of `If-None-Match`");
    return parameters;
}

JSON Components()
{
    const JSON text = {{"type", "string"}};
    std::string refused = "Refused, without a body. Beside the statuses above, any request can be answered";
    for (const CommonStatus& status : kCommonStatuses)
        refused.append("\n- ").append(std::to_string(status.mStatus)).append(": ").append(status.mWhen);
    return {{"parameters", ComponentParameters()},
            {"headers",
             {{"ETag", {{"description", "entity tag, without quotation marks, compared as text"}, {"schema", text}}},
              {"Location", {{"description", "where the resource is"}, {"schema", text}}}}},
            {"responses",
             {{"Redirected",
               {{"description", "the revision is \"HEAD\": `Location` has the path with the commit, without the query"},
                {"headers", {{"Location", {{"$ref", "#/components/headers/Location"}}}}}}},
              {"Refused", {{"description", refused}}}}},
            {"schemas", AllSchemas()}};
}

}  // namespace

std::string OpenAPIDocument()
{
    const JSON document = {
        {"openapi", "3.1.0"},
        {"info",
         {{"title", "Local Hub"},
          {"version", API::kVersion},
          {"description",
           "The HTTP API of the Local Hub. Written by the program that knows the routing table and the records; "
           "api.md beside this file tells how to use it."}}},
        {"servers",
         {{{"url", "http://127.0.0.1:{port}"},
           {"description", "the hub of the user; clients learn its port through RPC"},
           {"variables", {{"port", {{"default", "8080"}}}}}}}},
        {"tags", Tags()},
        {"paths", Paths()},
        {"components", Components()}};
    constexpr int kIndent = 2;
    return document.dump(kIndent) + "\n";
}

}  // namespace apidoc
