#include "monitor/http_reply.h"

#include <civetweb.h>

#include "monitor/telemetry_store.h"

namespace {

// Nothing from elsewhere, nowhere else: the page brings what it needs, and an address with a token
// goes to nobody. Media Source plays from blob:; plots set styles on their elements.
constexpr char kHeaders[] =
    "Content-Security-Policy: default-src 'self'; img-src 'self' blob: data:; "
    "media-src 'self' blob:; style-src 'self' 'unsafe-inline'; object-src 'none'; "
    "base-uri 'none'; form-action 'none'; frame-ancestors 'none'\r\n"
    "X-Content-Type-Options: nosniff\r\n"
    "Referrer-Policy: no-referrer\r\n"
    "Cross-Origin-Resource-Policy: same-origin\r\n"
    "Connection: close\r\n";

std::string head(int status, const std::string& type, const std::string& headers) {
    return "HTTP/1.1 " + std::to_string(status) + " " + mg_get_response_code_text(nullptr, status) +
           "\r\nContent-Type: " + type + "\r\n" + kHeaders + headers;
}

}  // namespace

bool asks_for_head(mg_connection* connection) {
    return std::string(mg_get_request_info(connection)->request_method) == "HEAD";
}

bool write_all(mg_connection* connection, const void* bytes, std::size_t size) {
    return mg_write(connection, bytes, size) == static_cast<int>(size);
}

int reply(mg_connection* connection, int status, const std::string& type, const std::string& body,
          const std::string& headers) {
    // A page's file is asked for each time, by its tag; all else is of the moment.
    const char* cache = headers.starts_with("ETag") ? "no-cache" : "no-store";
    std::string text = head(status, type, headers) + "Cache-Control: " + cache +
                       "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n";
    if (!asks_for_head(connection)) {
        text += body;
    }
    write_all(connection, text.data(), text.size());
    return status;
}

int reply_refusal(mg_connection* connection, int status, const std::string& why,
                  const std::string& headers) {
    return reply(connection, status, "application/json", "{\"refused\":" + json_text(why) + "}\n",
                 headers);
}

void begin_download(mg_connection* connection, const std::string& type, const std::string& name,
                    std::uint64_t size) {
    const std::string text =
        head(200, type,
             "Cache-Control: no-store\r\nContent-Disposition: attachment; "
             "filename=\"" +
                 name + "\"\r\nContent-Length: " + std::to_string(size) + "\r\n") +
        "\r\n";
    write_all(connection, text.data(), text.size());
}

void begin_stream(mg_connection* connection, const std::string& type) {
    const std::string text = head(200, type, "Cache-Control: no-store\r\n") + "\r\n";
    write_all(connection, text.data(), text.size());
}
