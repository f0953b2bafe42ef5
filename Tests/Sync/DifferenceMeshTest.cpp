#include "Inc/Sync/DifferenceMesh.h"

#include "Client/Wire/Vocabulary.h"
#include "Tests/Sync/SyncFixture.h"

namespace VantryLocalHub {
namespace {

using VYCL::GetDifferenceType_Added;
using VYCL::GetDifferenceType_Removed;
using VYCL::GetDifferenceType_Updated;

dto::AssetDifference Asset(const char* inID, const ImmutableString& inType, const char* inBase = "")
{
    dto::AssetDifference difference;
    difference.mAssetID = inID;
    difference.mDifferenceType = inType;
    difference.mBaseCommitID = inBase;
    return difference;
}

dto::EnclosureDifference Enclosure(const char* inName, const ImmutableString& inType)
{
    dto::EnclosureDifference difference;
    difference.mName = inName;
    difference.mDifferenceType = inType;
    return difference;
}

dto::PropertiesDifference Properties(const ImmutableString& inType)
{
    dto::PropertiesDifference difference;
    difference.mDifferenceType = inType;
    return difference;
}

std::string Text(const std::vector<dto::AssetDifference>& inDifferences)
{
    std::string text;
    for (const auto& difference : inDifferences)
        text += difference.mAssetID.Text() + " " + difference.mDifferenceType.Text() + ";";
    return text;
}

class DifferenceMeshTest : public SyncFixture
{
protected:
    static constexpr const char* kUnhandled = "Differentiator::MeshDifference: unhandled difference case";
    static constexpr const char* kMismatched = "Differentiator::MeshDifference: mismatched differences";
};

TEST_F(DifferenceMeshTest, ADifferenceThatSaysNothingGivesWayToTheOther)
{
    const auto changed = Asset("a", GetDifferenceType_Updated());
    for (const auto& nothing : {Asset("", GetDifferenceType_Added()), Asset("a", {}), dto::AssetDifference()})
        EXPECT_EQ(changed, MeshDifference(nothing, changed));
    EXPECT_EQ(Asset("a", {}), MeshDifference(changed, Asset("a", {})));
    EXPECT_EQ(0U, mLog->Count(kUnhandled));
}

TEST_F(DifferenceMeshTest, ComingAndGoingCancelEachOther)
{
    const auto added = Asset("a", GetDifferenceType_Added());
    const auto removed = Asset("a", GetDifferenceType_Removed());
    EXPECT_EQ(std::nullopt, MeshDifference(added, removed));
    EXPECT_EQ(std::nullopt, MeshDifference(removed, added));
    EXPECT_EQ(0U, mLog->Count(kUnhandled));
}

TEST_F(DifferenceMeshTest, AnUpdateAndWhatFollowsAnUpdateStand)
{
    const auto updated = Asset("a", GetDifferenceType_Updated(), "base");
    const auto removed = Asset("a", GetDifferenceType_Removed());
    EXPECT_EQ(updated, MeshDifference(Asset("a", GetDifferenceType_Added()), updated));
    EXPECT_EQ(removed, MeshDifference(updated, removed));
    EXPECT_EQ(updated, MeshDifference(Asset("a", GetDifferenceType_Updated(), "older"), updated));
}

TEST_F(DifferenceMeshTest, WhatCannotFollowGivesNothingAndIsLogged)
{
    const std::pair<ImmutableString, ImmutableString> cases[] = {
        {GetDifferenceType_Added(), GetDifferenceType_Added()},
        {GetDifferenceType_Updated(), GetDifferenceType_Added()},
        {GetDifferenceType_Removed(), GetDifferenceType_Removed()},
        {GetDifferenceType_Removed(), GetDifferenceType_Updated()},
        {"Moved", GetDifferenceType_Updated()},
    };
    std::size_t count = 0;
    for (const auto& [first, second] : cases) {
        EXPECT_EQ(std::nullopt, MeshDifference(Asset("a", first), Asset("a", second)));
        EXPECT_EQ(++count, mLog->Count(kUnhandled));
    }
    const auto record = mLog->Find(kUnhandled)[0];
    EXPECT_EQ(dto::ToJSON(Asset("a", GetDifferenceType_Added())), record.Value("diff1"));
    EXPECT_EQ(dto::ToJSON(Asset("a", GetDifferenceType_Added())), record.Value("diff2"));
}

TEST_F(DifferenceMeshTest, DifferencesOfTwoThingsAreLoggedAndMeshedAllTheSame)
{
    const auto second = Asset("b", GetDifferenceType_Updated());
    EXPECT_EQ(second, MeshDifference(Asset("a", GetDifferenceType_Updated()), second));
    ASSERT_EQ(1U, mLog->Count(kMismatched));
    EXPECT_EQ(dto::ToJSON(second), mLog->Find(kMismatched)[0].Value("diff2"));
}

TEST_F(DifferenceMeshTest, EnclosuresAndPropertiesFollowTheSameRules)
{
    const auto gone = Enclosure("poster", GetDifferenceType_Removed());
    EXPECT_EQ(gone, MeshDifference(Enclosure("poster", GetDifferenceType_Updated()), gone));
    EXPECT_EQ(std::nullopt, MeshDifference(Enclosure("poster", GetDifferenceType_Added()), gone));
    const auto updated = Properties(GetDifferenceType_Updated());
    EXPECT_EQ(updated, MeshDifference(Properties(GetDifferenceType_Added()), updated));
    EXPECT_EQ(std::nullopt, MeshDifference(updated, Properties(GetDifferenceType_Added())));
}

TEST_F(DifferenceMeshTest, ListsAreMeshedByIdentifierAndWhatOneOfThemHasStands)
{
    dto::DifferenceLists first;
    first.mAssets = {Asset("a", GetDifferenceType_Added()), Asset("c", GetDifferenceType_Added()),
                     Asset("d", GetDifferenceType_Updated())};
    first.mEnclosures = {Enclosure("notes", GetDifferenceType_Updated())};
    first.mProperties = Properties(GetDifferenceType_Updated());
    dto::DifferenceLists second;
    second.mAssets = {Asset("b", GetDifferenceType_Removed()), Asset("c", GetDifferenceType_Removed()),
                      Asset("d", GetDifferenceType_Removed()), Asset("e", GetDifferenceType_Added())};
    const auto meshed = MeshDifferences(first, second);
    EXPECT_EQ("a Added;b Removed;d Removed;e Added;", Text(meshed.mAssets));
    EXPECT_EQ(first.mEnclosures, meshed.mEnclosures);
    EXPECT_EQ(first.mProperties, meshed.mProperties);
    EXPECT_EQ(first, MeshDifferences({}, first));
    EXPECT_EQ(first, MeshDifferences(first, {}));

    second.mProperties = Properties(GetDifferenceType_Removed());
    EXPECT_EQ(second.mProperties, MeshDifferences(first, second).mProperties);
}

TEST_F(DifferenceMeshTest, SortingGoesByIdentifier)
{
    dto::DifferenceLists lists;
    lists.mAssets = {Asset("c", GetDifferenceType_Added()), Asset("a", GetDifferenceType_Removed()),
                     Asset("b", GetDifferenceType_Updated())};
    lists.mEnclosures = {Enclosure("z", GetDifferenceType_Added()), Enclosure("y", GetDifferenceType_Added())};
    SortByIdentifier(lists);
    EXPECT_EQ("a Removed;b Updated;c Added;", Text(lists.mAssets));
    EXPECT_EQ("y", lists.mEnclosures[0].mName);
}

}  // namespace
}  // namespace VantryLocalHub
