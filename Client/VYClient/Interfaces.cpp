#include "Client/VYClient/Interfaces.h"

#include "Client/VYClient/VYClient.h"
#include "Platform/noxcore/HubContext.h"

namespace VYCL {

namespace {

constexpr std::string_view kAcceptTheirs = "accept-theirs";
constexpr std::string_view kAcceptYours = "accept-yours";

template <class Strategy>
Strategy StrategyFromString(std::string_view inText)
{
    if (inText == kAcceptTheirs) return Strategy::AcceptTheirs;
    if (inText == kAcceptYours) return Strategy::AcceptYours;
    return Strategy::Unknown;
}

}  // namespace

IVYCServerResource::MergeStrategy MergeStrategyFromString(std::string_view inText)
{
    return StrategyFromString<IVYCServerResource::MergeStrategy>(inText);
}

IVYCServerResource::ResolveStrategy ResolveStrategyFromString(std::string_view inText)
{
    return StrategyFromString<IVYCServerResource::ResolveStrategy>(inText);
}

std::string IVYCCollaborator::FoldEmailAddress(std::string_view inAddress)
{
    constexpr std::string_view kBlanks = " \t\r\n";
    const auto begin = inAddress.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos) {
        return {};
    }
    std::string folded(inAddress.substr(begin, inAddress.find_last_not_of(kBlanks) + 1 - begin));
    for (char& character : folded) {
        if (character >= 'A' && character <= 'Z') {
            character = static_cast<char>(character - 'A' + 'a');
        }
    }
    return folded;
}

InterfaceRef<IVYCDataServer> IVYCDataServer::GetLoggedInServerRef()
{
    return noxcore::HubContext::Current()->GetInstance<IVYCDataServer>();
}

noxcore::threads::RecursiveMutex& IVYCDataServer::GetLock()
{
    return GetLibraryLock();
}

}  // namespace VYCL
