#pragma once

#include <memory>

#include "Inc/Service/FormReader.h"
#include "Inc/Sync/SyncBox.h"

namespace VantryLocalHub {

/// What a form that a session's engine is to carry out consists of.
struct EngineForm
{
    std::shared_ptr<SyncBox> mSyncBox = SyncBox::Instance();
    ImmutableString mSessionID;  ///< the first group of the URL
    FormReader mForm;

    /// 200 to go on; an empty form is refused.
    int Enter(const noxnet::http::server::Request& inRequest)
    {
        if (mSyncBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
        return ExtractSubExpression(inRequest, 1, mSessionID) && mForm.Read(inRequest) && !mForm.empty()
                   ? noxnet::kHTTPStatus_OK
                   : noxnet::kHTTPStatus_BadRequest;
    }
};

}  // namespace VantryLocalHub
