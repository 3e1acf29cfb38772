#include "monitor/web_server.h"

#include <civetweb.h>

#include <array>
#include <chrono>
#include <cstring>
#include <exception>
#include <thread>

#include "monitor/connection_end.h"
#include "monitor/http_reply.h"
#include "monitor/live_socket.h"
#include "monitor/request_guard.h"
#include "monitor/web_resources.h"

namespace {

// Each viewer keeps one of the server's threads, which sleeps while it has nothing to do.
constexpr char kThreads[] = "160";
// A client that takes no byte for as long is let go.
constexpr char kTimeoutMs[] = "10000";
// How long a closed WebSocket may go unnoticed.
constexpr char kWebSocketTimeoutMs[] = "500";
constexpr std::size_t kLargestMessage = 65536;
constexpr auto kUntilItStops = std::chrono::milliseconds(50);

WebServer& server_of(void* data) {
    return *static_cast<WebServer*>(data);
}

RequestOrigins origins_of(mg_connection* connection) {
    const auto header = [&](const char* name) {
        const char* value = mg_get_header(connection, name);
        return std::string(value == nullptr ? "" : value);
    };
    RequestOrigins origins{header("Host"), header("Origin"), header("Authorization"), {}};
    const char* query = mg_get_request_info(connection)->query_string;
    std::array<char, kLongestToken + 1> token{};
    if (query != nullptr &&
        mg_get_var(query, strlen(query), "token", token.data(), token.size()) > 0) {
        origins.token = token.data();
    }
    return origins;
}

// The library knows no exceptions. One means that there is no memory, or no thread, which costs
// this client its connection and nobody else anything.
template <typename Function>
void or_end(const mg_connection* connection, Function function) {
    try {
        function();
    } catch (const std::exception&) {
        end_connection(connection);
    }
}

int on_request(mg_connection* connection, void* data) {
    int status = 500;
    or_end(connection, [&] { status = server_of(data).answer(connection); });
    return status;
}

// 0 lets the handshake go on.
int on_connect(const mg_connection* connection, void* data) {
    auto* writable = const_cast<mg_connection*>(connection);
    bool admitted = false;
    or_end(connection, [&] { admitted = server_of(data).admit(writable); });
    return admitted ? 0 : 1;
}

void on_ready(mg_connection* connection, void* data) {
    or_end(connection, [&] {
        mg_set_user_connection_data(connection,
                                    new LiveSocket(server_of(data).parts(), connection));
    });
}

int on_message(mg_connection* connection, int bits, char* message, size_t length, void* /*data*/) {
    auto* live = static_cast<LiveSocket*>(mg_get_user_connection_data(connection));
    const int opcode = bits & 0x0F;
    const bool is_last = (bits & 0x80) != 0;
    if (opcode == MG_WEBSOCKET_OPCODE_CONNECTION_CLOSE || length > kLargestMessage) {
        return 0;
    }
    if (opcode == MG_WEBSOCKET_OPCODE_PING) {
        mg_websocket_write(connection, MG_WEBSOCKET_OPCODE_PONG, message, length);
    } else if (opcode == MG_WEBSOCKET_OPCODE_TEXT && is_last && live != nullptr) {
        or_end(connection, [&] { live->take({message, length}); });
    } else if (opcode != MG_WEBSOCKET_OPCODE_PONG) {
        return 0;  // no page sends pieces or binary messages
    }
    return 1;
}

void on_close(const mg_connection* connection, void* /*data*/) {
    delete static_cast<LiveSocket*>(mg_get_user_connection_data(connection));
    mg_set_user_connection_data(const_cast<mg_connection*>(connection), nullptr);
}

int on_log(const mg_connection* /*connection*/, const char* /*message*/) {
    return 1;  // clients that go away are no news
}

}  // namespace

WebServer::WebServer(MonitorParts parts, WebServerOptions options)
    : parts_(parts), options_(std::move(options)), page_(options_.page) {}

WebServer::~WebServer() {
    stop();
}

bool WebServer::start() {
    const std::string port = options_.address + ":" + std::to_string(options_.port);
    // clang-format off
    const char* settings[] = {
        "listening_ports",            port.c_str(),
        "num_threads",                kThreads,
        "connection_queue",           "256",
        "listen_backlog",             "256",
        "tcp_nodelay",                "1",
        "request_timeout_ms",         kTimeoutMs,
        "websocket_timeout_ms",       kWebSocketTimeoutMs,
        "enable_auth_domain_check",   "no",
        nullptr,
    };
    // clang-format on
    mg_callbacks callbacks{};
    callbacks.log_message = on_log;
    mg_init_library(0);
    context_ = mg_start(&callbacks, this, settings);
    if (context_ == nullptr) {
        return false;
    }
    mg_set_request_handler(context_, "**", on_request, this);
    mg_set_websocket_handler(context_, "/live", on_connect, on_ready, on_message, on_close, this);
    return true;
}

void WebServer::stop() {
    if (context_ != nullptr) {
        // The thread that takes connections looks up every two seconds, or when one comes.
        std::thread knocks([address = options_.address, port = port()] {
            std::this_thread::sleep_for(kUntilItStops);
            std::array<char, 128> error;
            if (mg_connection* connection =
                    mg_connect_client(address.c_str(), port, 0, error.data(), error.size())) {
                mg_close_connection(connection);
            }
        });
        mg_stop(context_);
        knocks.join();
        mg_exit_library();
        context_ = nullptr;
    }
}

std::uint16_t WebServer::port() const {
    mg_server_port port{};
    const bool known = context_ != nullptr && mg_get_server_ports(context_, 1, &port) == 1;
    return static_cast<std::uint16_t>(known ? port.port : 0);
}

bool WebServer::admit(mg_connection* connection) const {
    switch (check_access(origins_of(connection), options_.token)) {
        case Access::kGranted:
            return true;
        case Access::kNoToken:
            reply_refusal(connection, 401, "a token is asked for", "WWW-Authenticate: Bearer\r\n");
            return false;
        case Access::kForeignHost:
            reply_refusal(connection, 421, "this name is not served here");
            return false;
        default:
            reply_refusal(connection, 403, "asked by another site's page");
            return false;
    }
}

int WebServer::answer(mg_connection* connection) {
    const mg_request_info* info = mg_get_request_info(connection);
    const std::string path = info->local_uri == nullptr ? "" : info->local_uri;
    const std::string method = info->request_method;
    const WebResource* resource = find_web_resource(path);
    if (resource == nullptr) {
        return answer_page(connection, path);
    }
    const bool fits =
        method == resource->method || (method == "HEAD" && strcmp(resource->method, "GET") == 0);
    if (!fits) {
        return reply_refusal(connection, 405, "another method is asked for",
                             "Allow: " + std::string(resource->method) + "\r\n");
    }
    if (resource->for_everybody || admit(connection)) {
        resource->answer(connection, parts_);
    }
    return 200;
}

// Its files hold no secret, and what they load cannot bring a token.
int WebServer::answer_page(mg_connection* connection, const std::string& path) const {
    const std::string method = mg_get_request_info(connection)->request_method;
    const PageFile* file = page_.find(path);
    if (method != "GET" && method != "HEAD") {
        return reply_refusal(connection, 405, "another method is asked for",
                             "Allow: GET, HEAD\r\n");
    }
    if (file == nullptr && path == "/" && page_.empty()) {
        return reply(connection, 200, "text/plain; charset=utf-8",
                     "The page was not built. There are /api/state, /api/command, /video.h264, "
                     "/metrics, /healthz and the WebSocket /live.\n");
    }
    if (file == nullptr) {
        return reply_refusal(connection, 404, "there is nothing here");
    }
    const char* known = mg_get_header(connection, "If-None-Match");
    const std::string tag = "ETag: " + file->tag + "\r\n";
    if (known != nullptr && file->tag == known) {
        return reply(connection, 304, file->type, "", tag);
    }
    return reply(connection, 200, file->type, file->content, tag);
}
