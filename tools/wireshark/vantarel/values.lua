-- What the camera's codes mean, letter by letter as the reports name it.
local part = ...
if not part then return end -- loaded as a plugin: there is nothing to do
local bytes = part("bytes")
local values = {}

values.camera_models = {
    [0] = "DJI Osmo (X3)",
    [1] = "DJI Osmo Pro (X5)",
    [5] = "DJI Osmo RAW (X5R)",
    [11] = "DJI Osmo+ (Z3)",
    otherwise = "Unknown camera",
}
values.camera_modes = { [1] = "video", otherwise = "photo" }
values.record_phases = {
    [1] = "REC starting", [2] = "REC", [3] = "REC stopping", otherwise = "",
}
values.photo_formats = { [0] = "RAW", [1] = "JPG", [2] = "JPG+RAW", otherwise = "" }
values.isos = {
    [3] = "100", [4] = "200", [5] = "400", [6] = "800", [7] = "1600", [8] = "3200", [9] = "6400",
    otherwise = "auto",
}
values.resolutions = {
    [4] = "1280x720", [10] = "1920x1080", [16] = "3840x2160", [22] = "4096x2160",
    [24] = "2704X1520", otherwise = "", -- a capital X
}
values.framerates = {
    [1] = "24", [2] = "25", [3] = "30", [4] = "48", [5] = "50", [6] = "60", [7] = "120",
    otherwise = "",
}
values.white_balances = {
    [0] = "auto", [1] = "sunny", [2] = "cloudy", [3] = "custom", [4] = "incandescent",
    [5] = "neon", otherwise = "custom",
}
values.color_modes = {
    [4] = "black white", [5] = "vivid", [6] = "d-cinelike", [7] = "portrait", [14] = "beach",
    [16] = "dream", [18] = "classic", [19] = "nostalgia", [23] = "d-log", [52] = "d-clike",
    otherwise = "none",
}
-- What can be set is one more: the reports know no "art".
values.set_colors = {
    [0] = "none", [1] = "art", [4] = "black white", [5] = "vivid", [6] = "d-cinelike",
    [7] = "portrait", [14] = "beach", [16] = "dream", [18] = "classic", [19] = "nostalgia",
    [23] = "d-log", [52] = "d-clike",
}
values.image_modes = { [2] = "shutter", [3] = "aperture", [4] = "manual", otherwise = "auto" }
values.ratios = { [1] = "16:9", otherwise = "4:3" }
values.video_standards = { [1] = "NTSC", otherwise = "PAL" }
values.antiflickers = { [1] = "50 Hz", [2] = "60 Hz", otherwise = "auto" }
values.evs = {
    [7] = "-3.0", [8] = "-2.7", [9] = "-2.3", [10] = "-2.0", [11] = "-1.7", [12] = "-1.3",
    [13] = "-1.0", [14] = "-0.7", [15] = "-0.3", [16] = "0", [17] = "+0.3", [18] = "+0.7",
    [19] = "+1.0", [20] = "+1.3", [21] = "+1.7", [22] = "+2.0", [23] = "+2.3", [24] = "+2.7",
    [25] = "+3.0", otherwise = "0",
}
values.units = {
    [0x01] = "camera", [0x02] = "application", [0x04] = "gimbal", [0x07] = "unit 7",
    [0x09] = "unit 9",
}

function values.text(rows, code)
    return rows[code] or rows.otherwise
end

-- The texts of numbers.

function values.hms(seconds)
    local hours = math.floor(seconds / 3600)
    local rest = string.format("%02d:%02d", math.floor(seconds / 60) % 60, seconds % 60)
    if hours < 100 then
        return string.format("%02d:", hours) .. rest
    end
    -- From 100 hours on the minutes stand in the place of the colon and of the fourth digit.
    return string.format("%d", hours):sub(1, 3) .. rest
end

function values.gigabytes(number)
    return number == 0 and "" or string.format("%.1fG", number)
end

function values.card_gigabytes(megabytes)
    return values.gigabytes(bytes.single(bytes.single(megabytes) * bytes.single(0.001)))
end

function values.drive_gigabytes(megabytes)
    return values.gigabytes(megabytes / 1024)
end

function values.aperture(raw)
    return raw % 100 == 0 and string.format("%d", raw / 100) or string.format("%.1f", raw * 0.01)
end

-- 24 bits; nil for those that are no time.
function values.shutter(raw)
    local low, middle = raw % 256, math.floor(raw / 256) % 256
    local decimals = math.floor(raw / 65536)
    local tail = decimals ~= 0 and string.format(".%d", decimals) or ""
    if middle == 0 then
        return string.format("%d%s\"", low, tail)
    elseif middle >= 128 then
        return string.format("1/%d%s", low + (middle - 128) * 256, tail)
    end
end

function values.percentage(position, range)
    return bytes.single(bytes.single(position / range) * 100)
end

return values
