-- The camera's messages. The receiver recognises a message by the length of its packet; where it
-- looks at the command too, the row has it.
--
-- A field: its name as the receiver calls it, how it is read, and at which byte of the packet. With
-- a text goes the function that makes it of the number; the number is then shown below it under the
-- name of its own.
local part = ...
if not part then return end
local bytes, values = part("bytes"), part("values")

local function number(name, read, at)
    return { name = name, read = read, at = at }
end

local function flag(name, at, mask)
    return { name = name, read = "u8", at = at,
             make = function(byte) return bit.band(byte, mask) ~= 0 and 1 or 0 end }
end

local function text(name, raw_name, read, at, make)
    return { name = name, read = read, at = at, text = make, raw = raw_name }
end

local function code(name, at, rows, raw_name)
    return text(name, raw_name or name .. "_code", "u8", at,
        function(byte) return values.text(rows, byte) end)
end

local function busy_text(_, packet)
    local flags = bytes.u8(packet, 13)
    return bit.band(flags, 0x10) ~= 0 and "LOOP" or bit.band(flags, 0x08) ~= 0 and "BUSY"
        or bit.band(bytes.u8(packet, 11), 0x08) ~= 0 and "SHOT" or ""
end

local function evs(byte)
    local ev = values.text(values.evs, byte)
    return bytes.single(tonumber(ev))
end

local status = {
    number("record_state", "u8", 11),
    text("record_text", nil, "u8", 11, function(byte)
        return values.text(values.record_phases, bit.rshift(byte, 6))
    end),
    { name = "recording", read = "u8", at = 11,
      make = function(byte) return bit.rshift(byte, 6) == 2 and 1 or 0 end },
    flag("record_bit5", 11, 0x20),
    number("status_flags", "u8", 13),
    flag("busy_bit", 13, 0x08),
    flag("loop_bit", 13, 0x10),
    text("busy_text", nil, "u8", 13, busy_text),
    { name = "busy", read = "u8", at = 13,
      make = function(byte, packet) return busy_text(byte, packet) ~= "" and 1 or 0 end },
    code("camera_mode", 15, values.camera_modes),
    text("sd", "sd_free_raw", "u32", 20, values.card_gigabytes),
    number("shots_left", "u32", 24),
    text("rec_time_left", "rec_time_left_raw", "u32", 28, values.hms),
    text("rec_time", "rec_time_raw", "u16", 40, values.hms),
    number("status_byte42", "u8", 42),
    code("camera_model", 44, values.camera_models),
}

local focus = {
    text("focus_type", nil, "u8", 11, function(byte)
        return bit.band(byte, 1) ~= 0 and "AF" or "MF"
    end),
    flag("focus_auto", 11, 0x01),
    number("focus_range", "u16", 12),
    number("focus_position", "u16", 14),
    { name = "focus_percent", read = "u16", at = 14, kind = "float",
      make = function(position, packet)
          return values.percentage(position, bytes.u16(packet, 12))
      end },
    number("focus_point_x", "f32", 24),
    number("focus_point_y", "f32", 28),
    number("focus_byte32", "u8", 32),
    number("focus_byte42", "u8", 42),
}

local settings = {
    text("shutter_set", "shutter_set_raw", "u24", 13, values.shutter),
    code("iso_set", 16, values.isos),
    code("ev", 17, values.evs),
    { name = "ev_value", read = "u8", at = 17, kind = "float", make = evs },
    code("ratio", 21, values.ratios),
    code("shot_mode", 23, values.photo_formats, "photo_format_code"),
    code("resolution", 24, values.resolutions),
    code("framerate", 25, values.framerates),
    code("image_mode", 31, values.image_modes),
    code("wb", 34, values.white_balances),
    number("wb_temp_code", "u8", 35),
    { name = "wb_temp", read = "u8", at = 35, kind = "float",
      make = function(byte) return byte * 100 end },
    code("color_mode", 42, values.color_modes),
    code("antiflicker", 43, values.antiflickers),
    text("aperture", "aperture_raw", "u16", 49, values.aperture),
    text("shutter", "shutter_raw", "u24", 51, values.shutter),
    number("iso", "u16", 54),
    flag("video_std_code", 66, 0x01),
    text("video_std", nil, "u8", 66, function(byte)
        return values.text(values.video_standards, bit.band(byte, 1))
    end),
    flag("ae", 67, 0xFF),
    number("settings_byte69", "u8", 69),
}
local long_settings = { number("settings_byte100", "u8", 100) }
for i, field in ipairs(settings) do
    table.insert(long_settings, i, field)
end

local fault = {
    number("gimbal_fault", "u8", 12),
    -- Other codes leave it as it was.
    { name = "gimbal_error", read = "u8", at = 12, make = function(byte, packet)
        if bytes.u8(packet, 8) ~= 0 then
            return nil
        end
        return (byte == 0x84 or byte % 2 == 1) and 1 or byte == 0x80 and 0 or nil
    end },
}

local attitude = {
    number("pitch", "i16", 11),
    number("roll", "i16", 13),
    number("yaw", "i16", 15),
    { name = "gimbal_unlocked", read = "u8", at = 17,
      make = function(byte) return byte == 0 and 1 or 0 end },
    text("gimbal_lock", nil, "u8", 17, function(byte)
        return byte ~= 0 and "locked" or "unlocked"
    end),
}

local battery = {
    number("battery_level", "i8", 11),
    number("voltage", "i16", 12),
    number("current", "i16", 25),
}

return {
    { length = 15, name = "camera flag", type = 0, set = 0x09, id = 0x52, fields = {
        { name = "camera_flag", read = "u8", at = 11,
          make = function(byte) return byte == 1 and 1 or 0 end },
    } },
    { length = 18, name = "gimbal fault", fields = fault },
    { length = 19, name = "auxiliary words", fields = {
        number("aux_word0", "u16", 11), number("aux_word1", "u16", 13),
    } },
    { length = 22, name = "drive space", fields = {
        text("ssd", "ssd_free_raw", "u24", 14, values.drive_gigabytes),
    } },
    { length = 25, name = "gimbal attitude", set = 0x04, id = 0x05, fields = attitude },
    { length = 49, name = "camera status", fields = status },
    { length = 50, name = "camera status", fields = status },
    { length = 52, name = "battery", fields = battery },
    { length = 53, name = "focus", fields = focus },
    { length = 59, name = "focus", fields = focus },
    { length = 77, name = "parameter block", fields = {
        { name = "params_block", at = 11, size = 64 },
    } },
    { length = 85, name = "camera settings", fields = settings },
    { length = 104, name = "camera settings", fields = long_settings },
}
