#include "monitor/receiver_ctl_client.h"

#include <cJSON.h>
#include <curl/curl.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "monitor/receiver_ctl_text.h"

namespace {

using namespace std::chrono_literals;

constexpr long kConnectSeconds = 5;
constexpr std::chrono::milliseconds kLongest = 20s;

std::size_t take_bytes(char* bytes, std::size_t one, std::size_t count, void* body) {
    static_cast<std::string*>(body)->append(bytes, one * count);
    return one * count;
}

using Json = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;

Json parse(const std::string& text) {
    return {cJSON_ParseWithLength(text.data(), text.size()), &cJSON_Delete};
}

}  // namespace

CtlClient::CtlClient(std::string url, const std::string& token)
    : url_(std::move(url)), curl_(curl_easy_init()) {
    headers_ = curl_slist_append(headers_, "Content-Type: application/json");
    if (!token.empty()) {
        headers_ = curl_slist_append(headers_, ("Authorization: Bearer " + token).c_str());
    }
}

CtlClient::~CtlClient() {
    curl_slist_free_all(headers_);
    curl_easy_cleanup(curl_);
}

CtlAnswer CtlClient::get(const std::string& path) {
    curl_easy_setopt(curl_, CURLOPT_HTTPGET, 1L);
    return ask(path);
}

CtlAnswer CtlClient::post(const std::string& path, const std::string& json) {
    curl_easy_setopt(curl_, CURLOPT_POST, 1L);
    curl_easy_setopt(curl_, CURLOPT_POSTFIELDSIZE, static_cast<long>(json.size()));
    curl_easy_setopt(curl_, CURLOPT_COPYPOSTFIELDS, json.c_str());
    return ask(path);
}

CtlAnswer CtlClient::ask(const std::string& path) {
    CtlAnswer answer;
    const std::string address = url_ + path;
    curl_easy_setopt(curl_, CURLOPT_URL, address.c_str());
    curl_easy_setopt(curl_, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl_, CURLOPT_HTTPHEADER, headers_);
    curl_easy_setopt(curl_, CURLOPT_WRITEFUNCTION, take_bytes);
    curl_easy_setopt(curl_, CURLOPT_WRITEDATA, &answer.body);
    curl_easy_setopt(curl_, CURLOPT_CONNECTTIMEOUT, kConnectSeconds);
    // 0 would be no limit at all.
    curl_easy_setopt(curl_, CURLOPT_TIMEOUT_MS,
                     static_cast<long>(std::clamp(patience_, 1ms, kLongest).count()));
    curl_easy_setopt(curl_, CURLOPT_NOSIGNAL, 1L);
    // A proxy of the user's is for the world outside.
    curl_easy_setopt(curl_, CURLOPT_NOPROXY, "*");
    const CURLcode code = curl_easy_perform(curl_);
    if (code != CURLE_OK) {
        return {0, "no receiver-monitor at " + url_ + ": " + curl_easy_strerror(code)};
    }
    curl_easy_getinfo(curl_, CURLINFO_RESPONSE_CODE, &answer.status);
    return answer;
}

std::string ctl_refusal(const CtlAnswer& answer) {
    if (answer.status == 200) {
        return "";
    }
    if (answer.status == 0) {
        return answer.body;
    }
    const Json json = parse(answer.body);
    const char* why = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(json.get(), "refused"));
    return why != nullptr ? "refused: " + ctl_printable(why)
                          : "the answer is HTTP status " + std::to_string(answer.status);
}

std::optional<CtlState> parse_ctl_state(const std::string& text) {
    const Json json = parse(text);
    if (!cJSON_IsObject(json.get())) {
        return std::nullopt;
    }
    CtlState state;
    for (const cJSON* member = json->child; member != nullptr; member = member->next) {
        if (cJSON_IsString(member)) {
            state[member->string] = member->valuestring;
        } else if (cJSON_IsBool(member)) {
            state[member->string] = cJSON_IsTrue(member) != 0 ? "true" : "false";
        } else if (cJSON_IsNumber(member)) {
            char number[32];
            snprintf(number, sizeof number, "%.0f", member->valuedouble);
            state[member->string] = number;
        }
    }
    return state;
}
