#pragma once

#include <string>
#include <string_view>

#include "Platform/noxmarshal/Record.h"

namespace noxcore::serialization {

/// The text of a JSON-RPC 2.0 call with its arguments in order. It has no id yet: RPCClient::SendRequest gives it one,
/// and sent as it stands it is a notification.
template <class... Arguments>
std::string BuildCall(std::string_view inName, const Arguments&... inArguments)
{
    JSONWriter writer;
    writer.BeginObject();
    writer.Member("jsonrpc", "2.0");
    writer.Member("method", inName);
    writer.Key("params");
    writer.BeginArray();
    (..., noxmarshal::WriteJSON(writer, inArguments));
    writer.EndArray();
    writer.EndObject();
    return writer.TakeText();
}

}  // namespace noxcore::serialization
