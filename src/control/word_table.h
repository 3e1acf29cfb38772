// Tables that say what a word of the main application means. Reentrant but for what a row sends.
#pragma once

#include <stdio.h>
#include <string.h>

#include <cstdint>
#include <span>

// One word of a command: its log line, which may be empty, and its packets (send_packets()).
struct WordPackets {
    const char* word;
    const char* log_line;
    int (*send)();
};

// Logs and sends the row of exactly this word: the result is that of the last camera_send(). Where
// there is none, the non-zero result of the last comparison.
inline int send_word(std::span<const WordPackets> rows, const char* word) {
    int difference = 0;
    for (const WordPackets& row : rows) {
        difference = strcmp(word, row.word);
        if (difference == 0) {
            fputs(row.log_line, stderr);
            return row.send();
        }
    }
    return difference;
}

struct WordCode {
    const char* word;
    std::uint8_t code;
};

// 0 for a word that stands in no row.
inline std::uint8_t code_of(std::span<const WordCode> rows, const char* word) {
    for (const WordCode& row : rows) {
        if (strcmp(word, row.word) == 0) {
            return row.code;
        }
    }
    return 0;
}

struct NumberCode {
    int number;
    std::uint8_t code;
};

// 0 for a number that stands in no row.
inline std::uint8_t code_of(std::span<const NumberCode> rows, int number) {
    for (const NumberCode& row : rows) {
        if (row.number == number) {
            return row.code;
        }
    }
    return 0;
}
