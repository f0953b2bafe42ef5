#pragma once

#include <string>

namespace apidoc {

/// Docs/openapi.json: an OpenAPI 3.1 document of all operations and records.
std::string OpenAPIDocument();
/// Docs/api.md: the introduction, then the operations by resource, then the records.
std::string MarkdownDocument(const std::string& inIntroduction);

}  // namespace apidoc
