// The peer for HubServerLoad: an HTTP server of nothing but Boost.Beast, one thread, one connection a coroutine-free
// chain of async_read and async_write. Answers every request with the same bytes; /wait is answered when somebody asks
// for /wake.
//
// BareBeastServer <port> <payload bytes>

#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http.hpp>

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
using tcp = boost::asio::ip::tcp;

namespace {

class Session : public std::enable_shared_from_this<Session>
{
public:
    Session(tcp::socket inSocket, const std::string& inPayload, std::vector<std::shared_ptr<Session>>& ioWaiting)
        : mStream(std::move(inSocket)), mPayload(inPayload), mWaiting(ioWaiting)
    {
    }

    void Read()
    {
        mRequest = {};
        http::async_read(mStream, mBuffer, mRequest,
                         [self = shared_from_this()](const beast::error_code& inError, std::size_t) {
                             if (!inError) self->Answer();
                         });
    }

private:
    void Answer()
    {
        if (mRequest.target() == "/wait") {
            mWaiting.push_back(shared_from_this());
            return;
        }
        if (mRequest.target() == "/wake")
            for (const auto& waiting : std::exchange(mWaiting, {}))
                waiting->Write();
        Write();
    }

    void Write()
    {
        mResponse.emplace(http::status::ok, mRequest.version());
        mResponse->set(http::field::content_type, "application/json; charset=utf-8");
        mResponse->keep_alive(mRequest.keep_alive());
        mResponse->body() = {mPayload.data(), mPayload.size()};
        mResponse->prepare_payload();
        http::async_write(mStream, *mResponse,
                          [self = shared_from_this()](const beast::error_code& inError, std::size_t) {
                              if (!inError && self->mResponse->keep_alive()) self->Read();
                          });
    }

    beast::tcp_stream mStream;
    const std::string& mPayload;
    std::vector<std::shared_ptr<Session>>& mWaiting;
    beast::flat_buffer mBuffer;
    http::request<http::string_body> mRequest;
    std::optional<http::response<http::span_body<const char>>> mResponse;
};

void Accept(tcp::acceptor& inAcceptor, const std::string& inPayload, std::vector<std::shared_ptr<Session>>& ioWaiting)
{
    inAcceptor.async_accept([&](const beast::error_code& inError, tcp::socket inSocket) {
        if (!inError) {
            inSocket.set_option(tcp::no_delay(true));
            std::make_shared<Session>(std::move(inSocket), inPayload, ioWaiting)->Read();
        }
        Accept(inAcceptor, inPayload, ioWaiting);
    });
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "BareBeastServer <port> <payload bytes>\n";
        return 2;
    }
    const std::string payload(std::strtoull(argv[2], nullptr, 10), 'x');
    asio::io_context io(1);
    tcp::acceptor acceptor(
        io, {asio::ip::address_v4::loopback(), static_cast<std::uint16_t>(std::strtoul(argv[1], nullptr, 10))});
    std::vector<std::shared_ptr<Session>> waiting;
    Accept(acceptor, payload, waiting);
    io.run();
    return 0;
}
