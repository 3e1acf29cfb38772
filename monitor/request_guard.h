// Who may ask what. A browser lends its place in the network to any page that it shows: another
// site's page may send requests here (its Origin tells), or have its own name lead here (the Host
// header tells). Reentrant.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Of a token: as many characters as one in a query may have.
constexpr std::size_t kLongestToken = 256;

struct RequestOrigins {
    std::string host;    // the Host header
    std::string origin;  // the Origin header; empty: none, so no browser's cross-site request
    std::string bearer;  // the Authorization header
    std::string token;   // of the query
};

enum class Access { kGranted, kForeignHost, kForeignOrigin, kNoToken };

// Where a token is asked for it is what protects, and a name may lead here; else only addresses and
// "localhost" may.
Access check_access(const RequestOrigins& request, const std::string& token);

// In a time that does not tell where they differ.
bool equal_secrets(std::string_view wanted, std::string_view given);
