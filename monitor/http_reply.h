// Whole answers to a request, with the headers that all of them have. Reentrant; the connection is
// the calling thread's.
#pragma once

#include <cstdint>
#include <string>

struct mg_connection;

// Whether the headers alone are asked for.
bool asks_for_head(mg_connection* connection);
// The status again. `headers` are whole lines.
int reply(mg_connection* connection, int status, const std::string& type, const std::string& body,
          const std::string& headers = "");
// {"refused":"why"}
int reply_refusal(mg_connection* connection, int status, const std::string& why,
                  const std::string& headers = "");
// The headers of an answer whose length is not known; its connection is closed behind it.
void begin_stream(mg_connection* connection, const std::string& type);
// The headers of a file of that many bytes, which is to be kept and not shown.
void begin_download(mg_connection* connection, const std::string& type, const std::string& name,
                    std::uint64_t size);
// False where the client is gone, or takes nothing.
bool write_all(mg_connection* connection, const void* bytes, std::size_t size);
