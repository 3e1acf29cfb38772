#include "monitor/receiver_ctl_text.h"

namespace {

bool is_control(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F;
}

// U+0080 to U+009F in UTF-8: U+009B begins a sequence just as the escape character does.
bool is_long_control(const std::string& text, std::size_t at) {
    if (at + 1 >= text.size() || text[at] != '\xC2') {
        return false;
    }
    const auto byte = static_cast<unsigned char>(text[at + 1]);
    return byte >= 0x80 && byte < 0xA0;
}

}  // namespace

std::string ctl_printable(std::string text) {
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (is_long_control(text, at)) {
            text.replace(at, 2, "?");
        } else if (is_control(text[at])) {
            text[at] = '?';
        }
    }
    return text;
}
