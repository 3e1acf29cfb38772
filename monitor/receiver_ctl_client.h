// receiver-monitor as receiver-ctl asks it. Not thread-safe.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>

using CURL = void;

struct CtlAnswer {
    long status = 0;  // of HTTP; 0: none came, and body says why
    std::string body;
};

class CtlClient {
  public:
    // The monitor's address, "http://HOST:PORT", and the token that it asks for or an empty one.
    CtlClient(std::string url, const std::string& token);
    ~CtlClient();
    CtlClient(const CtlClient&) = delete;
    CtlClient& operator=(const CtlClient&) = delete;

    // Each question's time from now on, where it is the shorter one.
    void set_patience(std::chrono::milliseconds patience) { patience_ = patience; }
    CtlAnswer get(const std::string& path);
    CtlAnswer post(const std::string& path, const std::string& json);

  private:
    CtlAnswer ask(const std::string& path);

    const std::string url_;
    std::chrono::milliseconds patience_ = std::chrono::milliseconds::max();
    CURL* curl_;
    struct curl_slist* headers_ = nullptr;
};

// Why the monitor has not done it, in its own words where it gave any; empty where it has.
std::string ctl_refusal(const CtlAnswer& answer);

// The values of /api/state as texts. nullopt where it is no JSON object.
using CtlState = std::map<std::string, std::string>;
std::optional<CtlState> parse_ctl_state(const std::string& json);
