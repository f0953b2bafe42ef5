#include "Tools/hubctl/RunCommand.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>

#include "Platform/noxnet/HTTPStatus.h"
#include "Platform/noxnet/MultipartForm.h"
#include "Tools/apidoc/Statuses.h"
#include "Tools/hubctl/AnswerText.h"
#include "Tools/hubctl/LastError.h"
#include "Tools/hubctl/UTF8Text.h"
#include "Tools/hubctl/WaitLine.h"

namespace hubctl {

namespace client = noxnet::http::client;

namespace {

/// The body that a request sends; it outlives the request.
struct Body
{
    std::unique_ptr<client::TextBody> mText;
    std::unique_ptr<client::MultipartForm> mForm;

    void Attach(const MadeRequest& inRequest, client::Request& ioRequest) const
    {
        if (mForm != nullptr) {
            ioRequest.mContentType = mForm->ContentType();
            ioRequest.mBody = mForm.get();
        } else if (mText != nullptr) {
            ioRequest.mContentType = inRequest.mContentType;
            ioRequest.mBody = mText.get();
        }
    }
};

bool AddRow(const FormRow& inRow, client::MultipartForm& ioForm, std::string& outError)
{
    if (!inRow.mIsFile) {
        if (ioForm.AddText(inRow.mKey, inRow.mValue)) return true;
        outError = "\"" + Printable(inRow.mKey) + "\" cannot be a key of a form";
        return false;
    }
    if (inRow.mValue == "-") return ioForm.AddContent(inRow.mKey, {std::istreambuf_iterator<char>(std::cin), {}});
    std::error_code error;
    const auto size = std::filesystem::file_size(inRow.mValue, error);
    if (!error && ioForm.AddFile(inRow.mKey, inRow.mValue, size)) return true;
    outError = "\"" + Printable(inRow.mValue) + "\" cannot be sent" + (error ? ": " + error.message() : std::string());
    return false;
}

bool MakeBody(const MadeRequest& inRequest, Body& outBody, std::string& outError)
{
    if (!inRequest.mContentType.empty()) outBody.mText = std::make_unique<client::TextBody>(inRequest.mBody);
    if (inRequest.mRows.empty()) return true;
    outBody.mForm = std::make_unique<client::MultipartForm>();
    return std::ranges::all_of(inRequest.mRows,
                               [&](const FormRow& inRow) { return AddRow(inRow, *outBody.mForm, outError); });
}

/// Where a payload goes. A file is made when the answer is known to be one, and goes again with a failure.
class PayloadTarget
{
public:
    PayloadTarget(const std::string& inPath, std::ostream& outStream) : mPath(inPath), mStream(outStream) {}

    bool Write(std::string_view inBytes)
    {
        if (!mPath.empty() && !Open()) return false;
        std::ostream& stream = mPath.empty() ? mStream : mFile;
        stream.write(inBytes.data(), static_cast<std::streamsize>(inBytes.size()));
        return stream.good();
    }
    /// An empty payload is a file, too.
    bool Finish()
    {
        if (mPath.empty()) return true;
        if (!Open()) return false;
        mFile.close();
        return !mFile.fail();
    }
    void GiveUp()
    {
        if (!mFile.is_open()) return;
        mFile.close();
        std::error_code ignored;
        std::filesystem::remove(mPath, ignored);
    }

private:
    bool Open()
    {
        if (!mFile.is_open()) mFile.open(mPath, std::ios::binary | std::ios::trunc);
        return mFile.is_open();
    }

    const std::string mPath;
    std::ostream& mStream;
    std::ofstream mFile;
};

bool IsDone(int inStatus)
{
    // What is found there already is as good as made.
    return noxnet::IsSuccessfulHTTPStatus(inStatus) || inStatus == noxnet::kHTTPStatus_Found;
}

std::string WithoutMarks(std::string inText)
{
    std::erase(inText, '`');
    return inText;
}

std::string Refusal(const Call& inCall, const std::string& inTarget, int inStatus)
{
    const auto statuses = apidoc::StatusesOf(*inCall.mResource, *inCall.mOperation);
    const auto found = statuses.find(inStatus);
    const std::string described = found == statuses.end() ? std::string() : WithoutMarks(found->second.mMeaning);
    const bool isToCome = inStatus == noxnet::kHTTPStatus_NotImplemented;
    std::string text =
        std::string(inCall.mOperation->mMethod) + " " + inTarget + ": status " + std::to_string(inStatus) + ", ";
    text += isToCome || described.empty() ? MeaningOf(inStatus) : described;
    return isToCome && !described.empty() ? text + " (" + described + ")" : text;
}

/// One command at one hub.
class Runner
{
public:
    Runner(const MadeRequest& inRequest, const RunSettings& inSettings, HubAPI& inAPI, std::ostream& outStream,
           std::string& outError)
        : mRequest(inRequest), mSettings(inSettings), mAPI(inAPI), mStream(outStream), mError(outError)
    {
    }

    bool Run()
    {
        Body body;
        if (!MakeBody(mRequest, body, mError)) return false;
        client::Request request;
        request.mMethod = mRequest.mCall->mOperation->mMethod;
        request.mTarget = mRequest.mTarget;
        body.Attach(mRequest, request);
        if (mRequest.mCall->AnswersPayload()) return Download(std::move(request));
        client::Answer answer;
        if (!Ask(request, answer) || !Show(answer)) return false;
        return !mRequest.mWait || Follow(std::move(request), std::string(answer.Header("ETag")));
    }

private:
    bool Refuse(int inStatus)
    {
        mError = Refusal(*mRequest.mCall, mRequest.mTarget, inStatus);
        return false;
    }
    bool NoAnswer(const std::string& inReason)
    {
        mError = std::string(mRequest.mCall->mOperation->mMethod) + " " + mRequest.mTarget + ": " + inReason;
        return false;
    }

    bool Ask(const client::Request& inRequest, client::Answer& outAnswer)
    {
        std::string error;
        std::optional<WaitLine> line;
        if (mSettings.mProgress != nullptr)
            line.emplace(*mSettings.mProgress, std::string(mRequest.mCall->mRow->mWords), mRequest.mFileInTheMaking);
        const bool isAnswered = mAPI.Exchange(inRequest, outAnswer, error);
        line.reset();
        if (!isAnswered) return NoAnswer(error);
        return IsDone(outAnswer.mStatus) || Refuse(outAnswer.mStatus);
    }

    bool Download(client::Request inRequest)
    {
        PayloadTarget target(mRequest.mOutput, mStream);
        inRequest.mSink = [&](std::string_view inBytes) { return target.Write(inBytes); };
        client::Answer answer;
        if (!Ask(inRequest, answer)) {
            target.GiveUp();
            return false;
        }
        return target.Finish() || NoAnswer("\"" + Printable(mRequest.mOutput) + "\" cannot be written");
    }

    /// The description's row of the status.
    [[nodiscard]] const API::Answer* Described(int inStatus) const
    {
        const auto& answers = mRequest.mCall->mOperation->mAnswers;
        const auto* const found = std::ranges::find(answers, inStatus, &API::Answer::mStatus);
        return found == answers.end() ? nullptr : found;
    }

    bool Show(const client::Answer& inAnswer)
    {
        if (mSettings.mJSON) {
            if (!inAnswer.mBody.empty()) mStream << inAnswer.mBody << '\n';
        } else if (inAnswer.mBody.empty()) {
            ShowWithoutBody(inAnswer);
        } else if (const auto* described = Described(inAnswer.mStatus);
                   !PrintAnswer(RecordOf(described), inAnswer.mBody, mStream)) {
            return NoAnswer("the answer cannot be understood");
        }
        mStream.flush();
        return true;
    }

    /// The first of those that it may be; the condensed view of a list has none of its own to print.
    [[nodiscard]] std::string_view RecordOf(const API::Answer* inDescribed) const
    {
        const bool isCondensed =
            mRequest.mTarget.find(std::string("=").append(VYCL::QueryKeys::kViewCondensed)) != std::string::npos;
        return inDescribed == nullptr ? std::string_view() : inDescribed->mRecords.at(isCondensed ? 1 : 0);
    }

    void ShowWithoutBody(const client::Answer& inAnswer)
    {
        const auto* described = Described(inAnswer.mStatus);
        // Of switches the description tells when they are taken, not what was done.
        const bool isMeant = described != nullptr && described->mKind == API::AnswerKind::Nothing &&
                             mRequest.mCall->mOperation->mBody != API::BodyKind::FormOrQuery;
        mStream << (isMeant ? WithoutMarks(std::string(described->mMeaning)) : "done") << '\n';
        if (const auto location = inAnswer.Header("Location"); !location.empty())
            mStream << "location: " << Printable(location) << '\n';
    }

    bool Follow(client::Request inRequest, std::string inTag)
    {
        while (!mSettings.mShouldStop || !mSettings.mShouldStop()) {
            if (inTag.empty()) return NoAnswer("the answer has no tag to wait for");
            inRequest.mHeaders = {{"X-LongPoll", "true"}, {"If-None-Match", inTag}};
            client::Answer answer;
            std::string error;
            if (!mAPI.Exchange(inRequest, answer, error)) return NoAnswer(error);
            if (answer.mStatus == noxnet::kHTTPStatus_NotModified) continue;  // another client has gone: ask again
            if (!IsDone(answer.mStatus)) return Refuse(answer.mStatus);
            if (!Show(answer) || !mStream.good()) return mStream.good() ? false : NoAnswer("nobody reads any more");
            inTag = answer.Header("ETag");
        }
        return true;
    }

    const MadeRequest& mRequest;
    const RunSettings& mSettings;
    HubAPI& mAPI;
    std::ostream& mStream;
    std::string& mError;
};

}  // namespace

bool RunCommand(const MadeRequest& inRequest, const RunSettings& inSettings, HubAPI& inAPI, std::ostream& outStream,
                std::string& outError)
{
    return Runner(inRequest, inSettings, inAPI, outStream, outError).Run();
}

}  // namespace hubctl
