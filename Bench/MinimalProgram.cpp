// The peer for the hub's start: the least that answers over HTTP with the hub's libraries at work: a SQLite file with
// one table, libgit2 initialised, a Beast server on a port of its own.
//
//   MinimalProgram <folder> <port>

#include <cstdlib>
#include <string>

#include <git2.h>
#include <re2/re2.h>
#include <spdlog/spdlog.h>
#include <sqlite3.h>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;

int main(int argc, char** argv)
{
    if (argc != 3) return 2;
    git_libgit2_init();
    sqlite3* db = nullptr;
    sqlite3_open((std::string(argv[1]) + "/minimal.sqlite3").c_str(), &db);
    sqlite3_exec(db, "CREATE TABLE IF NOT EXISTS t(k TEXT PRIMARY KEY, v TEXT)", nullptr, nullptr, nullptr);
    const re2::RE2 path("^/api/([\\w\\-]+)$");
    spdlog::info("minimal program");
    asio::io_context context;
    asio::ip::tcp::acceptor acceptor(
        context, {asio::ip::address_v4::loopback(), static_cast<std::uint16_t>(std::strtoul(argv[2], nullptr, 10))});
    for (;;) {
        asio::ip::tcp::socket socket(context);
        acceptor.accept(socket);
        beast::flat_buffer buffer;
        http::request<http::empty_body> request;
        beast::error_code error;
        http::read(socket, buffer, request, error);
        if (error) continue;
        const bool known = re2::RE2::FullMatch(std::string(request.target()), path);
        http::response<http::string_body> response(known ? http::status::ok : http::status::not_found, 11);
        response.body() = "{}";
        response.prepare_payload();
        response.keep_alive(false);
        http::write(socket, response, error);
    }
}
