-- The commands to camera and gimbal: who sends it to whom, type, set, id and length of the packet;
-- of those that only their payload tells apart also its fifth byte, which is the packet's 15th.
--
-- Fields are described as in messages.lua; what always has one value stands under `fixed`, by its
-- first byte.
local part = ...
if not part then return end
local values = part("values")

local function number(name, read, at, label)
    return { name = name, read = read, at = at, label = label }
end

local function text(name, raw_name, read, at, make)
    return { name = name, read = read, at = at, text = make, raw = raw_name }
end

local function word(name, at, rows)
    return text(name, name .. "_code", "u8", at, function(byte) return values.text(rows, byte) end)
end

local off_on = { [0] = "off", [1] = "on" }
local leave = 0xFF -- a switch of the gimbal's that is left as it is

local function switch(name, at, rows)
    return { name = name, read = "u8", at = at, text = function(byte)
        return byte ~= leave and values.text(rows, byte) or nil
    end, raw = name .. "_code", quiet = function(byte) return byte == leave end }
end

local zooms = {
    ["01 01"] = "in", ["01 00"] = "out", ["00 00"] = "stop", ["FF 00"] = "stop, second packet",
}

local image_modes = { [1] = "auto", [2] = "shutter", [3] = "aperture", [4] = "manual" }
local set_isos = { [0] = "auto" }
for code, iso in pairs(values.isos) do
    if code ~= "otherwise" then set_isos[code] = iso end
end
local set_evs = {}
for code, ev in pairs(values.evs) do
    if code ~= "otherwise" then set_evs[code] = ev end
end
local set_balances = {
    [0] = "auto", [1] = "sunny", [2] = "cloudy", [4] = "incandescent", [5] = "neon",
    [6] = "custom",
}

local function hundreds(byte)
    return byte * 100
end

local video_format = {
    word("resolution", 11, values.resolutions),
    word("framerate", 12, values.framerates),
}

local rows = {
    -- name, sender, receiver, type, set, id, length, fifth byte, fields, fixed bytes
    -- Capture
    { "record", 0x02, 0x01, 0x40, 0x02, 0x02, 14, nil,
        { word("record", 11, { [0] = "stop", [1] = "start" }) } },
    { "shot", 0x02, 0x01, 0x40, 0x02, 0x01, 14, nil, {}, { [11] = "\1" } },
    { "gimbal_stop_shooting", 0x09, 0x04, 0x40, 0x01, 0x01, 23, nil, {},
        { [11] = "\0\0\0\0\0\x91\0\0\0\x91" } },
    { "camera_stop_shooting", 0x09, 0x01, 0x40, 0x01, 0x01, 23, nil, {},
        { [11] = "\0\0\0\0\0\x91\0\0\0\x91" } },
    { "mode", 0x09, 0x01, 0x40, 0x02, 0x10, 14, nil,
        { word("mode", 11, { [0] = "photo", [1] = "video" }) } },
    -- Gimbal
    { "gimbal_speed", 0x02, 0x04, 0x40, 0x04, 0x0C, 20, nil,
        { number("pan_speed", "i16", 11, "pan"), number("dutch_speed", "i16", 13, "dutch"),
          number("tilt_speed", "i16", 15, "tilt") }, { [17] = "\x90" } },
    { "gimbal_position", 0x02, 0x04, 0x40, 0x04, 0x0A, 23, nil,
        { number("pan", "i16", 11), number("dutch", "i16", 13), number("tilt", "i16", 15) },
        { [17] = "\x64\x00\xE0\x04" } },
    { "gimbal_center", 0x02, 0x09, 0x40, 0x01, 0x01, 23, 0x01, {},
        { [11] = "\0\0\0\0\x01\x91\0\0\0\x90" } },
    { "gimbal_selfie", 0x02, 0x09, 0x40, 0x01, 0x01, 23, 0x10, {},
        { [11] = "\0\0\0\0\x10\x91\0\0\0\x81" } },
    { "orientation_lock", 0x02, 0x09, 0x40, 0x01, 0x01, 23, 0x02, {},
        { [11] = "\0\0\0\0\x02\x91\0\0\0\x93" } },
    { "orientation_unlock", 0x02, 0x09, 0x40, 0x01, 0x01, 23, 0x0A, {},
        { [11] = "\0\0\0\0\x0A\0\0\0\0\0" } },
    { "orientation_hand_off", 0x02, 0x09, 0x40, 0x01, 0x01, 23, 0x00, {},
        { [11] = "\0\0\0\0\0\0\0\0\0\0" } },
    { "gimbal_parameters", 0x02, 0x04, 0x40, 0x04, 0x35, 21, nil,
        { switch("pitch_lock", 15, { [0] = "unlock", [1] = "lock" }),
          switch("smooth_track", 16, off_on), switch("realtime_focus", 17, off_on) },
        { [11] = "\xFF\xFF\xFF\xFF", [18] = "\xFF" } },
    { "horizon", 0x02, 0x04, 0x40, 0x04, 0x07, 14, nil,
        { word("horizon", 11, { [0x00] = "zero", [0x03] = "ccw", [0xFD] = "cw" }) } },
    { "sticks_centered", 0x09, 0x04, 0x20, 0x04, 0x01, 21, nil, {},
        { [11] = "\x00\x04\x00\x04\x00\x04\x80\x00" } },
    { "calibrate", 0x02, 0x04, 0x40, 0x04, 0x08, 13, nil, {} },
    -- Focus and zoom
    { "focus_mode", 0x02, 0x01, 0x40, 0x02, 0x24, 14, nil,
        { word("focus_mode", 11, { [0] = "mf", [1] = "af" }) } },
    { "focus_infinity", 0x02, 0x01, 0x40, 0x02, 0xFA, 14, nil,
        { word("focus_infinity", 11, off_on) } },
    { "focus_position", 0x02, 0x01, 0x40, 0x02, 0x95, 15, nil,
        { number("focus_position", "u16", 11) } },
    { "focus_point", 0x02, 0x01, 0x40, 0x02, 0x30, 21, nil,
        { number("focus_point_x", "f32", 11, "x"), number("focus_point_y", "f32", 15, "y") } },
    { "focus_assistant", 0x02, 0x01, 0x40, 0x02, 0x9A, 14, nil,
        { text("focus_assistant", "focus_assistant_code", "u8", 11, function(byte)
            local on = {}
            if bit.band(byte, 1) ~= 0 then table.insert(on, "mfa") end
            if bit.band(byte, 2) ~= 0 then table.insert(on, "afa") end
            return #on > 0 and table.concat(on, " ") or "none"
        end) } },
    { "digital_zoom", 0x02, 0x01, 0x40, 0x02, 0x34, 18, nil,
        { number("digital_zoom", "u8", 14) }, { [11] = "\x09\0\0", [15] = "\0" } },
    { "optical_zoom", 0x02, 0x01, 0x40, 0x02, 0xB8, 17, nil,
        { { name = "optical_zoom", read = "u8", at = 11, text = function(byte, packet)
            return zooms[string.format("%02X %02X", byte, packet:byte(14))]
        end } }, { [12] = "\x48", [14] = "\0" } },
    -- Exposure
    { "image_mode", 0x02, 0x01, 0x40, 0x02, 0x1E, 15, nil,
        { word("image_mode", 11, image_modes) }, { [12] = "\0" } },
    { "shutter", 0x02, 0x01, 0x40, 0x02, 0x28, 17, nil,
        { text("shutter", "shutter_raw", "u24", 12, values.shutter) }, { [11] = "\1" } },
    { "aperture", 0x02, 0x01, 0x40, 0x02, 0x26, 15, nil,
        { text("aperture", "aperture_raw", "u16", 11, values.aperture) } },
    { "iso", 0x02, 0x01, 0x40, 0x02, 0x2A, 14, nil, { word("iso", 11, set_isos) } },
    { "ev", 0x02, 0x01, 0x40, 0x02, 0x2E, 14, nil, { word("ev", 11, set_evs) } },
    { "ae_lock", 0x02, 0x01, 0x40, 0x02, 0x68, 14, nil,
        { word("ae_lock", 11, { [0] = "unlock", [1] = "lock" }) } },
    { "exposure_point", 0x02, 0x01, 0x40, 0x02, 0x32, 14, nil,
        { number("exposure_point", "u8", 11) } },
    { "exposure_center", 0x02, 0x01, 0x40, 0x02, 0x22, 14, nil, {}, { [11] = "\0" } },
    { "histogram", 0x02, 0x01, 0x40, 0x02, 0x60, 14, nil, { word("histogram", 11, off_on) } },
    -- Picture
    { "white_balance", 0x02, 0x01, 0x40, 0x02, 0x2C, 15, nil,
        { word("wb", 11, set_balances),
          -- Only a custom balance has a temperature; with the others goes a byte that is theirs.
          { name = "wb_temp", read = "u8", at = 12, make = function(byte, packet)
              return packet:byte(12) == 6 and hundreds(byte) or nil
          end } } },
    { "color", 0x02, 0x01, 0x40, 0x02, 0x42, 14, nil, { word("color", 11, values.set_colors) } },
    { "video_format", 0x02, 0x01, 0x40, 0x02, 0x18, 18, nil, video_format, { [13] = "\0\0\0" } },
    { "video_format_again", 0x02, 0x01, 0x40, 0x02, 0xAF, 15, nil, video_format },
    { "aspect_ratio", 0x02, 0x01, 0x40, 0x02, 0x12, 15, nil,
        { word("aspect_ratio", 12, { [0] = "4:3", [1] = "16:9" }) }, { [11] = "\0" } },
    { "photo_format", 0x02, 0x01, 0x40, 0x02, 0x16, 14, nil,
        { word("photo_format", 11, { [0] = "raw", [1] = "jpg", [2] = "jpg+raw" }) } },
    { "antiflicker", 0x02, 0x01, 0x40, 0x02, 0x46, 14, nil,
        { word("antiflicker", 11, { [0] = "auto", [1] = "50", [2] = "60" }) } },
    { "video_standard", 0x02, 0x01, 0x40, 0x02, 0x66, 14, nil,
        { word("video_standard", 11, { [0] = "PAL", [1] = "NTSC" }) } },
    -- Device
    { "reset", 0x02, 0x01, 0x40, 0x02, 0x78, 14, nil, {}, { [11] = "\0" } },
    { "power", 0x02, 0x09, 0x40, 0x09, 0x51, 14, nil,
        { word("power", 11,
            { [1] = "sleep", [2] = "wakeup", [3] = "restart", [4] = "shutdown" }) } },
    { "format_card", 0x02, 0x01, 0x40, 0x02, 0x72, 13, nil, {} },
    { "prepare_drive_format", 0x02, 0x01, 0x40, 0x02, 0xA1, 14, nil, {}, { [11] = "\0" } },
    { "format_drive", 0x02, 0x07, 0x80, 0x00, 0x0E, 14, nil, {}, { [11] = "\0" } },
    { "wifi_band", 0x02, 0x07, 0x40, 0x07, 0x10, 14, nil,
        { word("wifi_band", 11, { [0] = "2.4 GHz", [1] = "5.8 GHz" }) } },
    { "wifi_restart", 0x02, 0x07, 0x40, 0x07, 0x15, 13, nil, {} },
}

local commands = {}
for _, row in ipairs(rows) do
    table.insert(commands, {
        name = row[1], sender = row[2], receiver = row[3], type = row[4], set = row[5],
        id = row[6], length = row[7], fifth = row[8], fields = row[9], fixed = row[10] or {},
    })
end
return commands
