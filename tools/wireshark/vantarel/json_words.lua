-- Reads a JSON object's members that are texts, as the receiver does: a key counts in any letter
-- case, of two equal ones the first, and what stands behind the object is not looked at.
local escapes = {
    b = "\b", f = "\f", n = "\n", r = "\r", t = "\t", ['"'] = '"', ["\\"] = "\\", ["/"] = "/",
}
local read_value

local function skip_space(text, at)
    return text:find("[^%z\1-\32]", at) or #text + 1
end

-- Below: each gives the value and the position behind it, or nil where there is no such thing.

local function utf8(code)
    if code < 0x80 then
        return string.char(code)
    elseif code < 0x800 then
        return string.char(0xC0 + math.floor(code / 64), 0x80 + code % 64)
    end
    local low = { 0x80 + math.floor(code / 64) % 64, 0x80 + code % 64 }
    if code < 0x10000 then
        return string.char(0xE0 + math.floor(code / 4096), low[1], low[2])
    end
    return string.char(0xF0 + math.floor(code / 262144), 0x80 + math.floor(code / 4096) % 64, low[1], low[2])
end

-- What stands behind the "\u"; half a pair is nothing.
local function read_code(text, at)
    local code = tonumber(text:match("^%x%x%x%x", at) or "", 16)
    if not code or code < 0xD800 or code > 0xDFFF then
        return code, at + 4
    end
    local second = tonumber(text:match("^\\u(%x%x%x%x)", at + 4) or "", 16)
    if code < 0xDC00 and second and second >= 0xDC00 and second <= 0xDFFF then
        return 0x10000 + (code - 0xD800) * 0x400 + second - 0xDC00, at + 10
    end
end

local function read_string(text, at)
    local made = {}
    at = at + 1
    while true do
        local stop = text:find('["\\]', at)
        if not stop then
            return nil
        end
        if text:sub(stop, stop) == '"' then
            -- A NUL ends what is read, though not the text.
            table.insert(made, text:sub(at, stop - 1))
            return table.concat(made):match("^%Z*"), stop + 1
        end
        table.insert(made, text:sub(at, stop - 1))
        local letter = text:sub(stop + 1, stop + 1)
        if letter == "u" then
            local code, behind = read_code(text, stop + 2)
            if not code then
                return nil
            end
            table.insert(made, utf8(code))
            at = behind
        elseif escapes[letter] then
            table.insert(made, escapes[letter])
            at = stop + 2
        else
            return nil
        end
    end
end

-- Members of an object or elements of an array.
local function read_list(text, at, last, read_one)
    at = skip_space(text, at + 1)
    if text:sub(at, at) == last then
        return at + 1
    end
    while true do
        at = read_one(at)
        at = at and skip_space(text, at)
        local mark = at and text:sub(at, at)
        if mark == last then
            return at + 1
        elseif mark ~= "," then
            return nil
        end
        at = skip_space(text, at + 1)
    end
end

local function read_object(text, at, depth)
    local members = {}
    local stop = read_list(text, at, "}", function(from)
        if text:sub(from, from) ~= '"' then
            return nil
        end
        local key, colon = read_string(text, from)
        colon = key and skip_space(text, colon)
        if not colon or text:sub(colon, colon) ~= ":" then
            return nil
        end
        local value, behind = read_value(text, skip_space(text, colon + 1), depth + 1)
        if behind and members[key:lower()] == nil then
            members[key:lower()] = value
        end
        return behind
    end)
    return members, stop
end

local kDeepest = 1000

-- A text comes as such, everything else as something that is no text.
function read_value(text, at, depth)
    local first = text:sub(at, at)
    if first == '"' then
        return read_string(text, at)
    elseif depth > kDeepest then
        return nil
    elseif first == "{" then
        return read_object(text, at, depth)
    elseif first == "[" then
        return {}, read_list(text, at, "]", function(from)
            local _, behind = read_value(text, from, depth + 1)
            return behind
        end)
    end
    local literal = text:match("^true", at) or text:match("^false", at) or text:match("^null", at)
        or text:match("^%-?%d[%d.eE+-]*", at)
    if literal then
        return {}, at + #literal
    end
end

-- The members, or nil for what is no JSON object.
return function(text)
    local at = skip_space(text, text:sub(1, 3) == "\239\187\191" and 4 or 1)
    if text:sub(at, at) ~= "{" then
        return nil
    end
    local members, stop = read_object(text, at, 1)
    return stop and members or nil
end
