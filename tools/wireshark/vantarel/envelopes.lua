-- The camera's stream of envelopes, which a transfer may cut anywhere:
--
--   byte:  0    1    2     3    4   5    6   7    8 ..
--          55   CC   type  57   length   check    payload of that length
--
--   type 49 "I": bytes of the camera's control protocol; bytes 6 and 7 are not looked at
--   type 4A "J": a chunk of the live H.264 video; bytes 6 and 7 must be 0
--
-- It is put together as Wireshark reads the capture, in order. Of the video only the shape is kept.
local part = ...
if not part then return end
local bytes, packets = part("bytes"), part("packets")
local envelopes = {}

local kHeader = 8
local kFiller = "\0\0\1\255"
local kFillerSize = 12
envelopes.kVideo = 0x4A
envelopes.kMagic = "U\204[IJ]W"

local nal_types = {
    [1] = "slice", [5] = "IDR slice", [6] = "SEI", [7] = "SPS", [8] = "PPS", [9] = "delimiter",
    [10] = "end of sequence", [11] = "end of stream", [12] = "filler data",
}

-- How many bytes at the end may be the beginning of an envelope's mark.
local function begun_mark(text)
    for size = 3, 1, -1 do
        local tail = text:sub(-size)
        if #text >= size and (tail == "U" or tail == "U\204" or tail == "U\204I" or tail == "U\204J") then
            return size
        end
    end
    return 0
end

local function nal_units(payload)
    local units, from = {}, 1
    while true do
        local _, mark = payload:find("\0\0\1", from, true)
        local header = mark and payload:byte(mark + 1)
        if not header then
            return units
        end
        table.insert(units, nal_types[header % 32] or "type " .. header % 32)
        from = mark + 1
    end
end

local function begin_envelope(text, at, first)
    return { type = bytes.u8(text, at + 2), length = bytes.u16(text, at + 4), check = bytes.u16(text, at + 6),
             first = first }
end

-- A whole envelope. What is kept of its bytes: the header, and the payload of a control envelope.
local function end_envelope(stream, envelope, text, at, number)
    local payload = text:sub(at + kHeader + 1, at + kHeader + envelope.length)
    envelope.last = number
    envelope.kept = text:sub(at + 1, at + kHeader)
    if envelope.type == envelopes.kVideo then
        envelope.filler = #payload == kFillerSize and payload:sub(1, 4) == kFiller
        envelope.nals = not envelope.filler and nal_units(payload) or {}
    else
        envelope.kept = envelope.kept .. payload
        envelope.items = packets.scan(payload)
        packets.note_sequence(envelope.items, payload, stream.name, packets.from_camera)
    end
end

-- Keeps what the next transfer goes on with. `begun` is the transfer in which it begins.
function envelopes.hold(stream, text, begun, need, envelope)
    stream.pieces, stream.held, stream.need = { text }, #text, need
    stream.begun, stream.envelope = begun, envelope
end

-- Goes through what is held and what has come; positions in the items are those of the transfer, and
-- below 0 where something began before it.
function envelopes.take(stream, data, number)
    local items, before = {}, stream.held
    local function note(kind, from, to, more)
        local item = more or {}
        item.kind, item.size = kind, to - from
        item.at = from - before
        table.insert(items, item)
    end
    if before > 0 and before + #data < stream.need then
        table.insert(stream.pieces, data)
        stream.held = before + #data
        note("part", before, stream.held, { envelope = stream.envelope })
        return items
    end
    table.insert(stream.pieces, data)
    local text = table.concat(stream.pieces)
    local at = 0
    local function begun_at(position)
        return position < before and stream.begun or number
    end
    while true do
        local mark = text:find(envelopes.kMagic, at + 1)
        local stop = mark and mark - 1 or #text - begun_mark(text:sub(at + 1))
        if stop > at then
            note(stream.synchronous and "junk" or "lead", at, stop)
        end
        if not mark then
            if stop < #text then
                note("part", stop, #text)
            end
            envelopes.hold(stream, text:sub(stop + 1), begun_at(stop), kHeader)
            return items
        end
        local begun = begun_at(stop)
        stream.synchronous = true
        local header = #text - stop >= kHeader
        local envelope = header and (stop < before and stream.envelope or begin_envelope(text, stop, begun))
        local size = header and kHeader + envelope.length
        if not header or stop + size > #text then
            note("part", stop, #text, { envelope = envelope or nil })
            envelopes.hold(stream, text:sub(stop + 1), begun, size or kHeader, envelope or nil)
            return items
        end
        end_envelope(stream, envelope, text, stop, number)
        note("envelope", stop, stop + size, { envelope = envelope })
        at = stop + size
    end
end

-- Bytes of a transfer that are not in the capture. Within video they change nothing but the picture.
function envelopes.skip(stream, missing)
    local envelope = stream.envelope
    if envelope and envelope.type == envelopes.kVideo and stream.held + missing < stream.need then
        table.insert(stream.pieces, ("\255"):rep(missing))
        stream.held = stream.held + missing
    else
        envelopes.hold(stream, "", nil, 0)
        stream.synchronous = false
    end
end

return envelopes
