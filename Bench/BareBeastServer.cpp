// The peer for HubServerLoad: an HTTP server of nothing but Boost.Beast, one thread, one connection a coroutine-free
// chain of async_read and async_write. Answers every request with the same bytes.
//
// BareBeastServer <port> <payload bytes>

#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

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
    Session(tcp::socket inSocket, const std::string& inPayload) : mStream(std::move(inSocket)), mPayload(inPayload) {}

    void Read()
    {
        mRequest = {};
        http::async_read(mStream, mBuffer, mRequest,
                         [self = shared_from_this()](const beast::error_code& inError, std::size_t) {
                             if (!inError) self->Write();
                         });
    }

private:
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
    beast::flat_buffer mBuffer;
    http::request<http::string_body> mRequest;
    std::optional<http::response<http::span_body<const char>>> mResponse;
};

void Accept(tcp::acceptor& inAcceptor, const std::string& inPayload)
{
    inAcceptor.async_accept([&](const beast::error_code& inError, tcp::socket inSocket) {
        if (!inError) {
            inSocket.set_option(tcp::no_delay(true));
            std::make_shared<Session>(std::move(inSocket), inPayload)->Read();
        }
        Accept(inAcceptor, inPayload);
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
    Accept(acceptor, payload);
    io.run();
    return 0;
}
