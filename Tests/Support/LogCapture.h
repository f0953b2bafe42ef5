#pragma once

#include <algorithm>
#include <mutex>
#include <string_view>
#include <vector>

#include "Platform/noxcore/Logging.h"

namespace testing_support {

/// A log sink that keeps every record, so that a test can read what was reported.
class LogCapture final : public noxcore::logging::Sink
{
public:
    using Record = noxcore::logging::Record;

    void Write(const Record& inRecord) override
    {
        const std::lock_guard lock(mMutex);
        mRecords.push_back(inRecord);
    }

    [[nodiscard]] std::vector<Record> All() const
    {
        const std::lock_guard lock(mMutex);
        return mRecords;
    }

    [[nodiscard]] std::vector<Record> Find(std::string_view inMessage) const
    {
        std::vector<Record> found = All();
        std::erase_if(found, [&](const Record& inRecord) { return inRecord.mMessage != inMessage; });
        return found;
    }

    [[nodiscard]] std::size_t Count(std::string_view inMessage) const { return Find(inMessage).size(); }

    void Clear()
    {
        const std::lock_guard lock(mMutex);
        mRecords.clear();
    }

private:
    mutable std::mutex mMutex;
    std::vector<Record> mRecords;
};

}  // namespace testing_support
