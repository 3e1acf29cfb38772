#include "monitor/receiver_ctl_commands.h"

namespace {

constexpr char kShutterTimes[] =
    "30\"|25\"|20\"|15\"|10\"|9\"|8\"|7\"|6\"|5\"|4\"|3.2\"|3\"|2.5\"|2\"|1.6\"|1.3\"|1\"|"
    "1/1.25|1/1.67|1/2|1/2.5|1/3|1/4|1/5|1/6.25|1/8|1/10|1/12.5|1/15|1/20|1/25|1/30|1/40|1/50|1/60|"
    "1/80|1/100|1/120|1/160|1/200|1/240|1/320|1/400|1/500|1/640|1/800|1/1000|1/1250|1/1600|1/2000|"
    "1/2500|1/3200|1/4000|1/5000|1/6400|1/8000";
constexpr char kApertures[] =
    "1.7|1.8|2|2.2|2.5|2.8|3.2|3.5|4|4.5|5|5.6|6.3|7.1|8|9|10|11|13|14|16";
constexpr char kEvSteps[] =
    "-3.0|-2.7|-2.3|-2.0|-1.7|-1.3|-1.0|-0.7|-0.3|0|+0.3|+0.7|+1.0|+1.3|+1.7|+2.0|+2.3|+2.7|+3.0";
constexpr char kColors[] =
    "none|black-white=black white|vivid|d-cinelike|portrait|beach|dream|classic|nostalgia|d-log|"
    "d-clike";
constexpr char kResolutions[] =
    "4096x2160@24|4096x2160@25|3840x2160@24|3840x2160@25|3840x2160@30|2704x1520@24|2704x1520@25|"
    "2704x1520@30|1920x1080@24|1920x1080@25|1920x1080@30|1920x1080@48|1920x1080@50|1920x1080@60|"
    "1920x1080@120|1280x720@24|1280x720@25|1280x720@30|1280x720@48|1280x720@50|1280x720@60";
constexpr char kOnOff[] = "on=1|off=0";

// clang-format off
constexpr CtlCommand kCommands[] = {
    {"record start",     {},                  "cmd=record param=start",                 "record_state&192=2",  "the camera records"},
    {"record stop",      {},                  "cmd=record param=stop",                  "record_state&192=0",  "its recording ends"},
    {"shot",             {},                  "cmd=shot",                               "",                    "takes a photo"},
    {"mode",             {"photo|video"},     "cmd=camera param=mode value=$1",         "camera_mode=$1",      "what the camera takes"},
    {"shotmode",         {"raw|jpg|jpg+raw"}, "cmd=shotmode param=$1",                  "shot_mode=$1",        "what a photo is stored as"},
    {"resolution",       {kResolutions},      "cmd=video_resolution param=$1",          "format=$1",           "size and rate of the recorded video"},
    {"aspect",           {"4:3|16:9"},        "cmd=video_aspect param=$1",              "ratio=$1",            "shape of the photos"},
    {"standard",         {"PAL|NTSC"},        "cmd=video_std param=$1",                 "video_std=$1",        "video standard"},

    {"gimbal normal",    {},                  "cmd=position param=normal",              "",                    "looks ahead"},
    {"gimbal selfie",    {},                  "cmd=position param=selfie",              "",                    "looks at whoever holds it"},
    {"gimbal abs",       {"PAN", "TILT", "DUTCH"}, "cmd=position param=abs value=$1 value2=$2 value3=$3", "",  "goes there, in units of full scale"},
    {"orientation lock",   {},                "cmd=orientation param=lock",             "gimbal_unlocked=0",   "keeps its direction"},
    {"orientation unlock", {},                "cmd=orientation param=unlock",           "gimbal_unlocked=1",   "follows the handle"},
    {"pitch",            {"lock|unlock"},     "cmd=pitch param=$1",                     "",                    "keeps its tilt, or follows"},
    {"horizon",          {"cw|ccw|zero|calibrate"}, "cmd=horizont param=$1",            "",                    "levels the picture; calibrates the gimbal"},
    {"movement",         {"rel|abs"},         "cmd=set name=movement value=$1",         "",                    "the sticks give speed, or position"},

    {"focus af",         {},                  "cmd=focus param=type value=af",          "focus_auto=1",        "the camera focuses"},
    {"focus mf",         {},                  "cmd=focus param=type value=mf",          "focus_auto=0",        "the user does"},
    {"focus inf",        {},                  "cmd=focus param=type value=inf",         "focus_auto=0,focus_position=0", "at infinity"},
    {"focus point",      {"X", "Y"},          "cmd=focus param=point value=$1 value2=$2", "",                  "where in the picture, from its upper left corner"},
    {"focus manual",     {"PERCENT"},         "cmd=focus param=manual value=$1",        "",                    "position, while the user focuses"},
    {"focus afa",        {kOnOff},            "cmd=focus param=afa value=$1",           "focus_byte42&2=$1",   "assistant for autofocus"},
    {"focus mfa",        {kOnOff},            "cmd=focus param=mfa value=$1",           "focus_byte42&1=$1",   "assistant for manual focus"},
    {"focus realtime",   {kOnOff},            "cmd=focus param=realtime value=$1",      "",                    "real-time focus"},
    {"focus limits",     {"LOW", "HIGH"},     "cmd=updatecameraconfig param=focus_limits value=$1 value2=$2", "mf_min=$1,mf_max=$2", "percent that manual focus keeps within; kept"},

    {"program",          {"auto|shutter|aperture|manual"}, "cmd=video_mode param=$1",   "image_mode=$1",       "exposure program"},
    {"shutter",          {kShutterTimes},     "cmd=shutter param=$1",                   "shutter=$1",          "exposure time; 2.5s for 2.5\""},
    {"aperture",         {kApertures},        "cmd=aperture param=$1",                  "aperture=$1",         "f-number"},
    {"iso",              {"auto|100|200|400|800|1600|3200|6400"}, "cmd=iso param=$1",   "iso_set=$1",          "sensitivity"},
    {"ev",               {kEvSteps},          "cmd=ev param=$1",                        "ev=$1",               "exposure compensation"},
    {"exposure point",   {"CELL"},            "cmd=exposure param=point value=$1",      "",                    "where in the picture it is measured"},
    {"exposure center",  {},                  "cmd=exposure param=center",              "",                    "in its middle"},
    {"exposure lock",    {},                  "cmd=exposure param=auto value=lock",     "ae=1",                "stays as it is"},
    {"exposure unlock",  {},                  "cmd=exposure param=auto value=unlock",   "ae=0",                "follows the light"},
    {"antiflicker",      {"50|60"},           "cmd=antiflicker param=$1",               "antiflicker=$1 Hz",   "lamps at this frequency"},
    {"antiflicker",      {"auto"},            "cmd=antiflicker param=$1",               "antiflicker=auto",    "the camera finds it"},
    {"histogram",        {kOnOff},            "cmd=histogram param=$1",                 "",                    "the camera sends its histogram"},

    {"wb",               {"auto|sunny|cloudy|incandescent|neon"}, "cmd=wb param=$1",    "wb=$1",               "white balance"},
    {"wb custom",        {"KELVIN"},          "cmd=wb param=custom value=$1",           "wb=custom,wb_temp=$1", "the same in kelvin"},
    {"color",            {kColors},           "cmd=color param=$1",                     "color_mode=$1",       "colour mode"},
    {"color",            {"art"},             "cmd=color param=$1",                     "",                    "one that telemetry has no word for"},

    {"zoom in",          {},                  "cmd=zoom param=optical value=1",         "",                    "optical zoom, until it is stopped"},
    {"zoom out",         {},                  "cmd=zoom param=optical value=-1",        "",                    "the same the other way"},
    {"zoom stop",        {},                  "cmd=zoom param=optical value=0",         "",                    "and stops"},
    {"zoom digital",     {"STEP"},            "cmd=zoom param=digital value=$1",        "",                    "digital zoom by this every 20 ms, until 0"},
    {"dzoom",            {"ZOOM"},            "cmd=dzoom param=set value=$1",           "",                    "digital zoom in percent"},
    {"smoothtrack",      {kOnOff},            "cmd=zoomadjustedsmoothtrack value=$1",   "",                    "the gimbal is slower as the zoom is longer"},

    {"wifi",             {},                  "cmd=wifi param=mode",                    "",                    "the camera's own at 2.4 GHz"},
    {"power",            {"sleep|shutdown"},  "cmd=power param=$1",                     "camera=lost",         "the camera falls silent"},
    {"power",            {"wakeup"},          "cmd=power param=$1",                     "camera=present",      "and is back"},
    {"power",            {"restart"},         "cmd=power param=$1",                     "",                    "both"},
    {"reset",            {},                  "cmd=resetcamera",                        "",                    "all settings of the camera as they were made", true},
    {"format",           {"sd|ssd"},          "cmd=format param=$1",                    "",                    "empties card or drive", true},
};

constexpr CtlNumber kNumbers[] = {
    // Full scale is 1; the axes' words hold no more than this many.
    {"PAN",     -18,    18,    1},
    {"TILT",    -18,    18,    1},
    {"DUTCH",   -18,    18,    1},
    {"X",       0,      1,     0},
    {"Y",       0,      1,     0},
    {"PERCENT", 0,      100,   1},
    {"LOW",     0,      100,   1},
    {"HIGH",    0,      100,   1},
    {"CELL",    0,      255,   1},
    {"KELVIN",  0,      25500, 100},   // a byte of hundreds goes out
    {"STEP",    -32768, 32767, 1},
    {"ZOOM",    100,    200,   1},
};
// clang-format on

}  // namespace

std::span<const CtlCommand> ctl_commands() {
    return kCommands;
}

std::span<const CtlNumber> ctl_numbers() {
    return kNumbers;
}
