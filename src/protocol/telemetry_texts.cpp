#include "protocol/telemetry_texts.h"

#include <charconv>

// Digits come from the character conversions, which say the same as a printf in a tenth of its
// time: a status or settings message is mostly its texts.

namespace {

// Each appends to a text that has room for it, and returns where the next one goes.

char* put_number(char* at, unsigned number) {
    return std::to_chars(at, at + 10, number).ptr;
}

char* put_one_decimal(char* at, double number) {
    return std::to_chars(at, at + kNumberTextCapacity - 2, number, std::chars_format::fixed, 1).ptr;
}

char* put_two_digits(char* at, unsigned number) {
    *at++ = static_cast<char>('0' + number / 10);
    *at++ = static_cast<char>('0' + number % 10);
    return at;
}

char* put(char* at, char character) {
    *at = character;
    return at + 1;
}

// A whole number, and behind it another one that stands for decimals, unless it is 0.
char* put_with_decimals(char* at, unsigned number, unsigned decimals) {
    at = put_number(at, number);
    return decimals != 0 ? put_number(put(at, '.'), decimals) : at;
}

}  // namespace

void format_hms(std::uint32_t seconds, NumberText& text) {
    const std::uint32_t hours = seconds / 3600;
    if (hours < 100) {
        put(put_two_digits(text, hours), ':');
    } else {
        put_number(text, hours);
    }
    // Minutes and seconds have fixed places. Kept: from 100 hours on they overwrite the hours'
    // colon and all but their first three digits.
    char* const behind_minutes = put_two_digits(text + 3, seconds / 60 % 60);
    put(put_two_digits(put(behind_minutes, ':'), seconds % 60), '\0');
}

void format_gigabytes(float gigabytes, NumberText& text) {
    char* at = text;
    if (gigabytes != 0) {
        at = put(put_one_decimal(at, double{gigabytes}), 'G');
    }
    put(at, '\0');
}

void format_aperture(std::uint16_t raw, NumberText& text) {
    put(raw % 100 == 0 ? put_number(text, raw / 100U) : put_one_decimal(text, raw * 0.01), '\0');
}

bool format_shutter(std::uint32_t raw, NumberText& text) {
    const unsigned low = raw & 0xFF;
    const unsigned middle = raw >> 8 & 0xFF;
    const unsigned decimals = raw >> 16 & 0xFF;
    if (middle == 0) {
        put(put(put_with_decimals(text, low, decimals), '"'), '\0');
        return true;
    }
    if ((middle & 0x80) == 0) {
        return false;
    }
    const unsigned divisor = low + ((middle & 0x7F) << 8);
    put(put_with_decimals(put(put(text, '1'), '/'), divisor, decimals), '\0');
    return true;
}
