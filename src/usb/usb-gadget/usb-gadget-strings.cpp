// String descriptors.
#include <errno.h>

#include "protocol/little_endian.h"
#include "usb/usb-gadget/usb-gadget-internal.h"
#include "usb/usb-gadget/usb-gadget.h"

namespace {

constexpr std::uint8_t kStringType = 3;
constexpr std::size_t kLongestString = 126;  // characters, as the length byte counts to 254

const char* find_text(const UsbGadgetStrings* strings, int index) {
    if (strings == nullptr || strings->strings == nullptr) {
        return nullptr;
    }
    for (const UsbGadgetString* entry = strings->strings; entry->text != nullptr; ++entry) {
        if (entry->index == index) {
            return entry->text;
        }
    }
    return nullptr;
}

// Both top bits must be set, so the continuation bytes of ordinary UTF-8 (10xxxxxx) are refused.
// Kept: only plain ASCII texts are ever presented, and what a host is told must not change.
bool is_continuation(std::uint8_t byte) {
    return (byte & 0xC0) == 0xC0;
}

// Takes one character off the text; -1 for one that cannot be sent. The text's end is not a
// continuation, so nothing behind it is read.
std::int32_t next_character(const char** text) {
    const auto byte = [text](int offset) { return static_cast<std::uint8_t>((*text)[offset]); };
    std::int32_t character = byte(0);
    int length = 1;
    if ((character & 0xE0) == 0xC0) {
        if (!is_continuation(byte(1))) {
            return -1;
        }
        character = (character & 0x1F) << 6 | (byte(1) & 0x3F);
        length = 2;
    } else if ((character & 0xF0) == 0xE0) {
        if (!is_continuation(byte(1)) || !is_continuation(byte(2))) {
            return -1;
        }
        character = (character & 0x0F) << 12 | (byte(1) & 0x3F) << 6 | (byte(2) & 0x3F);
        if (character >= 0xD800 && character <= 0xDFFF) {
            return -1;  // half of a surrogate pair
        }
        length = 3;
    } else if (character >= 0x80) {
        return -1;
    }
    *text += length;
    return character;
}

}  // namespace

int usb_gadget_get_string(const UsbGadgetStrings* strings, int index, std::uint8_t* reply) {
    std::size_t length = 2;
    if (index == 0) {
        // The languages: a single one, whatever texts the table holds.
        if (strings == nullptr) {
            return -EINVAL;
        }
        write_le16(reply + length, strings->language);
        length += 2;
    } else {
        const char* text = find_text(strings, index);
        if (text == nullptr) {
            return -EINVAL;
        }
        for (std::size_t count = 0; *text != '\0' && count < kLongestString; ++count) {
            const std::int32_t character = next_character(&text);
            if (character < 0) {
                return -EINVAL;
            }
            write_le16(reply + length, static_cast<std::uint16_t>(character));
            length += 2;
        }
    }
    reply[0] = static_cast<std::uint8_t>(length);
    reply[1] = kStringType;
    return static_cast<int>(length);
}
