#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Platform/noxnet/HTTPServer.h"

namespace noxnet::http::server {

/// Reads the fields of a body by its Content-Type: multipart/form-data, application/x-www-form-urlencoded, or JSON.
///
/// The values of a multipart body are parts of it and share its memory. Names and file names of multipart parts are
/// taken as they stand, but for backslash and percent forms of the quotation mark. The members of a JSON object come in
/// their order, strings unescaped, other values as their text; a text that is JSON but no object has no fields.
/// True with no fields for an empty body. False, with outFields empty, for another type, a body that is broken or
/// truncated, or one with more than inMaxFields fields.
bool ParseForm(const RecycledMemory& inBody, std::string_view inContentType, std::size_t inMaxFields,
               std::vector<FormField>& outFields);

/// The text with "%XX" and "+" resolved; a percent sign that no two hexadecimal digits follow stays.
std::string PercentDecoded(std::string_view inText);

}  // namespace noxnet::http::server
