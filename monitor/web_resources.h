// What is served beside the page, a row each.
#pragma once

#include <string>

#include "monitor/monitor_parts.h"

struct mg_connection;

struct WebResource {
    const char* path;  // with a slash at its end: all that begin so
    const char* method;
    bool for_everybody;  // without a token, and by any name
    void (*answer)(mg_connection* connection, MonitorParts& parts);
};

// Null where there is none of that path. Reentrant.
const WebResource* find_web_resource(const std::string& path);
