#pragma once

#include <string_view>

/// Phrases that several operations share.
namespace VantryLocalHub::API {

inline constexpr std::string_view kNoProduction = "no such production or session";
inline constexpr std::string_view kNoRevision = "no such production, session or revision";
inline constexpr std::string_view kNoAsset = "no such production, revision or asset";
inline constexpr std::string_view kNoTransaction = "no such transaction, or it was committed";
inline constexpr std::string_view kTransactionClosed = "the transaction was rolled back, or its commit has begun";
inline constexpr std::string_view kBodyUnreadable = "the body is not well-formed, or a key has the wrong type";
inline constexpr std::string_view kFormUnreadable =
    "the form is empty or broken, a key that is needed is missing, or a value is none of those it may have";
inline constexpr std::string_view kTagOfAnswer = "tag of the answer";
inline constexpr std::string_view kEngineCannot = "the engine has no component for it yet";
inline constexpr std::string_view kNotAssociated = "the session is not linked to a production of a server";
inline constexpr std::string_view kNotInSync = "the session is not in sync";

}  // namespace VantryLocalHub::API
