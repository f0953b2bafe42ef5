#pragma once

#include <tuple>
#include <vector>

#include "Client/Wire/Collaborators.h"
#include "Client/Wire/Link.h"
#include "Client/Wire/Record.h"

namespace VantryLocalHub::dto {

/// Who works on a template.
struct TemplateCollaborators
{
    std::vector<Collaborator> mCollaborators;
    std::vector<Link> mLinks;

    static constexpr auto kFields = std::tuple{Always("collaborators", &TemplateCollaborators::mCollaborators),
                                               Always("links", &TemplateCollaborators::mLinks)};
    friend bool operator==(const TemplateCollaborators&, const TemplateCollaborators&) = default;
};

/// Whom a template is meant for, as the session of the template has it.
struct TemplateRecipients
{
    RawArray mRecipients;
    std::vector<Link> mLinks;

    static constexpr auto kFields = std::tuple{Always("recipients", &TemplateRecipients::mRecipients),
                                               Always("links", &TemplateRecipients::mLinks)};
    friend bool operator==(const TemplateRecipients&, const TemplateRecipients&) = default;
};

}  // namespace VantryLocalHub::dto
