-- Datagrams between the receiver and a main application: reports one way, commands the other. What a
-- datagram is its first byte says, so that it does not matter which of the two ports is known.
local part = ...
if not part then return end
local show, bytes, values, rows = part("show"), part("bytes"), part("values"), part("rows")
local json_words, app_commands = part("json_words"), part("app_commands")
local field, warning = show.field, show.expert
local group, severity = expert.group, expert.severity
local app_link = {}

local kLargestText = 1299
local kStatusSize, kParametersSize = 37, 66
local kLargestCommand = 10000

local f = {
    kind = field("text", "link.kind"),
    text = field("text", "report.text", "Text report"),
    parameters = field("bytes", "report.parameters", "Parameter block"),
    json = field("text", "app.json", "JSON command"),
    command = field("text", "app.command", "Command"),
    zoom = field("text", "app.zoom", "Zoom"),
    zoom_value = field("int", "app.zoom_value", "Value"),
    rest = field("bytes", "link.rest", "Bytes"),
}
local e = {
    length = warning("report.wrong_length", "The report has not its kind's length", group.MALFORMED, severity.WARN),
    key = warning("report.wrong_key", "The text report lacks a key or has another", group.PROTOCOL, severity.WARN),
    json = warning("app.no_json", "This is no JSON object: the receiver does nothing", group.MALFORMED, severity.WARN),
    command = warning("app.unknown", "No such command: the receiver does nothing", group.PROTOCOL, severity.WARN),
    large = warning("app.large", "The receiver takes 10,000 bytes of it", group.PROTOCOL, severity.WARN),
    zoom = warning("app.unknown_zoom", "No such zoom: the receiver does nothing", group.PROTOCOL, severity.WARN),
}

-- -- reports -------------------------------------------------------------------------------------

local keys = {
    "camera_detected", "camera_model", "camera_mode", "sd", "ssd", "shots_left", "rec_time_left",
    "rec_time", "voltage", "current", "battery_level", "shot_mode", "resolution", "framerate",
    "format", "ae", "aperture", "shutter", "shutter_set", "iso", "iso_set", "ev", "image_mode",
    "color_mode", "wb", "wb_temp", "ratio", "video_std", "antiflicker", "mf_min", "mf_max",
}
local numbers = {}
for _, key in ipairs({ "camera_detected", "shots_left", "voltage", "current", "battery_level", "ae", "iso", "wb_temp",
                       "mf_min", "mf_max" }) do
    numbers[key] = true
end
local key_fields = {}
for _, key in ipairs(keys) do
    key_fields[key] = field(numbers[key] and "int" or "text", "report." .. key, key)
end

local function number(name, read, at)
    return { name = name, read = read, at = at }
end

local function bits(name, at, make)
    return { name = name, read = "u8", at = at, text = make }
end

local function photo(byte) return bit.band(byte, 0x08) ~= 0 and "taking a photo" or "" end
local function flags(byte)
    local set = {}
    if bit.band(byte, 0x08) ~= 0 then table.insert(set, "busy") end
    if bit.band(byte, 0x10) ~= 0 then table.insert(set, "loop") end
    return table.concat(set, " ")
end
local function assistants(byte)
    local set = {}
    if bit.band(byte, 0x01) ~= 0 then table.insert(set, "mfa") end
    if bit.band(byte, 0x02) ~= 0 then table.insert(set, "afa") end
    return table.concat(set, " ")
end

local status = rows.prepare({ area = "report", fields = {
    number("gimbal_unlocked", "u8", 2),
    number("yaw", "i16", 3),
    number("pitch", "i16", 5),
    number("roll", "i16", 7),
    number("record_state", "u8", 9),
    bits("record_text", 9, function(byte) return values.text(values.record_phases, bit.rshift(byte, 6)) end),
    bits("photo_text", 9, photo),
    number("status_byte42", "u8", 10),
    number("status_flags", "u8", 11),
    bits("status_text", 11, flags),
    number("focus_valid", "u8", 12),
    number("focus_auto", "u8", 13),
    number("reserved", "u8", 14),
    number("focus_range", "u16", 15),
    number("focus_position", "u16", 17),
    number("focus_point_x", "u16", 19),
    number("focus_point_y", "u16", 21),
    number("focus_byte32", "u8", 23),
    number("focus_byte42", "u8", 24),
    bits("assistants_text", 24, assistants),
    number("settings_byte69", "u8", 25),
    number("gimbal_error", "u8", 26),
    number("camera_flag", "u8", 27),
    number("settings_byte100", "u8", 28),
    number("attitude_const1", "i16", 29),
    number("attitude_const0", "i16", 31),
    number("attitude_const3", "i16", 33),
    number("attitude_const2", "i16", 35),
} })

local function add_length(tree, tvb, fits, wanted)
    if not fits then
        tree:add_proto_expert_info(e.length,
            string.format("%d bytes, and should be %s", tvb:reported_len(), wanted))
    end
end

-- The keys come in one order, each once; a capture that cuts the datagram off cuts off keys, too.
local function add_text(tree, tvb, text)
    local own = tree
    if tvb:len() > 1 then
        own = tree:add(f.text, tvb(1))
    end
    local at, next_key = 1, 1
    add_length(own, tvb, tvb:reported_len() <= kLargestText, "below 1300")
    for item, stop in text:sub(2):gmatch("([^,]*),()") do
        local key, value = item:match("^([^=]*)=(.*)$")
        local range = tvb(at, #item + 1)
        if not key or key ~= keys[next_key] then
            own:add_tvb_expert_info(e.key, range, string.format("'%s' in the place of '%s'", key or item,
                keys[next_key] or "the end"))
        end
        if key and key_fields[key] then
            local is_number = numbers[key]
            if not is_number or tonumber(value) then
                own:add(key_fields[key], range, is_number and tonumber(value) or value)
            end
        end
        at, next_key = stop, next_key + 1
    end
    if at < tvb:len() and tvb:len() == tvb:reported_len() then
        own:add_tvb_expert_info(e.key, tvb(at), "The last comma is missing")
    end
    if next_key <= #keys and tvb:len() == tvb:reported_len() then
        own:add_proto_expert_info(e.key, "The keys from '" .. keys[next_key] .. "' on are missing")
    end
    return text:match("camera_model=([^,]+)") or "no camera yet"
end

local function add_status(tree, tvb, text)
    add_length(tree, tvb, tvb:reported_len() == kStatusSize, "37")
    rows.add(tree, tvb, 0, text, status)
    local yaw, pitch, roll = bytes.i16(text, 3), bytes.i16(text, 5), bytes.i16(text, 7)
    return roll and string.format("yaw %d, pitch %d, roll %d", yaw, pitch, roll) or ""
end

local function add_parameters(tree, tvb)
    add_length(tree, tvb, tvb:reported_len() == kParametersSize, "66")
    local range = show.range(tvb, 2, 64)
    if range then tree:add(f.parameters, range) end
    return ""
end

-- -- commands ------------------------------------------------------------------------------------

local members = { "cmd", "name", "param", "value", "value2", "value3" }
local member_fields = {}
for _, member in ipairs(members) do
    member_fields[member] = field("text", "app." .. member, member)
end

local function fits(row, words)
    local cmd, param, count = row[1], row[2], row[3]
    return words.cmd == cmd and (param == nil or (words.param and (param == "" or words.param == param)))
        and (count < 1 or words.value) and (count < 2 or words.value2) and (count < 3 or words.value3)
        and not (cmd == "wb" and words.param == "custom" and not words.value)
end

-- The main application's only setting, which is no command to the camera.
local function sets_movement(words)
    return words.cmd == "set" and words.name == "movement" and (words.value == "abs" or words.value == "rel")
end

local function command_of(words)
    if sets_movement(words) then
        return "set movement " .. words.value
    end
    for _, row in ipairs(app_commands) do
        if fits(row, words) then
            local said = { words.cmd, row[2] and words.param or nil }
            for i = 1, row[3] do
                table.insert(said, words[i == 1 and "value" or "value" .. i])
            end
            if words.cmd == "wb" and words.value then
                table.insert(said, words.value)
            end
            return table.concat(said, " ")
        end
    end
end

local function add_json(tree, tvb, text)
    if tvb:reported_len() > kLargestCommand then
        tree:add_proto_expert_info(e.large)
    end
    if tvb:len() < 2 then
        tree:add_proto_expert_info(e.json)
        return ""
    end
    local own = tree:add(f.json, tvb(1))
    local words = json_words(text:sub(2, (text:find("\0", 1, true) or #text + 1) - 1))
    if not words then
        own:add_proto_expert_info(e.json)
        return "no JSON object"
    end
    for _, member in ipairs(members) do
        if type(words[member]) == "string" then
            own:add(member_fields[member], words[member]):set_generated()
        else
            words[member] = nil
        end
    end
    local command = command_of(words)
    if command then
        own:add(f.command, command):set_generated()
    else
        own:add_proto_expert_info(e.command)
    end
    return command or "unknown"
end

local function add_zoom(tree, tvb, text)
    local kind = text:byte(2) or 0
    -- What a shorter message leaves out is 0.
    local value = bytes.i16(text .. "\0\0\0", 2)
    local what = "unknown"
    if kind == 1 then
        what = value == 0 and "digital stop" or "digital by " .. value
    elseif kind == 2 then
        what = "optical " .. (value > 0 and "in" or value < 0 and "out" or "stop")
    end
    local own = tree:add(f.zoom, tvb(0), what)
    own:add(f.zoom_value, show.range(tvb, 2, 2) or tvb(0), value)
    if what == "unknown" then
        own:add_proto_expert_info(e.zoom)
    end
    return what
end

local function add_rest(tree, tvb)
    tree:add(f.rest, tvb(0))
    return string.format("%d bytes", tvb:len())
end

-- -- which is which ------------------------------------------------------------------------------

local function kind_of(text, from_application)
    local first, second = text:byte(1, 2)
    if from_application then
        if first == 0x21 then
            return "JSON command", add_json
        elseif first == 0x05 then
            return "zoom", add_zoom
        end
        -- What is no command says that the application is there.
        return "sign of life", add_rest
    end
    if first == 0x07 then
        return "text report", add_text
    elseif first == 0x06 and second == 0x00 then
        return "status record", add_status
    elseif first == 0x06 and second == 0x01 then
        return "parameter block", add_parameters
    end
    return "unknown report", add_rest
end

function app_link.dissect(tvb, pinfo, tree)
    if tvb:len() == 0 then
        return 0
    end
    local text = tvb:raw(0, tvb:len())
    local kind, add = kind_of(text, pinfo.match_uint == pinfo.src_port)
    pinfo.cols.protocol = "Camera link"
    local own = tree:add(show.link, tvb(), "Main application link: " .. kind)
    own:add(f.kind, tvb(), kind):set_generated()
    local said = add(own, tvb, text)
    pinfo.cols.info = kind .. (said ~= "" and ": " .. said or "")
    return tvb:len()
end

return app_link
