#pragma once

#include <initializer_list>
#include <optional>
#include <string_view>
#include <vector>

#include "Inc/Service/ServiceUtils.h"

namespace VantryLocalHub {

/// The named values of a request: the fields of its form, or the members of a body that is a JSON object, whatever the
/// request calls it, for no form is one. Of a name that repeats the last counts.
/// Values are parts of the request's payload and live as long as this.
class FormReader
{
public:
    /// False for a body that is neither, or has a text that is not UTF-8; the bytes of one field may be anything. An
    /// empty body is a form without fields.
    bool Read(const noxnet::http::server::Request& inRequest, std::string_view inBinaryField = {});

    [[nodiscard]] bool empty() const { return mFields.empty(); }
    [[nodiscard]] const std::vector<noxnet::http::server::FormField>& Fields() const { return mFields; }
    /// Null when there is none of that name.
    [[nodiscard]] const noxnet::http::server::FormField* Find(std::string_view inName) const;
    [[nodiscard]] std::optional<std::string_view> Text(std::string_view inName) const;
    /// The text, or an empty one.
    [[nodiscard]] std::string_view TextOrEmpty(std::string_view inName) const;
    [[nodiscard]] bool HasOneOf(std::initializer_list<std::string_view> inNames) const;

private:
    std::vector<noxnet::http::server::FormField> mFields;
};

/// 400 with a record "JSON not well-formed".
int RefuseJSON(const noxnet::http::server::Request& inRequest);
/// 400 with a record in a service's own words.
int Refuse(const noxnet::http::server::Request& inRequest, std::string_view inMessage);

}  // namespace VantryLocalHub
