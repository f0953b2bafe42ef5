#include "Inc/Service/PreferencesService.h"

#include <map>
#include <stdexcept>

#include "Client/VYClient/LocalHub.h"
#include "Client/Wire/Preferences.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Model/SystemDb.h"
#include "Inc/Service/FormReader.h"
#include "Platform/noxcore/Logging.h"

namespace VantryLocalHub {

using namespace VYCL::LocalHub;
using noxnet::http::server::Request;

namespace {

std::string DefaultLocation()
{
    return GetDefaultRopeFileAutosaveLocation();
}

std::string False()
{
    return FormValue_False().Text();
}

void CheckFolder(std::string_view, std::string_view inValue)
{
    if (!inValue.starts_with('/') || inValue.find('\0') != std::string_view::npos)
        throw std::invalid_argument("ReadForm: invalid input");
}

void CheckFlag(std::string_view inKey, std::string_view inValue)
{
    ReadFormBoolean(inKey, inValue);
}

struct PreferenceRow
{
    const ImmutableString& (*mName)();
    const ImmutableString& (*mFormKey)();
    std::string (*mDefault)();
    void (*mCheck)(std::string_view inKey, std::string_view inValue);  ///< throws std::invalid_argument
};

constexpr PreferenceRow kPreferences[] = {
    {LocalHubPreferenceName_AutosaveLocation, FormKey_Preferences_AutosaveLocation, DefaultLocation, CheckFolder},
    {LocalHubPreferenceName_SetAutosaveToRope, FormKey_Preferences_SetAutosaveToRope, False, CheckFlag},
};

int Answer(const Request& inRequest, const ResponsePtr& inResponse)
{
    dto::PreferencesResource resource;
    for (const PreferenceRow& row : kPreferences) {
        std::string value;
        const int status = SystemDb::GetSystemEnclosure(row.mName().View(), value);
        if (status != noxnet::kHTTPStatus_NotFound && !noxnet::IsSuccessfulHTTPStatus(status)) return status;
        const bool isDefault = status == noxnet::kHTTPStatus_NotFound;
        resource.mPreferences.push_back({row.mName(), isDefault ? row.mDefault() : value, isDefault});
    }
    std::string payload = dto::ToJSON(resource);
    if (IsRead(inRequest)) return SetPayloadWithEntityTag(inRequest, std::move(payload), *inResponse);
    SetPayload(std::move(payload), *inResponse);
    return noxnet::kHTTPStatus_OK;
}

int Read(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    return Answer(*inRequest, inResponse);
}

using Values = std::map<std::string_view, std::string_view>;  // preference name -> value

/// Throws std::invalid_argument for a form that cannot be used.
Values ReadForm(const FormReader& inForm)
{
    Values values;
    for (const PreferenceRow& row : kPreferences) {
        const auto value = inForm.Text(row.mFormKey().View());
        if (!value) continue;
        row.mCheck(row.mFormKey().View(), *value);
        values[row.mName().View()] = *value;
    }
    return values;
}

/// All of a form is kept, or none of it.
int Save(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    FormReader form;
    if (!form.Read(*inRequest) || form.empty()) return Refuse(*inRequest, "PreferencesService: Bad form element");
    try {
        const int status = SystemDb::AddOrUpdateSystemEnclosures(ReadForm(form));
        if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    } catch (const std::invalid_argument& exception) {
        noxcore::logging::LogWarning(kServiceLogCategory, "PreferencesService: Bad form element",
                                     {{"url", inRequest->URL()}, {"exception", exception.what()}});
        return noxnet::kHTTPStatus_BadRequest;
    }
    return Answer(*inRequest, inResponse);
}

}  // namespace

PreferencesService::PreferencesService()
{
    Sync("POST", "save", Save);
    Sync("GET", "read", Read);
}

}  // namespace VantryLocalHub
