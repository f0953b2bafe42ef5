#pragma once

namespace noxnet {

/// HTTP status codes: the results of every layer of the hub.
constexpr int kHTTPStatus_OK = 200;
constexpr int kHTTPStatus_Created = 201;
constexpr int kHTTPStatus_NoContent = 204;
constexpr int kHTTPStatus_Found = 302;
constexpr int kHTTPStatus_TemporaryRedirect = 307;
constexpr int kHTTPStatus_NotModified = 304;
constexpr int kHTTPStatus_BadRequest = 400;
constexpr int kHTTPStatus_Unauthorized = 401;
constexpr int kHTTPStatus_Forbidden = 403;
constexpr int kHTTPStatus_NotFound = 404;
constexpr int kHTTPStatus_MethodNotAllowed = 405;
constexpr int kHTTPStatus_RequestTimeout = 408;
constexpr int kHTTPStatus_Conflict = 409;
constexpr int kHTTPStatus_PreconditionFailed = 412;
constexpr int kHTTPStatus_PayloadTooLarge = 413;
constexpr int kHTTPStatus_URITooLong = 414;
constexpr int kHTTPStatus_UnsupportedMediaType = 415;
constexpr int kHTTPStatus_ExpectationFailed = 417;
constexpr int kHTTPStatus_Locked = 423;
constexpr int kHTTPStatus_FailedDependency = 424;
constexpr int kHTTPStatus_UpgradeRequired = 426;
constexpr int kHTTPStatus_HeaderFieldsTooLarge = 431;
constexpr int kHTTPStatus_InternalServerError = 500;
constexpr int kHTTPStatus_NotImplemented = 501;
constexpr int kHTTPStatus_ServiceUnavailable = 503;

constexpr bool IsSuccessfulHTTPStatus(int inStatus)
{
    return inStatus >= 200 && inStatus <= 299;
}

}  // namespace noxnet
