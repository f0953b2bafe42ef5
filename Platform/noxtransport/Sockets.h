#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace noxtransport {

/// Owns a file descriptor.
class Descriptor
{
public:
    Descriptor() = default;
    explicit Descriptor(int inDescriptor) : mDescriptor(inDescriptor) {}
    Descriptor(Descriptor&& inOther) noexcept : mDescriptor(std::exchange(inOther.mDescriptor, -1)) {}
    Descriptor& operator=(Descriptor&& inOther) noexcept
    {
        std::swap(mDescriptor, inOther.mDescriptor);
        return *this;
    }
    ~Descriptor() { Close(); }

    [[nodiscard]] int Get() const { return mDescriptor; }
    [[nodiscard]] bool IsOpen() const { return mDescriptor >= 0; }
    void Close();

private:
    int mDescriptor = -1;
};

/// Logs a failed system call with its cause, errno.
void LogSystemError(std::string_view inMessage, std::string_view inSubject = {});

/// The calls below give a closed descriptor on failure, with errno as the system left it. Sockets are close-on-exec;
/// those for a server do not block, and neither do accepted and connected ones once they are returned.
Descriptor ListenLoopback(std::uint16_t inPort);
Descriptor ListenLocal(const std::string& inPath);
Descriptor ConnectLoopback(const std::string& inAddress, std::uint16_t inPort);
Descriptor ConnectLocal(const std::string& inPath);
Descriptor Accept(int inListener);

std::uint16_t LocalPort(int inSocket);
/// The two ends of an IPv4 connection.
bool GetAddresses(int inSocket, std::string& outLocal, std::uint16_t& outLocalPort, std::string& outPeer,
                  std::uint16_t& outPeerPort);
/// The user of the process at the other end of a Unix socket.
bool GetPeerUser(int inSocket, uid_t& outUser);

}  // namespace noxtransport
