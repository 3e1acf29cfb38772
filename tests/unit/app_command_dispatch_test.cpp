// The main application's messages: what is logged and what is called, in order. The operations and
// the focus limits' file are replaced by ones that print their calls among the log lines.
#include "control/app_command_dispatch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "app/focus_config.h"
#include "control/rc_settings.h"
#include "recorded_commands.h"
#include "tests/cases/app_commands.h"

std::atomic<std::int32_t> gimbal_movement_mode;
std::atomic<std::int32_t> rc_digital_zoom_step;

namespace {
FocusLimits focus_limits;
}  // namespace

FocusLimits* focus_config_get() {
    return &focus_limits;
}

int focus_config_load() {
    return 1;
}

void focus_config_save() {
    fprintf(stderr, "focus_config_save() of %d, %d\n", focus_limits.mf_min.load(),
            focus_limits.mf_max.load());
}

namespace {

using testing::SizeIs;

// In a block of exactly the datagram's size, so that a byte too far is seen.
void dispatch_bytes(const std::string& datagram) {
    const auto block = std::make_unique<std::uint8_t[]>(datagram.size());
    std::copy(datagram.begin(), datagram.end(), block.get());
    app_command_dispatch(block.get(), static_cast<std::uint16_t>(datagram.size()), "127.0.0.1",
                         40000);
}

std::string trace_of(const std::string& datagram) {
    testing::internal::CaptureStderr();
    dispatch_bytes(datagram);
    return testing::internal::GetCapturedStderr();
}

std::string logged(const std::string& json) {
    return "JSON commands from app: " + json + "\n";
}

std::string repeated(const std::string& text, int times) {
    std::string result;
    for (int i = 0; i < times; ++i) {
        result += text;
    }
    return result;
}

class AppCommandDispatch : public testing::Test {
  protected:
    void SetUp() override {
        gimbal_movement_mode = kMovementUnset;
        rc_digital_zoom_step = 77;
        focus_limits.mf_min = 5;
        focus_limits.mf_max = 6;
    }

    void expect_limits(std::int32_t mf_min, std::int32_t mf_max) {
        EXPECT_EQ(focus_limits.mf_min, mf_min);
        EXPECT_EQ(focus_limits.mf_max, mf_max);
    }
};

TEST_F(AppCommandDispatch, JsonIsLoggedAndThenCarriedOut) {
    for (const AppCommandCase& row : kAppCommands) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(trace_of(std::string("!") + row.json), logged(row.json) + row.calls);
    }
    EXPECT_EQ(gimbal_movement_mode, kMovementUnset);
    EXPECT_EQ(rc_digital_zoom_step, 77);
}

TEST_F(AppCommandDispatch, CommandWithoutItsParamCallsNothing) {
    for (const char* cmd : {"updatecameraconfig",
                            "record",
                            "camera",
                            "position",
                            "orientation",
                            "pitch",
                            "focus",
                            "exposure",
                            "dzoom",
                            "video_mode",
                            "shutter",
                            "aperture",
                            "iso",
                            "ev",
                            "wb",
                            "color",
                            "video_std",
                            "antiflicker",
                            "video_resolution",
                            "video_aspect",
                            "shotmode",
                            "wifi",
                            "horizont",
                            "format",
                            "power",
                            "histogram"}) {
        const std::string json = std::string(R"({"cmd":")") + cmd +
                                 R"(","name":"1","value":"1","value2":"1","value3":"1"})";
        EXPECT_EQ(trace_of("!" + json), logged(json));
    }
    expect_limits(5, 6);
}

// -- focus limits ------------------------------------------------------------------------------

TEST_F(AppCommandDispatch, FocusLimitsAreSetLoggedAndSaved) {
    const std::string json =
        R"({"cmd":"updatecameraconfig","param":"focus_limits","value":"120","value2":"900"})";
    EXPECT_EQ(trace_of("!" + json), logged(json) +
                                        "Set MF limits min 120 max 900\n"
                                        "focus_config_save() of 120, 900\n");
}

TEST_F(AppCommandDispatch, FocusLimitsThatAreNoNumbersAreZero) {
    const std::string json =
        R"({"cmd":"updatecameraconfig","param":"focus_limits","value":"","value2":"-1x"})";
    EXPECT_EQ(trace_of("!" + json), logged(json) +
                                        "Set MF limits min 0 max -1\n"
                                        "focus_config_save() of 0, -1\n");
}

TEST_F(AppCommandDispatch, HalfOfTheFocusLimitsChangesNeither) {
    for (const char* values : {R"("value":"1")", R"("value2":"1")", R"("value":1,"value2":"1")",
                               R"("value":"1","value2":1)"}) {
        const std::string json =
            std::string(R"({"cmd":"updatecameraconfig","param":"focus_limits",)") + values + "}";
        EXPECT_EQ(trace_of("!" + json), logged(json));
        expect_limits(5, 6);
    }
}

TEST_F(AppCommandDispatch, OtherCameraConfigChangesNothing) {
    const std::string json =
        R"({"cmd":"updatecameraconfig","param":"limits","value":"1","value2":"2"})";
    EXPECT_EQ(trace_of("!" + json), logged(json));
    expect_limits(5, 6);
}

// -- movement mode -----------------------------------------------------------------------------

TEST_F(AppCommandDispatch, MovementModeIsSetAndNothingLogged) {
    EXPECT_EQ(trace_of(R"(!{"cmd":"set","name":"movement","value":"abs"})"), "");
    EXPECT_EQ(gimbal_movement_mode, 1);
    EXPECT_EQ(trace_of(R"(!{"cmd":"set","name":"movement","value":"rel"})"), "");
    EXPECT_EQ(gimbal_movement_mode, 0);
    EXPECT_EQ(trace_of(R"(!{"CMD":"set","Name":"movement","VALUE":"abs","param":"rel"})"), "");
    EXPECT_EQ(gimbal_movement_mode, 1);
}

TEST_F(AppCommandDispatch, OtherSettingsChangeNothingAndLogNothing) {
    for (const char* json :
         {R"({"cmd":"set","name":"movement","value":"Abs"})",
          R"({"cmd":"set","name":"movement","value":""})",
          R"({"cmd":"set","name":"movement","value":1})",
          R"({"cmd":"set","name":"movement","param":"abs"})",
          R"({"cmd":"set","name":"Movement","value":"abs"})",
          R"({"cmd":"set","name":null,"value":"abs"})",
          R"({"cmd":"set","param":"movement","value":"abs"})", R"({"cmd":"set"})"}) {
        EXPECT_EQ(trace_of(std::string("!") + json), "") << json;
        EXPECT_EQ(gimbal_movement_mode, kMovementUnset) << json;
    }
}

TEST_F(AppCommandDispatch, SetInCapitalsIsAnUnknownCommand) {
    const std::string json = R"({"cmd":"SET","name":"movement","value":"abs"})";
    EXPECT_EQ(trace_of("!" + json), logged(json));
    EXPECT_EQ(gimbal_movement_mode, kMovementUnset);
}

// -- extent of the text ------------------------------------------------------------------------

TEST_F(AppCommandDispatch, TextEndsAtTheFirstNul) {
    const std::string json = R"({"cmd":"shot"})";
    EXPECT_EQ(trace_of("!" + json + std::string("\0}garbage\0", 10)),
              logged(json) + "camera_shot()\n");
    EXPECT_EQ(trace_of(std::string("!\0{\"cmd\":\"shot\"}", 16)), logged(""));
    EXPECT_EQ(trace_of(std::string("!{\"cmd\":\"sh\0ot\"}", 16)), logged("{\"cmd\":\"sh"));
}

TEST_F(AppCommandDispatch, FullDatagramNeedsNoNul) {
    const std::string start = R"({"cmd":"shot","fill":")";
    const std::string json = start + std::string(9999 - start.size() - 2, '%') + "\"}";
    ASSERT_THAT(json, SizeIs(9999));
    EXPECT_EQ(trace_of("!" + json), logged(json) + "camera_shot()\n");
}

TEST_F(AppCommandDispatch, LargestDatagramIsLoggedWhole) {
    const std::string json = "{" + std::string(65533, 's');
    EXPECT_EQ(trace_of("!" + json), logged(json));
}

TEST_F(AppCommandDispatch, TextsCutOffAtEachByteDoNoHarm) {
    const std::string json =
        R"({"cmd":"record","param":"start","x":[1.5e3,-1,true,"\u0041\n"],"y":{"z":null}})";
    for (std::size_t length = 0; length < json.size(); ++length) {
        const std::string cut = json.substr(0, length);
        EXPECT_EQ(trace_of("!" + cut), logged(cut));
    }
    EXPECT_EQ(trace_of("!" + json), logged(json) + "camera_record(1)\n");
}

TEST_F(AppCommandDispatch, DeepNestingIsNoCommand) {
    const std::string list = R"({"a":)" + repeated("[", 4000) + repeated("]", 4000) + "}";
    EXPECT_EQ(trace_of("!" + list), logged(list));
    const std::string open = repeated(R"({"cmd":)", 1400);
    EXPECT_EQ(trace_of("!" + open), logged(open));
}

// Each write() to a socket of messages is a message.
TEST_F(AppCommandDispatch, LogLineIsOneWrite) {
    int sockets[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, sockets), 0);
    const std::string json = "{" + std::string(9998, '%');
    const int standard_error = dup(STDERR_FILENO);
    dup2(sockets[0], STDERR_FILENO);
    dispatch_bytes("!" + json);
    dup2(standard_error, STDERR_FILENO);
    close(standard_error);
    close(sockets[0]);
    std::vector<char> message(20000);
    const ssize_t length = recv(sockets[1], message.data(), message.size(), 0);
    close(sockets[1]);
    EXPECT_EQ(std::string(message.data(), length > 0 ? static_cast<std::size_t>(length) : 0),
              logged(json));
}

// -- zoom message ------------------------------------------------------------------------------

struct ZoomCase {
    const char* name;
    std::string datagram;
    std::int32_t step;  // 77: as it was
    const char* calls;
};

// clang-format off
const ZoomCase kZoomMessages[] = {
    {"StepUp",         {"\x05\x01\x01\x00", 4},         1,      ""},
    {"StepDown",       {"\x05\x01\xFF\xFF", 4},         -1,     ""},
    {"StepStop",       {"\x05\x01\x00\x00", 4},         0,      ""},
    {"StepLargest",    {"\x05\x01\xFF\x7F", 4},         32767,  ""},
    {"StepSmallest",   {"\x05\x01\x00\x80", 4},         -32768, ""},
    {"OpticalIn",      {"\x05\x02\x01\x00", 4},         77,     "camera_set_optical_zoom(1)\n"},
    {"OpticalOut",     {"\x05\x02\xFF\xFF", 4},         77,     "camera_set_optical_zoom(-1)\n"},
    {"OpticalStop",    {"\x05\x02\x00\x00", 4},         77,     "camera_set_optical_zoom(0)\n"},
    {"OpticalSmallest", {"\x05\x02\x00\x80", 4},        77,     "camera_set_optical_zoom(-32768)\n"},
    {"MoreBytes",      {"\x05\x02\x02\x01\x09\x09", 6}, 77,     "camera_set_optical_zoom(258)\n"},
    {"OnlyLowByte",    {"\x05\x02\xFF", 3},             77,     "camera_set_optical_zoom(255)\n"},
    {"NoValue",        {"\x05\x02", 2},                 77,     "camera_set_optical_zoom(0)\n"},
    {"StepNoValue",    {"\x05\x01", 2},                 0,      ""},
    {"NoSubCommand",   {"\x05", 1},                     77,     ""},
    {"SubCommandZero", {"\x05\x00\x01\x00", 4},         77,     ""},
    {"SubCommand3",    {"\x05\x03\x01\x00", 4},         77,     ""},
    {"SubCommand255",  {"\x05\xFF\x01\x00", 4},         77,     ""},
};
// clang-format on

TEST_F(AppCommandDispatch, ZoomMessagesAndWhatTheyDo) {
    for (const ZoomCase& row : kZoomMessages) {
        SCOPED_TRACE(row.name);
        rc_digital_zoom_step = 77;
        EXPECT_EQ(trace_of(row.datagram), row.calls);
        EXPECT_EQ(rc_digital_zoom_step, row.step);
    }
}

// -- other datagrams ---------------------------------------------------------------------------

TEST_F(AppCommandDispatch, OtherFirstBytesAreIgnored) {
    for (int first = 0; first < 256; ++first) {
        if (first != 0x05 && first != 0x21) {
            EXPECT_EQ(trace_of(static_cast<char>(first) + std::string(R"({"cmd":"shot"})")), "")
                << first;
        }
    }
    EXPECT_EQ(trace_of(R"({"cmd":"shot"})"), "");
    EXPECT_EQ(trace_of(R"( !{"cmd":"shot"})"), "");
    EXPECT_EQ(rc_digital_zoom_step, 77);
}

TEST_F(AppCommandDispatch, EmptyDatagramIsNothing) {
    EXPECT_EQ(trace_of(""), "");
    const std::uint8_t beyond[] = {'!', '{', '}', 0};
    testing::internal::CaptureStderr();
    app_command_dispatch(beyond, 0, "127.0.0.1", 40000);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(AppCommandDispatch, LoneExclamationMarkIsAnEmptyText) {
    EXPECT_EQ(trace_of("!"), logged(""));
}

}  // namespace
