-- Finds the packets among bytes, as the receiver does: a packet is where both sums hold, everything
-- else is passed over byte by byte. What is passed over is told apart for the eye alone: a packet
-- with a wrong sum, one that is cut off by the end, and bytes that are none.
--
-- byte:  0    1    2    3     4      5     6    7    8    9    10   11 ..   n-2 n-1
--        55   len  04   crc8  sender recvr  seq(le)  type set  id   payload  crc16(le)
local part = ...
if not part then return end
local bytes, sums = part("bytes"), part("sums")

local kShortest = 13      -- without a payload
local kShortestSound = 4  -- what the receiver takes for a packet, though it decodes none below 15

local function header_holds(text, at)
    return at + 4 <= #text and sums.crc8(text, at, 3) == bytes.u8(text, at + 3)
end

local function length_at(text, at)
    local length = bytes.u8(text, at + 1)
    return length and at + length <= #text and length or nil
end

local function packet_sum_holds(text, at, length)
    return sums.crc16(text, at, length - 2) == bytes.u16(text, at + length - 2)
end

local function sound_at(text, at)
    local length = length_at(text, at)
    return length and length >= kShortestSound and header_holds(text, at)
        and packet_sum_holds(text, at, length) and length or nil
end

-- Position of the next start byte, from there on and below the end.
local function next_start(text, from, below)
    local found = text:find("U", from + 1, true)
    return found and found - 1 < below and found - 1 or nil
end

-- Whether a packet begins there that the end cuts off, as far as can be seen.
local function cut_at(text, at)
    local held = #text - at
    if held < 4 then
        return held < 3 or bytes.u8(text, at + 2) == 0x04
    end
    return bytes.u8(text, at + 2) == 0x04 and header_holds(text, at)
        and bytes.u8(text, at + 1) > held
end

-- A packet with a wrong sum in the gap: its header's sum holds, or its length is all of the gap.
local function damaged_at(text, at, from, to)
    local length = length_at(text, at)
    if not length or length < kShortest then
        return nil
    end
    local whole_gap = at == from and at + length == to
    if header_holds(text, at) or (at == from and packet_sum_holds(text, at, length)) or whole_gap then
        return math.min(length, to - at)
    end
end

-- What stands between two sound packets.
local function take_gap(items, text, from, to)
    local junk = from
    local function end_junk(at)
        if at > junk then
            table.insert(items, { kind = "junk", at = junk, size = at - junk })
        end
    end
    local at = next_start(text, from, to)
    while at do
        local size = damaged_at(text, at, from, to)
        if size then
            end_junk(at)
            table.insert(items, { kind = "damaged", at = at, size = size })
            junk = at + size
        elseif to == #text and cut_at(text, at) then
            end_junk(at)
            table.insert(items, { kind = "cut", at = at, size = to - at })
            return
        end
        at = next_start(text, math.max(junk, at + 1), to)
    end
    end_junk(to)
end

-- The items in their order: kind - sound, damaged, cut, junk -, at, size.
return function(text)
    local items = {}
    local from, at = 0, next_start(text, 0, #text)
    while at do
        local length = sound_at(text, at)
        if length then
            take_gap(items, text, from, at)
            table.insert(items, { kind = "sound", at = at, size = length })
            from = at + length
        end
        at = next_start(text, length and from or at + 1, #text)
    end
    take_gap(items, text, from, #text)
    return items
end
