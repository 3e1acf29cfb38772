-- The two bulk endpoints: from the camera comes one stream of envelopes (envelopes.lua), to the camera
-- go packets as they are. A transfer may cut both anywhere.
--
-- What came of each transfer is kept by its number, for Wireshark comes back in any order.
local part = ...
if not part then return end
local show, packets, envelopes = part("show"), part("packets"), part("envelopes")
local kVideo, kMagic, hold = envelopes.kVideo, envelopes.kMagic, envelopes.hold
local field, warning = show.field, show.expert
local group, severity = expert.group, expert.severity
local usb_stream = {}

local kHeader = 8
local kLargestPayload = 49477 -- a larger one the receiver's buffer does not hold

local f = {
    type = field("text", "envelope.type"),
    magic = field("bytes", "envelope.mark"),
    length = field("u16", "envelope.length", "Payload length"),
    check = field("u16", "envelope.check", "Bytes 6 and 7", base.HEX),
    first = field("frame", "envelope.first_frame", "Begins in frame"),
    last = field("frame", "envelope.last_frame", "Ends in frame"),
    filler = field("flag", "envelope.filler", "Filler"),
    nal = field("text", "envelope.nal", "NAL unit"),
    part = field("bytes", "envelope.part", "Part of an envelope"),
    junk = field("bytes", "envelope.junk", "Bytes that are no envelope"),
    lead = field("bytes", "envelope.lead", "Bytes of an envelope from before the capture"),
    part_of_packet = field("bytes", "packet.part", "Part of a packet"),
    lost = field("uint", "envelope.not_captured", "Bytes not captured"),
}
local e = {
    junk = warning("envelope.junk_passed_over", "Bytes that are no envelope are passed over", group.MALFORMED,
        severity.WARN),
    check = warning("envelope.check_not_0", "Bytes 6 and 7 are not 0: the receiver drops this video", group.PROTOCOL,
        severity.WARN),
    large = warning("envelope.large", "More than the receiver's buffer holds", group.PROTOCOL, severity.WARN),
    lost = warning("envelope.incomplete", "The capture lacks bytes of this transfer", group.UNDECODED, severity.NOTE),
}

local streams, records

function usb_stream.forget()
    streams, records = {}, {}
end
usb_stream.forget()

-- -- to the camera -------------------------------------------------------------------------------

local function take_packets(stream, data)
    local text = table.concat(stream.pieces) .. data
    local before = stream.held
    local items = packets.scan(text)
    local last = items[#items]
    hold(stream, "", nil, 0)
    if last and last.kind == "cut" then
        last.kind = "part"
        hold(stream, text:sub(last.at + 1), nil, 0)
    end
    packets.note_sequence(items, text, stream.name, packets.to_camera)
    return { { kind = "packets", text = text, before = before, items = items } }
end

-- -- which transfers -----------------------------------------------------------------------------

-- "1.5.2" is endpoint 2 of device 5 on bus 1.
local function ends_of(pinfo)
    local source, destination = tostring(pinfo.src), tostring(pinfo.dst)
    if source == "host" then
        return destination, packets.from_camera
    elseif destination == "host" then
        return source, packets.to_camera
    end
end

local function device_of(endpoint)
    return endpoint:match("^(.*)%.[^.]*$") or endpoint
end

-- A stream is ours from the first transfer on that has an envelope, or begins with a packet.
local function is_ours(data, direction, endpoint)
    if direction == packets.from_camera then
        return data:find(kMagic) ~= nil
    end
    local first = packets.scan(data)[1]
    return first and first.at == 0 and first.kind ~= "junk"
        and (#data >= 4 or streams["device " .. device_of(endpoint)]) and data:byte(3) == 0x04
end

local function take(pinfo, tvb)
    local endpoint, direction = ends_of(pinfo)
    local data = tvb:raw(0, tvb:len())
    local name = endpoint and endpoint .. " " .. direction
    if not name or (not streams[name] and not is_ours(data, direction, endpoint)) then
        return false
    end
    if not streams[name] then
        streams[name] = { name = name, pieces = {}, held = 0, need = 0 }
        streams["device " .. device_of(endpoint)] = true
    end
    local stream = streams[name]
    local missing = tvb:reported_len() - tvb:len()
    local record = { direction = direction, missing = missing }
    if direction == packets.from_camera then
        record.items = envelopes.take(stream, data, pinfo.number)
        if missing > 0 then envelopes.skip(stream, missing) end
    else
        record.items = take_packets(stream, data)
        if missing > 0 then hold(stream, "", nil, 0) end
    end
    return record
end

-- -- tree ----------------------------------------------------------------------------------------

local function add_frames(tree, envelope, number)
    if envelope.first ~= number then
        tree:add(f.first, envelope.first):set_generated()
    elseif envelope.last and envelope.last ~= number then
        tree:add(f.last, envelope.last):set_generated()
    end
end

local function kind_of(envelope)
    return envelope.type == kVideo and "video" or "control"
end

local function add_video(tree, tvb, envelope, header)
    if envelope.check ~= 0 then
        tree:add_proto_expert_info(e.check)
    end
    tree:add(f.filler, tvb(header, 1), envelope.filler):set_generated()
    for _, nal in ipairs(envelope.nals) do
        tree:add(f.nal, nal):set_generated()
    end
    local what = #envelope.nals > 0 and " (" .. table.concat(envelope.nals, ", ") .. ")" or ""
    return envelope.filler and "filler" or string.format("video %d%s", envelope.length, what)
end

local function add_envelope(tree, tvb, item, number)
    local envelope = item.envelope
    local at, whole = item.at, tvb
    if at < 0 then -- it is not all of this transfer
        whole, at = ByteArray.new(envelope.kept, true):tvb("Envelope"), 0
    end
    local here = math.max(item.at, 0)
    local own = tree:add(show.usb, tvb(here, item.at + item.size - here),
        string.format("Envelope: %s, %d bytes", kind_of(envelope), envelope.length))
    own:add(f.magic, whole(at, 4))
    own:add(f.type, whole(at + 2, 1), kind_of(envelope))
    own:add(f.length, whole(at + 4, 2), envelope.length)
    own:add(f.check, whole(at + 6, 2), envelope.check)
    add_frames(own, envelope, number)
    if envelope.length > kLargestPayload then
        own:add_proto_expert_info(e.large)
    end
    if envelope.type == kVideo then
        return add_video(own, whole, envelope, at)
    end
    if envelope.length == 0 then
        return "control, empty"
    end
    local payload = whole(at + kHeader, envelope.length):tvb()
    local text = envelope.kept:sub(kHeader + 1)
    return table.concat(packets.add(tree, payload, envelope.items, text, packets.from_camera), "; ")
end

local function add_part(tree, tvb, item, number)
    local envelope = item.envelope
    local own = tree:add(f.part, tvb(math.max(item.at, 0), item.size + math.min(item.at, 0)))
    local what = "part of an envelope"
    if envelope then
        what = string.format("part of %s %d", kind_of(envelope), envelope.length)
        add_frames(own, envelope, number)
    end
    return what
end

local function add_passed_over(tree, tvb, item)
    local here = math.max(item.at, 0)
    local there = item.at + item.size
    if there <= here then -- all of it came before
        return nil
    end
    local own = tree:add(f[item.kind], tvb(here, there - here))
    if item.kind == "lead" then
        return there .. " bytes of before the capture"
    end
    own:add_proto_expert_info(e.junk)
    return string.format("%d bytes that are no envelope", item.size)
end

local function add_packets(tree, tvb, record)
    local whole = tvb
    if record.before > 0 then
        whole = ByteArray.new(record.text, true):tvb("Packet")
    end
    local said = {}
    local items = {}
    for _, item in ipairs(record.items) do
        if item.kind == "part" then
            tree:add(f.part_of_packet, whole(item.at, item.size))
            table.insert(said, "part of a packet")
        else
            table.insert(items, item)
        end
    end
    local all = packets.add(tree, whole, items, record.text, packets.to_camera)
    for _, each in ipairs(said) do table.insert(all, each) end
    return table.concat(all, "; ")
end

local adders = {
    envelope = add_envelope, part = add_part, junk = add_passed_over, lead = add_passed_over,
    packets = add_packets,
}

-- Whether the transfer is one of ours.
function usb_stream.dissect(tvb, pinfo, tree)
    if tvb:len() == 0 then
        return false
    end
    if not pinfo.visited then
        records[pinfo.number] = take(pinfo, tvb)
    end
    local record = records[pinfo.number]
    if not record then
        return false
    end
    pinfo.cols.protocol = "Camera"
    local own = tree:add(show.usb, tvb(0, tvb:len()), "Camera USB stream, " .. record.direction)
    local said = {}
    for _, item in ipairs(record.items) do
        local text = adders[item.kind](own, tvb, item, pinfo.number)
        if text then table.insert(said, text) end
    end
    if record.missing > 0 then
        own:add(f.lost, record.missing):add_proto_expert_info(e.lost)
    end
    pinfo.cols.info = record.direction .. ": " .. table.concat(said, "; ")
    return true
end

return usb_stream
