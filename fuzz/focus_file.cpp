// The focus-limit file, as any program may have left it on the boot partition.
//
//   byte:  0      1 ..
//          shape  shape 0: the file's bytes
//                 shape 1: a recipe of a file whose limits are known
//                 shape 2: limits to save, and how much of the file a power cut leaves
#include <cstdio>
#include <iterator>

#include "app/focus_config.h"
#include "app/system_paths.h"
#include "fuzz/focus_limits.h"
#include "fuzz/fuzz_check.h"
#include "fuzz/input.h"
#include "fuzz/log.h"
#include "fuzz/own_places.h"

namespace {

Limits load() {
    // What was there before has no part in it.
    set_limits({77, -77});
    FUZZ_CHECK(focus_config_load() == 0);
    const Limits first = limits();
    set_limits({-1, 1});
    FUZZ_CHECK(focus_config_load() == 0);
    FUZZ_CHECK(limits() == first);
    FUZZ_CHECK(take_log().empty());
    return first;
}

Limits load(const std::string& content) {
    write_own_file(kFocusConfigPath, Bytes(content.begin(), content.end()));
    return load();
}

std::int32_t number(Input& input) {
    const unsigned low = input.word();
    return static_cast<std::int32_t>(low | input.word() << 16);
}

// -- a file whose limits are known
// -----------------------------------------------------------------

constexpr const char* kEnds[] = {"\n", "\r\n", " \n", " ; percent\n"};
constexpr const char* kBetween[] = {"=", " = ", "= ", ":"};
constexpr const char* kNoLimits[] = {
    "# Osmo USB config file\r\n",
    "\n",
    "; a comment\n",
    "mf_mid=3\n",
    "no value\n",
    "MF_MIN=3\n",
    "mf_min\n",
    "[\n",
};

// One line; within a section no name is known.
std::string line_of_recipe(Input& recipe, Limits& known, bool& in_section) {
    const unsigned kind = recipe.byte();
    if (kind % 4 == 0) {
        return kNoLimits[kind / 4 % std::size(kNoLimits)];
    }
    if (kind % 4 == 1 && kind / 4 % 8 == 0) {
        in_section = true;
        return "[limits]\n";
    }
    const bool least = kind % 4 == 2;
    const std::int32_t value = number(recipe);
    if (!in_section) {
        (least ? known.least : known.most) = value;
    }
    return (least ? "mf_min" : "mf_max") + std::string(kBetween[kind / 4 % std::size(kBetween)]) +
           std::to_string(value) + kEnds[kind / 16 % std::size(kEnds)];
}

void check_known_file(Input& recipe) {
    Limits known;
    bool in_section = false;
    std::string content = (recipe.byte() & 1) != 0 ? "\xEF\xBB\xBF" : "";
    while (!recipe.empty()) {
        content += line_of_recipe(recipe, known, in_section);
    }
    FUZZ_CHECK(load(content) == known);
}

// -- a file that was saved
// -------------------------------------------------------------------------

std::string saved_file(Limits to) {
    return "# Osmo USB config file\r\n\r\nmf_min=" + std::to_string(to.least) +
           "\r\nmf_max=" + std::to_string(to.most) + "\r\n";
}

// Whole, or the beginning of its digits, or none.
bool is_beginning(std::int32_t number, std::int32_t whole) {
    return number == 0 || std::to_string(whole).starts_with(std::to_string(number));
}

void check_saved_file(Input& input) {
    const Limits saved{number(input), number(input)};
    set_limits(saved);
    focus_config_save();
    FUZZ_CHECK(take_log() == "Saving config\nCamera config saved\n");
    FUZZ_CHECK(
        (take_commands() == std::vector<std::string>{kMakeBootWritable, kUnmountBoot, kMountBoot}));
    const std::string content = read_own_file(kFocusConfigPath);
    FUZZ_CHECK(content == saved_file(saved));
    FUZZ_CHECK(load() == saved);

    const Limits torn = load(content.substr(0, input.byte() % (content.size() + 1)));
    FUZZ_CHECK(is_beginning(torn.least, saved.least) && is_beginning(torn.most, saved.most));
}

}  // namespace

extern "C" {
int LLVMFuzzerInitialize(int* argument_count, char*** arguments);
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
}

int LLVMFuzzerInitialize(int* /*argument_count*/, char*** /*arguments*/) {
    use_own_places();
    record_log();
    // No file, no limits.
    set_limits({1, 2});
    FUZZ_CHECK(focus_config_load() == 1);
    FUZZ_CHECK(limits() == Limits{});
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    switch (input.byte() % 3) {
        case 0: {
            const Bytes content = input.rest();
            load(std::string(content.begin(), content.end()));
            break;
        }
        case 1:
            check_known_file(input);
            break;
        default:
            check_saved_file(input);
            break;
    }
    return 0;
}
