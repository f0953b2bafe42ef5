#pragma once

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>

namespace testing_support {

/// A client that says byte for byte what a test wants said, and blocks on the socket instead of sleeping.
class SocketClient
{
public:
    explicit SocketClient(std::uint16_t inPort) : SocketClient() { Connect(inPort); }
    SocketClient() : mSocket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {}
    SocketClient(SocketClient&& inOther) noexcept
        : mSocket(std::exchange(inOther.mSocket, -1)), mBuffer(std::move(inOther.mBuffer))
    {
    }
    ~SocketClient() { Close(); }

    bool Connect(std::uint16_t inPort)
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(inPort);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const timeval limit{60, 0};  // a test that hangs fails here
        ::setsockopt(mSocket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
        ::setsockopt(mSocket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
        return ::connect(mSocket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    }

    /// False when the server has closed meanwhile.
    bool Send(std::string_view inBytes)
    {
        while (!inBytes.empty()) {
            const ssize_t sent = ::send(mSocket, inBytes.data(), inBytes.size(), MSG_NOSIGNAL);
            if (sent <= 0) return false;
            inBytes.remove_prefix(static_cast<std::size_t>(sent));
        }
        return true;
    }

    /// Header text and body of one answer; the body by Content-Length.
    struct Answer
    {
        int mStatus = 0;  ///< 0: the connection ended before an answer
        std::string mHead;
        std::string mBody;

        [[nodiscard]] std::string Header(std::string_view inName) const
        {
            const std::string key = "\r\n" + std::string(inName) + ": ";
            const std::size_t at = mHead.find(key);
            if (at == std::string::npos) return {};
            const std::size_t begin = at + key.size();
            return mHead.substr(begin, mHead.find("\r\n", begin) - begin);
        }
    };

    Answer Read(bool inWithBody = true)
    {
        Answer answer;
        std::size_t end = 0;
        while ((end = mBuffer.find("\r\n\r\n")) == std::string::npos)
            if (!Receive()) return answer;
        answer.mHead = mBuffer.substr(0, end + 2);
        mBuffer.erase(0, end + 4);
        answer.mStatus = std::atoi(answer.mHead.c_str() + 9);
        const std::size_t size = inWithBody ? std::strtoull(answer.Header("Content-Length").c_str(), nullptr, 10) : 0;
        while (mBuffer.size() < size)
            if (!Receive()) return {};
        answer.mBody = mBuffer.substr(0, size);
        mBuffer.erase(0, size);
        return answer;
    }

    Answer Ask(std::string_view inRequest)
    {
        Send(inRequest);
        return Read();
    }

    /// Whether something has come, without waiting for it.
    [[nodiscard]] bool HasAnswer() const
    {
        pollfd place{mSocket, POLLIN, 0};
        return !mBuffer.empty() || ::poll(&place, 1, 0) > 0;
    }

    /// True when the server ends the connection without another byte; waits for it.
    bool ReadsEnd()
    {
        while (Receive()) {
        }
        return mBuffer.empty() && mEnded;
    }

    /// Ends as when its machine fails: the server hears of it by a reset.
    void Reset()
    {
        const linger atOnce{1, 0};
        ::setsockopt(mSocket, SOL_SOCKET, SO_LINGER, &atOnce, sizeof(atOnce));
        Close();
    }
    void FinishSending() { ::shutdown(mSocket, SHUT_WR); }
    void Close()
    {
        if (mSocket >= 0) ::close(std::exchange(mSocket, -1));
    }

private:
    bool Receive()
    {
        char bytes[65536];
        const ssize_t received = ::recv(mSocket, bytes, sizeof(bytes), 0);
        mEnded = received == 0 || (received < 0 && errno == ECONNRESET);
        if (received <= 0) return false;
        mBuffer.append(bytes, static_cast<std::size_t>(received));
        return true;
    }

    int mSocket = -1;
    bool mEnded = false;
    std::string mBuffer;
};

}  // namespace testing_support
