#include "app/focus_config.h"

#include <ini.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "app/system_paths.h"
#include "protocol/number_conversion.h"

namespace {

FocusLimits focus_limits;

// Called for every name=value line. 0 refuses the line, which the parser notes and passes over.
int take_line(void* user, const char* section, const char* name, const char* value) {
    FocusLimits* limits = static_cast<FocusLimits*>(user);
    if (section[0] != '\0') {
        return 0;
    }
    if (strcmp(name, "mf_min") == 0) {
        limits->mf_min.store(parse_int32(value), std::memory_order_relaxed);
        return 1;
    }
    if (strcmp(name, "mf_max") == 0) {
        limits->mf_max.store(parse_int32(value), std::memory_order_relaxed);
        return 1;
    }
    return 0;
}

// A boot partition that is already writable, or that is not there, is found out when the file is
// opened.
void run_shell(const char* command) {
    [[maybe_unused]] const int result = system(command);
}

}  // namespace

FocusLimits* focus_config_get() {
    return &focus_limits;
}

int focus_config_load() {
    focus_limits.mf_min.store(0, std::memory_order_relaxed);
    focus_limits.mf_max.store(0, std::memory_order_relaxed);
    // A positive result names the first line that was refused: the other lines count.
    return ini_parse(kFocusConfigPath, take_line, &focus_limits) < 0 ? 1 : 0;
}

void focus_config_save() {
    fprintf(stderr, "Saving config\n");
    // The file is meant for editors on any computer that takes the card: lines end in CR LF.
    char text[128];
    snprintf(text, sizeof(text), "# Osmo USB config file\r\n\r\nmf_min=%d\r\nmf_max=%d\r\n",
             focus_limits.mf_min.load(std::memory_order_relaxed),
             focus_limits.mf_max.load(std::memory_order_relaxed));

    run_shell(kMakeBootWritable);
    FILE* file = fopen(kFocusConfigPath, "w");
    if (file == nullptr) {
        // The partition is left as it is; the limits hold until the process ends.
        fprintf(stderr, "Failed to save camera config\n");
        return;
    }
    fputs(text, file);
    fclose(file);
    fprintf(stderr, "Camera config saved\n");
    // Back to the way the system's table of file systems has it.
    run_shell(kUnmountBoot);
    run_shell(kMountBoot);
}
