#pragma once

#include <string>
#include <tuple>
#include <vector>

#include "Client/Wire/Record.h"

namespace VantryLocalHub::dto {

struct Preference
{
    ImmutableString mName;
    std::string mValue;
    bool mIsDefault = false;  ///< no value is stored

    static constexpr auto kFields = std::tuple{Always("name", &Preference::mName), Always("value", &Preference::mValue),
                                               Always("isDefault", &Preference::mIsDefault)};
    friend bool operator==(const Preference&, const Preference&) = default;
};

struct PreferencesResource
{
    std::vector<Preference> mPreferences;

    static constexpr auto kFields = std::tuple{Always("preferences", &PreferencesResource::mPreferences)};
    friend bool operator==(const PreferencesResource&, const PreferencesResource&) = default;
};

}  // namespace VantryLocalHub::dto
