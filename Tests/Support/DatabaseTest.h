#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "Platform/noxstorage/SQLite.h"
#include "Tests/Support/FaultVfs.h"
#include "Tests/Support/TempFolder.h"
#include "Tests/Support/VirtualHub.h"

namespace testing_support {

/// A hub of its own with a readable log, a folder, and databases that can be made to fail.
class DatabaseTest : public testing::Test
{
protected:
    /// The first column of each row, as text.
    static std::vector<std::string> Query(noxstorage::sqlite::Db& inDb, const std::string& inCommand)
    {
        std::vector<std::string> values;
        noxstorage::sqlite::Statement statement;
        EXPECT_EQ(noxstorage::sqlite::kOK, statement.PrepareV2(inDb, inCommand)) << inDb.Errmsg();
        int result = statement.Step();
        for (; result == noxstorage::sqlite::kRow; result = statement.Step()) {
            values.emplace_back(statement.ColumnText(0));
        }
        EXPECT_EQ(noxstorage::sqlite::kDone, result) << inDb.Errmsg();
        return values;
    }
    static std::string QueryOne(noxstorage::sqlite::Db& inDb, const std::string& inCommand)
    {
        const auto values = Query(inDb, inCommand);
        EXPECT_EQ(1u, values.size()) << inCommand;
        return values.empty() ? std::string() : values.front();
    }
    [[nodiscard]] std::string Files(const std::string& inName) const
    {
        std::vector<noxcore::filesupport::DirectoryEntry> entries;
        noxcore::filesupport::Files().ListDirectory(mFolder.Path(), entries);
        std::string names;
        for (const auto& entry : entries) {
            if (entry.mName.starts_with(inName)) names += entry.mName + " ";
        }
        return names;
    }

    const std::shared_ptr<LogCapture> mLog = std::make_shared<LogCapture>();
    const std::shared_ptr<VirtualScheduler> mScheduler = std::make_shared<VirtualScheduler>(TestSeed());
    const std::shared_ptr<noxcore::HubContext> mContext = mScheduler->MakeContext(mLog);
    const noxcore::HubContext::Scope mScope{mContext};
    const TempFolder mFolder;
    FaultVfs mVfs{mContext};
};

}  // namespace testing_support
