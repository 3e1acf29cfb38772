#include "monitor/request_guard.h"

#include <algorithm>
#include <cctype>

namespace {

std::string lower(std::string_view text) {
    std::string result(text);
    std::ranges::transform(result, result.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return result;
}

// "HOST", "HOST:PORT", "[V6]:PORT" without the port.
std::string without_port(const std::string& host) {
    if (host.starts_with('[')) {
        return host.substr(0, host.find(']') + 1);
    }
    return host.substr(0, host.find(':'));
}

bool is_address(const std::string& name) {
    if (name.starts_with('[')) {
        return name.ends_with(']');
    }
    // A browser takes nothing else of digits and dots for a name, either.
    return !name.empty() && name.find_first_not_of("0123456789.") == std::string::npos;
}

}  // namespace

bool equal_secrets(std::string_view wanted, std::string_view given) {
    unsigned differences = wanted.size() == given.size() ? 0 : 1;
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        const char other = given.empty() ? '\0' : given[i % given.size()];
        differences |= static_cast<unsigned char>(wanted[i] ^ other);
    }
    return differences == 0;
}

Access check_access(const RequestOrigins& request, const std::string& token) {
    const std::string host = lower(request.host);
    const std::string name = without_port(host);
    if (token.empty() && name != "localhost" && !is_address(name)) {
        return Access::kForeignHost;
    }
    const std::string origin = lower(request.origin);
    if (!origin.empty() && origin != "http://" + host && origin != "https://" + host) {
        return Access::kForeignOrigin;
    }
    constexpr std::string_view kBearer = "Bearer ";
    const std::string_view bearer = request.bearer;
    const bool in_header =
        bearer.starts_with(kBearer) && equal_secrets(token, bearer.substr(kBearer.size()));
    if (!token.empty() && !in_header && !equal_secrets(token, request.token)) {
        return Access::kNoToken;
    }
    return Access::kGranted;
}
