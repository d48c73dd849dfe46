#include "agent/control_server.h"

#include <arpa/inet.h>
#include <chrono>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "agent/http_request.h"
#include "agent/mcp_protocol.h"
#include "base/files.h"
#include "support/temp_folder.h"

namespace quillo::agent {
namespace {

using testing::TempFolder;

// A raw client: sends bytes in the pieces given, then reads until the server closes.
std::string exchange(uint16_t port, const std::vector<std::string>& pieces,
                     bool closeWriting = false) {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    for (const std::string& piece : pieces) {
        EXPECT_EQ(send(fd, piece.data(), piece.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(piece.size()));
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    if (closeWriting) {
        shutdown(fd, SHUT_WR);
    }
    timeval timeout{5, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    std::string answer;
    char buffer[4096];
    ssize_t count = 0;
    while ((count = recv(fd, buffer, sizeof buffer, 0)) > 0) {
        answer.append(buffer, static_cast<size_t>(count));
    }
    close(fd);
    return answer;
}

class Server : public ::testing::Test {
protected:
    void SetUp() override {
        server.start(
            [](Json message, ControlServer::Reply reply) { mcp::handle(message, nullptr, reply); },
            0);
        port = server.port();
        ASSERT_NE(port, 0);
    }

    std::string request(const std::string& method, const std::string& target,
                        const std::string& body, const std::string& extra = {}) {
        return method + " " + target + " HTTP/1.1\r\nHost: 127.0.0.1\r\n" +
               "AUTHORIZATION:  Bearer " + server.token() + " \r\n" + extra +
               "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    }

    TempFolder support;
    ControlServer server{support / "mcp.json"};
    uint16_t port = 0;
};

TEST_F(Server, PublishesItsAddressPrivatelyAndRemovesItOnStop) {
    auto text = readFile(support / "mcp.json");
    ASSERT_TRUE(text);
    Json info = *parseJson(*text);
    EXPECT_EQ(info["port"], port);
    EXPECT_EQ(info["token"], server.token());
    EXPECT_EQ(info["pid"], getpid());
    EXPECT_EQ(info["url"], "http://127.0.0.1:" + std::to_string(port) + "/mcp");
    struct stat status {};
    ASSERT_EQ(stat((support / "mcp.json").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    EXPECT_EQ(server.token().size(), 64u);
    EXPECT_EQ(server.token().find_first_not_of("0123456789abcdef"), std::string::npos);
    EXPECT_EQ(server.session().size(), 36u);

    server.stop();
    EXPECT_FALSE(std::filesystem::exists(support / "mcp.json"));
    EXPECT_FALSE(server.address());
}

TEST_F(Server, ChecksComeInTheirOrder) {
    auto status = [](const std::string& answer) { return answer.substr(0, answer.find("\r\n")); };
    // Wrong path beats everything, then Origin, then the key, then the method.
    std::string noKey = "POST /mcp/ HTTP/1.1\r\nOrigin: x\r\nContent-Length: 0\r\n\r\n";
    EXPECT_EQ(status(exchange(port, {noKey})), "HTTP/1.1 404 Not Found");
    EXPECT_EQ(status(exchange(port, {request("POST", "/mcp", "{}", "Origin: http://a\r\n")})),
              "HTTP/1.1 403 Forbidden");
    std::string wrongKey = "POST /mcp HTTP/1.1\r\nAuthorization: Bearer " + std::string(64, '0') +
                           "\r\nContent-Length: 0\r\n\r\n";
    std::string unauthorized = exchange(port, {wrongKey});
    EXPECT_EQ(status(unauthorized), "HTTP/1.1 401 Unauthorized");
    EXPECT_NE(unauthorized.find("Mcp-Session-Id: " + server.session() + "\r\n"), std::string::npos);
    EXPECT_NE(unauthorized.find("Connection: close\r\n"), std::string::npos);
    std::string get = exchange(port, {request("GET", "/mcp", "")});
    EXPECT_EQ(status(get), "HTTP/1.1 405 Method Not Allowed");
    EXPECT_NE(get.find("Content-Length: 0\r\n"), std::string::npos);
    EXPECT_EQ(status(exchange(port, {request("DELETE", "/mcp", "")})), "HTTP/1.1 200 OK");
}

TEST_F(Server, AnswersJsonRpcOverSplitBodies) {
    std::string body = R"({"jsonrpc":"2.0","id":0,"method":"initialize","params":{}})";
    std::string whole = request("POST", "/mcp?x=1", body);
    // Head and body in three pieces, split inside a header and inside the body.
    std::string answer = exchange(port, {whole.substr(0, 30), whole.substr(30, whole.size() - 40),
                                         whole.substr(whole.size() - 10)});
    ASSERT_NE(answer.find("HTTP/1.1 200 OK\r\n"), std::string::npos) << answer;
    EXPECT_NE(answer.find("Content-Type: application/json\r\n"), std::string::npos);
    Json response = *parseJson(answer.substr(answer.find("\r\n\r\n") + 4));
    EXPECT_EQ(response["id"], 0);
    EXPECT_EQ(response["result"]["protocolVersion"], "2025-06-18");
    EXPECT_EQ(response["result"]["serverInfo"]["name"], "quillo");

    std::string accepted =
        exchange(port, {request("POST", "/mcp", R"({"jsonrpc":"2.0","method":"notify"})")});
    EXPECT_EQ(accepted.substr(0, accepted.find("\r\n")), "HTTP/1.1 202 Accepted");

    std::string batch = exchange(port, {request("POST", "/mcp", "[1,2]")});
    Json parseError = *parseJson(batch.substr(batch.find("\r\n\r\n") + 4));
    EXPECT_EQ(parseError, ControlServer::error(nullptr, -32700, "Parse error"));
}

TEST_F(Server, ShortBodiesWaitAndOthersAreStillServed) {
    // A request whose body never completes holds only its own connection.
    int stalled = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(connect(stalled, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    std::string partial = request("POST", "/mcp", R"({"id":1,"method":"ping"})");
    partial.resize(partial.size() - 5);
    send(stalled, partial.data(), partial.size(), MSG_NOSIGNAL);

    std::string ping = exchange(port, {request("POST", "/mcp", R"({"id":"a","method":"ping"})")});
    EXPECT_NE(ping.find(R"("id":"a")"), std::string::npos) << ping;
    // When the peer gives up, the connection is dropped without an answer.
    shutdown(stalled, SHUT_WR);
    char byte = 0;
    EXPECT_EQ(recv(stalled, &byte, 1, 0), 0);
    close(stalled);
}

TEST(HttpRequest, ParsesHeadersAndFramesTheBody) {
    EXPECT_FALSE(parseRequest("POST /mcp HTTP/1.1\r\nContent-Length: 4\r\n"));
    EXPECT_FALSE(parseRequest("POST /mcp HTTP/1.1\r\nContent-Length: 4\r\n\r\nab"));
    auto request = parseRequest(
        "POST /mcp HTTP/1.1\r\nX-Mixed-Case:  v a \r\nnovalue\r\n"
        "Content-Length: 2\r\n\r\nabEXTRA");
    ASSERT_TRUE(request);
    EXPECT_EQ(request->method, "POST");
    EXPECT_EQ(request->target, "/mcp");
    EXPECT_EQ(request->headers.at("x-mixed-case"), "v a");
    EXPECT_EQ(request->body, "ab");
    EXPECT_EQ(request->headers.count("novalue"), 0u);
}

TEST(McpProtocol, MethodsAndErrors) {
    auto call = [](const std::string& text) { return mcp::handleNow(*parseJson(text), nullptr); };
    EXPECT_EQ(*call(R"({"id":3,"method":"ping"})"),
              Json::parse(R"({"jsonrpc":"2.0","id":3,"result":{}})"));
    EXPECT_EQ((*call(R"({"id":1,"method":"initialize","params":{"protocolVersion":"2025-11-25"}})"))
                  ["result"]["protocolVersion"],
              "2025-11-25");
    EXPECT_EQ((*call(R"({"id":1,"method":"initialize","params":[]})"))["result"]["protocolVersion"],
              "2025-06-18");
    EXPECT_EQ(*call(R"({"id":null,"method":"nope"})"),
              ControlServer::error(nullptr, -32601, "Unknown method nope"));
    EXPECT_EQ(*call(R"({"id":2,"method":"tools/call","params":{"name":5}})"),
              ControlServer::error(2, -32602, "Missing tool name"));
    EXPECT_FALSE(call(R"({"method":"notifications/initialized"})"));
    EXPECT_FALSE(call(R"({"id":4,"method":7})"));
}

}  // namespace
}  // namespace quillo::agent
