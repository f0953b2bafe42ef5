#pragma once

#include <string>

namespace noxmarshal {

/// Codes of JSON-RPC 2.0 (its section 5.1), then our own in the range left to implementations.
constexpr int kRPCError_Parse = -32700;
constexpr int kRPCError_InvalidRequest = -32600;
constexpr int kRPCError_MethodNotFound = -32601;
constexpr int kRPCError_InvalidParams = -32602;
constexpr int kRPCError_Internal = -32603;
constexpr int kRPCError_ConnectionLost = -32000;  ///< the session ended before the answer came
constexpr int kRPCError_Timeout = -32001;         ///< no answer within the time that the caller gave
constexpr int kRPCError_NotFound = -32002;        ///< what was asked for is not there

/// Why a request failed.
struct RPCError
{
    int mCode = kRPCError_Internal;
    std::string mMessage;
};

}  // namespace noxmarshal
