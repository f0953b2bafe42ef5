#pragma once

#include <map>
#include <string>

#include "Inc/Model/GitBoxSandbox.h"
#include "Inc/Model/ProjectBox.h"
#include "Platform/noxcore/RecursiveMutex.h"

namespace VantryLocalHub::GitBox {

/// Where templates are made and kept: packed sessions that new ones start from. A file "<title>.lyra2template" in the
/// templates folder is a template; it is extracted once, below `extracted`, and read there like a session.
///
/// A template goes by ids of its own that are new with each run.
/// Threading: any thread; files are extracted on the pool for waiting work. mTemplateMutex guards the map alone and is
/// not held over any work (rank Leaf).
class TemplateShop : public virtual ProjectBox
{
public:
    std::vector<dto::Session> GetTemplates() override;
    int GetTemplate(const ImmutableString& inID, dto::Session& outTemplate) override;
    int CreateTemplate(const ImmutableString& inSessionID, const dto::ProductionProperties& inProperties,
                       const dto::RawArray& inRecipients, dto::Session& outTemplate) override;
    int GetTemplateRecipients(const ImmutableString& inID, dto::RawArray& outRecipients) override;

protected:
    /// By either id; null when there is none that is offered.
    SandboxPtr FindTemplate(const ImmutableString& inID);
    /// Closes the files of templates that nobody has used since that moment of the monotonic clock.
    void ReleaseUnusedTemplates(std::int64_t inCutOffTicks);
    /// Closes them all, and forgets them.
    void ClearTemplates();

private:
    using TemplateMap = std::map<ImmutableString, SandboxPtr>;  ///< session id -> template

    /// Looks through the templates folder: what is new is extracted, what has gone is forgotten.
    void ExtractTemplates();
    /// The folder that a file of the templates folder was extracted to; empty when it cannot be.
    static std::string ExtractTemplateFile(const std::string& inFile);
    void OfferTemplate(const std::string& inFolder);
    /// Offers what was just put into the templates folder. 201, or why it cannot be read.
    int OfferMade(const std::string& inFile, dto::Session& outTemplate);
    /// Takes back a template that could not be made: its file, what that was extracted to, and the offer.
    void RemoveTemplate(const std::string& inFile);
    TemplateMap GetTemplateMap();

    noxcore::threads::RecursiveMutex mTemplateMutex{noxcore::threads::LockRank::Leaf};
    std::map<std::string, SandboxPtr> mTemplates GUARDED_BY(mTemplateMutex);  ///< folder -> template
};

}  // namespace VantryLocalHub::GitBox
