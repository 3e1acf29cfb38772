-- Reading from a string of bytes; positions count from 0, as those of a packet do. Nothing is read
-- beyond the end: then the result is nil.
local bytes = {}

local function unsigned(text, at, size)
    if at < 0 or at + size > #text then
        return nil
    end
    local value = 0
    for i = size, 1, -1 do
        value = value * 256 + text:byte(at + i)
    end
    return value
end

local function signed(text, at, size)
    local value = unsigned(text, at, size)
    local half = 2 ^ (8 * size - 1)
    return value and (value >= half and value - 2 * half or value)
end

function bytes.u8(text, at) return unsigned(text, at, 1) end
function bytes.u16(text, at) return unsigned(text, at, 2) end
function bytes.u24(text, at) return unsigned(text, at, 3) end
function bytes.u32(text, at) return unsigned(text, at, 4) end
function bytes.i8(text, at) return signed(text, at, 1) end
function bytes.i16(text, at) return signed(text, at, 2) end

function bytes.f32(text, at)
    return at + 4 <= #text and (Struct.unpack("<f", text:sub(at + 1, at + 4))) or nil
end

-- The nearest number that single precision has.
function bytes.single(number)
    return (Struct.unpack("<f", Struct.pack("<f", number)))
end

bytes.size = { u8 = 1, u16 = 2, u24 = 3, u32 = 4, i8 = 1, i16 = 2, f32 = 4 }

function bytes.hex(text)
    return (text:gsub(".", function(byte) return string.format("%02X ", byte:byte()) end):gsub(" $", ""))
end

return bytes
