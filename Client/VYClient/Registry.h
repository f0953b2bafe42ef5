#pragma once

#include <string>
#include <tuple>

#include "Client/Wire/Record.h"

namespace VYCL {

/// Who signed in last on this machine, as the suite's applications leave it in "lastlogin.json" of the settings folder.
struct VYLoginData
{
    std::string mServerURL;
    std::string mUserID;
    std::string mPersonGUID;
    std::string mUserEmail;
    std::string mFirstName;
    std::string mLastName;

    static constexpr auto kFields = std::tuple{VantryLocalHub::dto::Always("serverURL", &VYLoginData::mServerURL),
                                               VantryLocalHub::dto::Always("userID", &VYLoginData::mUserID),
                                               VantryLocalHub::dto::Always("personGUID", &VYLoginData::mPersonGUID),
                                               VantryLocalHub::dto::Always("userEmail", &VYLoginData::mUserEmail),
                                               VantryLocalHub::dto::WhenSet("firstName", &VYLoginData::mFirstName),
                                               VantryLocalHub::dto::WhenSet("lastName", &VYLoginData::mLastName)};
    friend bool operator==(const VYLoginData&, const VYLoginData&) = default;
};

namespace Registry {

/// The version under which the suite keeps its settings: "25.3".
const std::string& GetVYRegistryKeyVersionString();

/// False without a record: nobody has signed in. False with a record: the file cannot be understood. outData keeps its
/// value unless true is returned.
bool GetLastLoginData(VYLoginData& outData);

}  // namespace Registry

}  // namespace VYCL
