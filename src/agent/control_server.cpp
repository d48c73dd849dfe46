#include "control_server.h"

#include <algorithm>
#include <cstdio>
#include <future>
#include <mutex>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include <asio.hpp>

#include "base/files.h"
#include "base/uuid.h"
#include "http_request.h"

namespace quillo::agent {

namespace fs = std::filesystem;
using asio::ip::tcp;

namespace {

constexpr size_t kReadChunk = 1024 * 1024;

std::string makeToken() {
    std::string bytes = secureRandomBytes(32);
    std::string hex;
    for (unsigned char byte : bytes) {
        char pair[3];
        std::snprintf(pair, sizeof pair, "%02x", byte);
        hex += pair;
    }
    return hex;
}

std::string upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

// Compares without stopping at the first difference, so timing tells nothing about the key.
bool sameSecret(const std::string& a, const std::string& b) {
    if (a.size() != b.size()) {
        return false;
    }
    unsigned char difference = 0;
    for (size_t i = 0; i < a.size(); ++i) {
        difference |= static_cast<unsigned char>(a[i] ^ b[i]);
    }
    return difference == 0;
}

}  // namespace

struct ControlServer::Impl : std::enable_shared_from_this<ControlServer::Impl> {
    fs::path infoFile;
    std::string token = makeToken();
    std::string session = upper(makeUUID());

    asio::io_context io;
    std::optional<asio::executor_work_guard<asio::io_context::executor_type>> work;
    std::thread thread;

    // Read and written on the io thread only, apart from the mutex-guarded copies below.
    std::unique_ptr<tcp::acceptor> acceptor;
    Handler handler;

    mutable std::mutex mutex;
    std::optional<std::string> address;
    uint16_t port = 0;

    // One connection: reads until a whole request has arrived, answers once, closes.
    struct Connection : std::enable_shared_from_this<Connection> {
        // The server owns its io_context, which owns every pending operation and with it every
        // connection, so a plain pointer back never dangles.
        Connection(Impl* server, tcp::socket socket) : server(server), socket(std::move(socket)) {}

        void read() {
            const size_t used = buffer.size();
            buffer.resize(used + kReadChunk);
            socket.async_read_some(
                asio::buffer(buffer.data() + used, kReadChunk),
                [self = shared_from_this(), used](const asio::error_code& error, size_t count) {
                    self->buffer.resize(used + count);
                    if (error) {
                        return;  // the peer left before the request was whole: drop it
                    }
                    if (auto request = parseRequest(self->buffer)) {
                        self->server->respond(*request, self);
                        return;
                    }
                    if (self->buffer.size() > kMaxRequest) {
                        return;
                    }
                    self->read();
                });
        }

        void send(int status, const std::string& body = {}) {
            auto text = std::make_shared<std::string>(httpResponse(status, server->session, body));
            asio::async_write(socket, asio::buffer(*text),
                              [self = shared_from_this(), text](const asio::error_code&, size_t) {
                                  asio::error_code ignored;
                                  self->socket.shutdown(tcp::socket::shutdown_both, ignored);
                                  self->socket.close(ignored);
                              });
        }

        Impl* server;
        tcp::socket socket;
        std::string buffer;
    };

    void accept() {
        if (!acceptor) {
            return;
        }
        acceptor->async_accept([self = this](const asio::error_code& error, tcp::socket socket) {
            if (!self->acceptor) {
                return;
            }
            if (!error) {
                std::make_shared<Connection>(self, std::move(socket))->read();
            }
            self->accept();
        });
    }

    void respond(const HttpRequest& request, const std::shared_ptr<Connection>& connection) {
        std::string_view path = request.target;
        path = path.substr(0, path.find('?'));
        if (path != "/mcp") {
            connection->send(404);
            return;
        }
        if (request.headers.count("origin")) {
            connection->send(403);
            return;
        }
        auto authorization = request.headers.find("authorization");
        if (authorization == request.headers.end() ||
            !sameSecret(authorization->second, "Bearer " + token)) {
            connection->send(401);
            return;
        }
        if (request.method == "DELETE") {
            connection->send(200);
            return;
        }
        if (request.method != "POST") {
            connection->send(405);
            return;
        }
        auto message = parseJson(request.body);
        if (!message || !message->is_object()) {
            connection->send(200, toCompactJson(error(nullptr, -32700, "Parse error")));
            return;
        }
        if (!handler) {
            connection->send(202);
            return;
        }
        // The reply may come from any thread; the answer is sent from the io thread.
        auto once = std::make_shared<std::once_flag>();
        handler(std::move(*message),
                [this, self = shared_from_this(), connection, once](std::optional<Json> response) {
                    std::call_once(*once, [&] {
                        asio::post(io, [connection, response = std::move(response)] {
                            if (response) {
                                connection->send(200, toCompactJson(*response));
                            } else {
                                connection->send(202);
                            }
                        });
                    });
                });
    }

    bool listen(uint16_t wanted) {
        auto candidate = std::make_unique<tcp::acceptor>(io);
        asio::error_code error;
        tcp::endpoint endpoint(asio::ip::address_v4::loopback(), wanted);
        candidate->open(endpoint.protocol(), error);
        if (!error) {
            candidate->set_option(tcp::acceptor::reuse_address(true), error);
        }
        if (!error) {
            candidate->bind(endpoint, error);
        }
        if (!error) {
            candidate->listen(asio::socket_base::max_listen_connections, error);
        }
        if (error) {
            return false;
        }
        const uint16_t bound = candidate->local_endpoint(error).port();
        acceptor = std::move(candidate);
        publish(bound);
        accept();
        return true;
    }

    void publish(uint16_t bound) {
        const std::string url = "http://127.0.0.1:" + std::to_string(bound) + "/mcp";
        {
            std::lock_guard lock(mutex);
            address = url;
            port = bound;
        }
        std::error_code ignored;
        fs::create_directories(infoFile.parent_path(), ignored);
        Json info = {{"port", bound}, {"token", token}, {"pid", getpid()}, {"url", url}};
        // Failing to publish leaves the server running; agents then cannot find it.
        (void)writeFileAtomically(infoFile, toPrettyJson(info), 0600);
    }

    void close() {
        if (acceptor) {
            asio::error_code ignored;
            acceptor->close(ignored);
            acceptor.reset();
        }
        {
            std::lock_guard lock(mutex);
            address.reset();
            port = 0;
        }
        std::error_code ignored;
        fs::remove(infoFile, ignored);
    }
};

ControlServer::ControlServer(fs::path infoFile) : m(std::make_shared<Impl>()) {
    m->infoFile = std::move(infoFile);
    m->work.emplace(m->io.get_executor());
    m->thread = std::thread([impl = m.get()] {
        pthread_setname_np(pthread_self(), "app.quillo.mcp");
        impl->io.run();
    });
}

ControlServer::~ControlServer() {
    stop();
    asio::post(m->io, [impl = m.get()] { impl->handler = nullptr; });
    m->work.reset();
    m->io.stop();
    if (m->thread.joinable()) {
        m->thread.join();
    }
}

void ControlServer::start(Handler handler, uint16_t port) {
    std::promise<void> done;
    asio::post(m->io, [impl = m.get(), handler = std::move(handler), port, &done]() mutable {
        if (!impl->acceptor) {
            impl->handler = std::move(handler);
            if (!impl->listen(port) && port != 0) {
                impl->listen(0);
            }
        }
        done.set_value();
    });
    done.get_future().wait();
}

void ControlServer::stop() {
    std::promise<void> done;
    asio::post(m->io, [impl = m.get(), &done] {
        impl->close();
        done.set_value();
    });
    done.get_future().wait();
}

std::optional<std::string> ControlServer::address() const {
    std::lock_guard lock(m->mutex);
    return m->address;
}

uint16_t ControlServer::port() const {
    std::lock_guard lock(m->mutex);
    return m->port;
}

const std::string& ControlServer::token() const { return m->token; }
const std::string& ControlServer::session() const { return m->session; }
const fs::path& ControlServer::infoFile() const { return m->infoFile; }

Json ControlServer::error(const Json& id, int code, const std::string& message) {
    return {{"jsonrpc", "2.0"}, {"id", id}, {"error", {{"code", code}, {"message", message}}}};
}

}  // namespace quillo::agent
