#pragma once

#include <string_view>

/// Keys of forms and queries of the local API whose text is fixed, and the parts of a transaction's form keys.
namespace VYCL::FormKeys {

inline constexpr std::string_view kCommitID = ":commitId";
inline constexpr std::string_view kCommitMessage = ":commitMessage";
inline constexpr std::string_view kMergeStrategy = ":mergeStrategy";
inline constexpr std::string_view kResolveStrategy = ":resolveStrategy";
inline constexpr std::string_view kRequireHead = ":requireHead";
inline constexpr std::string_view kEnclosure = ":enclosure";
inline constexpr std::string_view kName = ":name";
inline constexpr std::string_view kMediaLocator = ":medialocator";
inline constexpr std::string_view kID = ":id";

/// A request for a baton: what to do, and the baton's name.
inline constexpr std::string_view kBatonAction = "action";
inline constexpr std::string_view kBatonName = "name";
inline constexpr std::string_view kBatonActionAcquire = "acquire";
inline constexpr std::string_view kBatonActionRelease = "release";

/// A row of a transaction's form: parts joined by "+".
///
///     assets+<row>+properties                                  JSON of an asset's properties
///     assets+<row>+name                                        its name
///     enclosures+<enclosure>+name+<asset row>                  name of an enclosure; without asset row: a production's
///     enclosures+<enclosure>+content+<asset row>               the payload
///     enclosures+<enclosure>+content+<asset row>+<contentId>   a payload that the store already has
///     assets+<row>, enclosures+<enclosure>++<asset row>        a row to delete
///
/// A row that is a guid is the id itself, any other text a temporary index. A production enclosure writes
/// kNoAsset for the asset row where a part follows it.
///
/// A bulk resolve names what is in conflict in the same way, with the strategy as the value:
///
///     assets+<asset>, enclosures+<enclosure>, properties
inline constexpr char kJoint = '+';
inline constexpr std::string_view kKindAssets = "assets";
inline constexpr std::string_view kKindEnclosures = "enclosures";
inline constexpr std::string_view kPartProperties = "properties";
inline constexpr std::string_view kPartName = "name";
inline constexpr std::string_view kPartContent = "content";
inline constexpr std::string_view kNoAsset = "-";

}  // namespace VYCL::FormKeys

/// Keys and values of queries.
namespace VYCL::QueryKeys {

inline constexpr std::string_view kView = "view";
inline constexpr std::string_view kViewCondensed = "CONDENSED";
inline constexpr std::string_view kParentID = "parentId";
inline constexpr std::string_view kLocalOnly = "localOnly";
inline constexpr std::string_view kTrue = "true";
inline constexpr std::string_view kStartIndex = "startIndex";
inline constexpr std::string_view kCount = "count";
inline constexpr std::string_view kType = "type";
inline constexpr std::string_view kURL = "url";

}  // namespace VYCL::QueryKeys
