// What the camera's codes mean, as the reports name it. The main application compares these texts:
// each stays as it is, letter by letter.
#pragma once

#include <cstdint>
#include <span>

struct CodeText {
    std::uint8_t code;
    const char* text;
};

struct CodeTexts {
    std::span<const CodeText> rows;
    const char* otherwise;  // the text of every other code
};

// Reentrant. The tables are short: a walk is as quick as anything.
constexpr const char* text_of(std::uint8_t code, const CodeTexts& texts) {
    for (const CodeText& row : texts.rows) {
        if (row.code == code) {
            return row.text;
        }
    }
    return texts.otherwise;
}

// clang-format off
inline constexpr CodeText kCameraModelRows[] = {
    { 0, "DJI Osmo (X3)"      },
    { 1, "DJI Osmo Pro (X5)"  },
    { 5, "DJI Osmo RAW (X5R)" },
    {11, "DJI Osmo+ (Z3)"     },
};
inline constexpr CodeTexts kCameraModels = {kCameraModelRows, "Unknown camera"};

inline constexpr CodeText kCameraModeRows[] = {
    {1, "video"},
};
inline constexpr CodeTexts kCameraModes = {kCameraModeRows, "photo"};

inline constexpr CodeText kRecordPhaseRows[] = {
    {1, "REC starting"},
    {2, "REC"         },
    {3, "REC stopping"},
};
inline constexpr CodeTexts kRecordPhases = {kRecordPhaseRows, ""};

inline constexpr CodeText kPhotoFormatRows[] = {
    {0, "RAW"    },
    {1, "JPG"    },
    {2, "JPG+RAW"},
};
inline constexpr CodeTexts kPhotoFormats = {kPhotoFormatRows, ""};

inline constexpr CodeText kIsoRows[] = {
    {3, "100" },
    {4, "200" },
    {5, "400" },
    {6, "800" },
    {7, "1600"},
    {8, "3200"},
    {9, "6400"},
};
inline constexpr CodeTexts kIsos = {kIsoRows, "auto"};

inline constexpr CodeText kResolutionRows[] = {
    { 4, "1280x720"  },
    {10, "1920x1080" },
    {16, "3840x2160" },
    {22, "4096x2160" },
    {24, "2704X1520" },  // capital X: the main application compares this text
};
inline constexpr CodeTexts kResolutions = {kResolutionRows, ""};

inline constexpr CodeText kFramerateRows[] = {
    {1, "24" },
    {2, "25" },
    {3, "30" },
    {4, "48" },
    {5, "50" },
    {6, "60" },
    {7, "120"},
};
inline constexpr CodeTexts kFramerates = {kFramerateRows, ""};

inline constexpr CodeText kWhiteBalanceRows[] = {
    {0, "auto"        },
    {1, "sunny"       },
    {2, "cloudy"      },
    {3, "custom"      },
    {4, "incandescent"},
    {5, "neon"        },
};
inline constexpr CodeTexts kWhiteBalances = {kWhiteBalanceRows, "custom"};

inline constexpr CodeText kColorModeRows[] = {
    { 4, "black white"},
    { 5, "vivid"      },
    { 6, "d-cinelike" },
    { 7, "portrait"   },
    {14, "beach"      },
    {16, "dream"      },
    {18, "classic"    },
    {19, "nostalgia"  },
    {23, "d-log"      },
    {52, "d-clike"    },
};
inline constexpr CodeTexts kColorModes = {kColorModeRows, "none"};

inline constexpr CodeText kImageModeRows[] = {
    {2, "shutter" },
    {3, "aperture"},
    {4, "manual"  },
};
inline constexpr CodeTexts kImageModes = {kImageModeRows, "auto"};

inline constexpr CodeText kRatioRows[] = {
    {1, "16:9"},
};
inline constexpr CodeTexts kRatios = {kRatioRows, "4:3"};

inline constexpr CodeText kVideoStandardRows[] = {
    {1, "NTSC"},
};
inline constexpr CodeTexts kVideoStandards = {kVideoStandardRows, "PAL"};

inline constexpr CodeText kAntiflickerRows[] = {
    {1, "50 Hz"},
    {2, "60 Hz"},
};
inline constexpr CodeTexts kAntiflickers = {kAntiflickerRows, "auto"};

// Exposure compensation in third-stops, of which the camera names one decimal.
struct EvCode {
    const char* text;
    float value;
};

inline constexpr std::uint8_t kFirstEvCode = 7;
inline constexpr EvCode kEvCodes[] = {
    {"-3.0", -3.0F}, {"-2.7", -2.7F}, {"-2.3", -2.3F},  // codes  7 ..  9
    {"-2.0", -2.0F}, {"-1.7", -1.7F}, {"-1.3", -1.3F},  // codes 10 .. 12
    {"-1.0", -1.0F}, {"-0.7", -0.7F}, {"-0.3", -0.3F},  // codes 13 .. 15
    {"0",     0.0F},                                    // code  16
    {"+0.3",  0.3F}, {"+0.7",  0.7F}, {"+1.0",  1.0F},  // codes 17 .. 19
    {"+1.3",  1.3F}, {"+1.7",  1.7F}, {"+2.0",  2.0F},  // codes 20 .. 22
    {"+2.3",  2.3F}, {"+2.7",  2.7F}, {"+3.0",  3.0F},  // codes 23 .. 25
};
inline constexpr EvCode kNoEv = {"0", 0.0F};  // every other code
// clang-format on
