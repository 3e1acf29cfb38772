#include "app/board_check.h"

#include <stdio.h>
#include <string.h>

#include <cstddef>

#include "app/system_paths.h"

namespace {

// Part of the device tree's model text. "Raspberry Pi 3 Model A" takes in the "Plus" boards.
constexpr const char* kSupportedBoards[] = {
    "Raspberry Pi 3 Model A",
    "Raspberry Pi 4 Model B",
};

constexpr std::size_t kModelTextLimit = 100;

// A model that cannot be read stays empty, and an empty one is refused like any unknown board.
void read_model(char* model) {
    FILE* file = fopen(kBoardModelPath, "r");
    if (file == nullptr) {
        return;
    }
    const std::size_t length = fread(model, 1, kModelTextLimit, file);
    model[length] = '\0';
    fclose(file);
}

bool is_supported(const char* model) {
    for (const char* board : kSupportedBoards) {
        if (strstr(model, board) != nullptr) {
            return true;
        }
    }
    return false;
}

// For the main application. On a system without the directory nobody asks for it.
void publish_verdict(const char* verdict) {
    FILE* file = fopen(kBoardSupportedPath, "w");
    if (file == nullptr) {
        return;
    }
    fputs(verdict, file);
    fclose(file);
}

}  // namespace

bool board_check() {
    char model[kModelTextLimit + 1] = {};
    read_model(model);
    fprintf(stderr, "Board model: %s\n", model);
    const bool supported = is_supported(model);
    fprintf(stderr, "%s\n", supported ? "Board supported" : "Board not supported");
    publish_verdict(supported ? "1" : "0");
    return supported;
}
