-- Shows fields that a table describes, see messages.lua.
local part = ...
if not part then return end
local show, bytes = part("show"), part("bytes")
local rows = {}

local kinds = { i8 = "int", i16 = "int", f32 = "float" }

-- Makes the Wireshark fields of a row; their names begin with its area.
function rows.prepare(row)
    for _, each in ipairs(row.fields) do
        local name = row.area .. "." .. each.name
        if not each.read then
            each.shown = show.field("bytes", name)
        elseif each.text then
            each.shown = show.field("text", name)
            each.raw_shown = each.raw and show.field(kinds[each.read] or "uint", row.area .. "." .. each.raw)
        else
            each.shown = show.field(each.kind or kinds[each.read] or "uint", name)
        end
    end
    return row
end

local function plain(value)
    return type(value) == "number" and value % 1 ~= 0 and string.format("%.6g", value) or tostring(value)
end

-- One field; what it says, or nil. A value without a text is worth a warning.
local function add_field(tree, tvb, at, data, each, warning)
    if not each.read then
        local range = show.range(tvb, at + each.at, each.size)
        if range then tree:add(each.shown, range) end
        return nil
    end
    local raw = bytes[each.read](data, each.at)
    if raw == nil then
        return nil
    end
    local size = bytes.size[each.read]
    if each.text then
        if each.quiet and each.quiet(raw) then
            return nil
        end
        local text = each.text(raw, data)
        local own = show.add(tree, each.shown, tvb, at + each.at, size, text or "")
        if own and each.raw then
            own:append_text(" (" .. plain(raw) .. ")")
            own:add(each.raw_shown, show.range(tvb, at + each.at, size), raw)
        end
        if own and not text then
            own:add_proto_expert_info(warning)
        end
        return text or plain(raw) .. "?"
    end
    local value = raw
    if each.make then
        value = each.make(raw, data)
    end
    if value ~= nil then
        show.add(tree, each.shown, tvb, at + each.at, size, value)
    end
    return value and plain(value)
end

-- All fields of the row, which begins at that byte of the range; for a command what it says.
function rows.add(tree, tvb, at, data, row, warning)
    local said = {}
    for _, each in ipairs(row.fields) do
        local text = add_field(tree, tvb, at, data, each, warning)
        if text and row.area == "command" then
            table.insert(said, #row.fields > 1 and (each.label or each.name) .. " " .. text or text)
        end
    end
    return table.concat(said, " ")
end

return rows
