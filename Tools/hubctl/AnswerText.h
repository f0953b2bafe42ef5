#pragma once

#include <iosfwd>
#include <string_view>

namespace hubctl {

/// Writes an answer for people: "key: value" for a record, a table for a list, links left out. Some records have a form
/// of their own. False for a body that cannot be understood.
bool PrintAnswer(std::string_view inRecord, std::string_view inBody, std::ostream& outStream);

}  // namespace hubctl
