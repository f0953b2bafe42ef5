#pragma once

#include "Platform/noxnet/HTTPStatus.h"

namespace noxcore {

/// Results of asynchronous work are signed 32-bit numbers, negative on failure.
constexpr int eGeneralFailure = static_cast<int>(0xA00F0001U);
constexpr int eUserCanceled = static_cast<int>(0xA00F0007U);

}  // namespace noxcore

namespace VYCL {

using Result = int;
using StatusCode = int;

constexpr Result kSuccess = 0;
/// The library's own family of results: this, plus an HTTP status or one of the values below.
constexpr unsigned kResultFamily = 0xA0450000U;
constexpr Result eAsyncRequestCancelled = static_cast<int>(kResultFamily + 1);
constexpr Result eAsyncRequestFailed = static_cast<int>(kResultFamily + 5);  ///< could not be started
constexpr Result eNotModified = static_cast<int>(kResultFamily + 304);

/// 0 for a status of success, else the family with the status in its low bits. A status that HTTP does not know (below
/// 100, above 599) is a request that failed.
constexpr Result GetResultFromStatusCode(StatusCode inStatus)
{
    if (noxnet::IsSuccessfulHTTPStatus(inStatus)) {
        return kSuccess;
    }
    return inStatus < 100 || inStatus > 599 ? eAsyncRequestFailed
                                            : static_cast<int>(kResultFamily + static_cast<unsigned>(inStatus));
}

/// 200 for a result that is no failure, the status that a failure carries, and 500 for one that carries none.
constexpr StatusCode GetStatusCodeFromResult(Result inResult)
{
    if (inResult >= 0) {
        return noxnet::kHTTPStatus_OK;
    }
    const unsigned value = static_cast<unsigned>(inResult) - kResultFamily;
    return value >= 100 && value <= 599 ? static_cast<StatusCode>(value) : noxnet::kHTTPStatus_InternalServerError;
}

/// A resource stands loaded when its load succeeded or brought nothing new.
constexpr bool LoadResultSucceeded(Result inResult)
{
    return inResult >= 0 || inResult == eNotModified;
}

constexpr bool ResultSucceededOrCanceled(Result inResult)
{
    return inResult >= 0 || inResult == eAsyncRequestCancelled || inResult == noxcore::eUserCanceled;
}

}  // namespace VYCL
