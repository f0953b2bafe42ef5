#pragma once

#include "Inc/Model/ProjectBox.h"

namespace VantryLocalHub::GitBox {

/// Where templates are made and kept: extracted projects that new ones start from. This build has no templates: lists
/// are empty, operations answer 501.
class TemplateShop : public virtual ProjectBox
{
public:
    std::vector<dto::Session> GetTemplates() override;
    int GetTemplate(const ImmutableString& inID, dto::Session& outTemplate) override;
    int CreateTemplate(const ImmutableString& inSessionID, dto::Session& outTemplate) override;
};

}  // namespace VantryLocalHub::GitBox
