#include "Inc/Service/FormReader.h"

#include <algorithm>
#include <ranges>

#include "Platform/noxcore/Logging.h"
#include "Platform/noxnet/Forms.h"

namespace VantryLocalHub {

using noxnet::http::server::FormField;
using noxnet::http::server::Request;

bool FormReader::Read(const Request& inRequest, std::string_view inBinaryField)
{
    const std::string_view text = PayloadText(inRequest);
    const std::size_t begin = text.find_first_not_of(" \t\r\n");
    const bool isJSON = begin != std::string_view::npos && text[begin] == '{';
    const bool isRead = isJSON ? noxnet::http::server::ParseForm(*inRequest.Payload(), "application/json",
                                                                 noxnet::http::server::Limits().mMaxFormFields, mFields)
                               : inRequest.FormFields(mFields);
    return isRead && std::ranges::all_of(mFields, [&](const FormField& inField) {
               return IsUTF8(inField.mName) && (inField.mName == inBinaryField || IsUTF8(inField.mValue.View()));
           });
}

const FormField* FormReader::Find(std::string_view inName) const
{
    const auto reversed = std::views::reverse(mFields);
    const auto found = std::ranges::find(reversed, inName, &FormField::mName);
    return found == reversed.end() ? nullptr : &*found;
}

std::optional<std::string_view> FormReader::Text(std::string_view inName) const
{
    const FormField* field = Find(inName);
    return field == nullptr ? std::nullopt : std::optional(field->mValue.View());
}

std::string_view FormReader::TextOrEmpty(std::string_view inName) const
{
    return Text(inName).value_or(std::string_view());
}

bool FormReader::HasOneOf(std::initializer_list<std::string_view> inNames) const
{
    return std::ranges::any_of(inNames, [&](std::string_view inName) { return Find(inName) != nullptr; });
}

int RefuseJSON(const Request& inRequest)
{
    return Refuse(inRequest, "JSON not well-formed");
}

int Refuse(const Request& inRequest, std::string_view inMessage)
{
    noxcore::logging::LogWarning(kServiceLogCategory, inMessage, {{"url", inRequest.URL()}});
    return noxnet::kHTTPStatus_BadRequest;
}

}  // namespace VantryLocalHub
