-- Camera packets: in control envelopes, on the endpoint to the camera, and in datagrams.
local part = ...
if not part then return end
local show, bytes, sums = part("show"), part("bytes"), part("sums")
local scan, values = part("packet_scan"), part("values")
local rows = part("rows")
local field, warning = show.field, show.expert
local group, severity = expert.group, expert.severity
local packets = {}

packets.to_camera, packets.from_camera = "to the camera", "from the camera"

local kPayload = 11
local kLargestDatagram = 512
local kLateNumbers = 8 -- the receiver's two threads number their packets without a lock

local commands = {}
for _, row in ipairs(part("commands")) do
    row.area = "command"
    table.insert(commands, rows.prepare(row))
end
local messages = {}
for _, row in ipairs(part("messages")) do
    row.area = "camera"
    messages[row.length] = rows.prepare(row)
end

local f = {
    direction = field("text", "packet.direction"),
    name = field("text", "packet.name"),
    summary = field("text", "packet.summary"),
    start = field("u8", "packet.start", "Start byte", base.HEX),
    length = field("u8", "packet.length"),
    version = field("u8", "packet.version"),
    crc8 = field("u8", "packet.crc8", "Header sum (CRC-8)", base.HEX),
    crc8_status = field("text", "packet.crc8.status", "Header sum"),
    sender = field("u8", "packet.sender", nil, base.HEX),
    receiver = field("u8", "packet.receiver", nil, base.HEX),
    sequence = field("u16", "packet.sequence", "Sequence number", base.HEX),
    missed = field("uint", "packet.sequence.missed", "Missed before this one"),
    type = field("u8", "packet.type", "Type", base.HEX),
    set = field("u8", "packet.set", "Command set", base.HEX),
    id = field("u8", "packet.id", "Command", base.HEX),
    payload = field("bytes", "packet.payload"),
    crc16 = field("u16", "packet.crc16", "Packet sum (CRC-16)", base.HEX),
    crc16_status = field("text", "packet.crc16.status", "Packet sum"),
    junk = field("bytes", "packet.junk", "Bytes that are no packet"),
    cut = field("bytes", "packet.cut", "Packet that is cut off"),
}
local e = {
    crc8 = warning("packet.crc8_wrong", "The header's sum is wrong", group.CHECKSUM, severity.ERROR),
    crc16 = warning("packet.crc16_wrong", "The packet's sum is wrong", group.CHECKSUM, severity.ERROR),
    gap = warning("packet.gap", "Sequence numbers are missing", group.SEQUENCE, severity.WARN),
    late = warning("packet.late", "The sequence number repeats or comes late", group.SEQUENCE, severity.NOTE),
    junk = warning("packet.junk_passed_over", "Bytes that are no packet are passed over", group.MALFORMED,
        severity.WARN),
    cut = warning("packet.cut_off", "The packet is cut off, and lost", group.MALFORMED, severity.WARN),
    unseen = warning("packet.not_captured", "The capture lacks the end of this packet", group.UNDECODED,
        severity.NOTE),
    unknown = warning("packet.unknown", "Nobody knows this packet", group.UNDECODED, severity.NOTE),
    fixed = warning("packet.fixed", "A byte is not what this command always has there", group.PROTOCOL,
        severity.WARN),
    value = warning("packet.value", "The value means nothing", group.PROTOCOL, severity.WARN),
    large = warning("packet.large_datagram", "The receiver cuts the datagram off at 512 bytes",
        group.PROTOCOL, severity.WARN),
}

-- -- sequence numbers ----------------------------------------------------------------------------

local last_numbers, datagrams

function packets.forget()
    last_numbers, datagrams = {}, {}
end
packets.forget()

-- The receiver has one counter for all that it sends, in whoever's name. Whether camera and gimbal
-- share one is theirs: their numbers are in order if they follow in either way, and nothing is said of
-- a sender's first.
local function judge(item, number, direction, last, last_of_sender)
    local own = direction == packets.from_camera
    if not last or (own and not last_of_sender) then
        return
    end
    local function steps_from(before)
        return (number - before) % 65536, (before - number) % 65536
    end
    local forward, back = steps_from(last)
    if own then
        local own_forward, own_back = steps_from(last_of_sender)
        forward, back = math.min(forward, own_forward), math.min(back, own_back)
    end
    if back <= kLateNumbers then
        item.late = true
    elseif forward > 1 then
        item.missed = forward - 1
    end
end

-- Once for each packet, in the order of the capture.
function packets.note_sequence(items, text, stream, direction)
    for _, item in ipairs(items) do
        if item.kind == "sound" and item.size >= kPayload + 2 then
            local number, sender = bytes.u16(text, item.at + 6), bytes.u8(text, item.at + 4)
            local of_sender = stream .. "#" .. sender
            judge(item, number, direction, last_numbers[stream], last_numbers[of_sender])
            if not item.late then
                last_numbers[stream], last_numbers[of_sender] = number, number
            end
        end
    end
end

-- -- what a packet is ----------------------------------------------------------------------------

local function agrees(row, packet)
    return (not row.sender or row.sender == bytes.u8(packet, 4))
        and (not row.receiver or row.receiver == bytes.u8(packet, 5))
        and (not row.type or row.type == bytes.u8(packet, 8))
        and (not row.set or row.set == bytes.u8(packet, 9))
        and (not row.id or row.id == bytes.u8(packet, 10))
        and (not row.fifth or row.fifth == bytes.u8(packet, 15))
end

local function row_of(packet, direction)
    if direction == packets.from_camera then
        local row = messages[#packet]
        return row and agrees(row, packet) and row or nil
    end
    for _, row in ipairs(commands) do
        if row.length == #packet and agrees(row, packet) then
            return row
        end
    end
end

-- -- tree ----------------------------------------------------------------------------------------

local function unit(tree, of, tvb, at, code)
    local item = show.add(tree, of, tvb, at, 1, code)
    if item and values.units[code] then
        item:append_text(" (" .. values.units[code] .. ")")
    end
end

-- The sum as it is and as it should be.
local function add_sum(tree, tvb, at, size, is, should, sum_field, status_field, on_mismatch)
    local item = show.add(tree, sum_field, tvb, at, size, is)
    if not item then
        return
    end
    local wrong = string.format(" (wrong, should be 0x%0" .. 2 * size .. "x)", should)
    item:append_text(is == should and " (right)" or wrong)
    item:add(status_field, show.range(tvb, at, size), is == should and "right" or "wrong"):set_generated()
    if is ~= should then
        item:add_proto_expert_info(on_mismatch)
    end
end

local function add_sequence(tree, tvb, at, packet, item)
    local sequence = show.add(tree, f.sequence, tvb, at + 6, 2, bytes.u16(packet, 6))
    if not sequence then
        return
    end
    if item.missed then
        sequence:append_text(string.format(", %d missed before it", item.missed))
        sequence:add(f.missed, item.missed):set_generated()
        sequence:add_proto_expert_info(e.gap, string.format("%d sequence numbers are missing", item.missed))
    elseif item.late then
        sequence:add_proto_expert_info(e.late)
    end
end

local function add_fixed(tree, tvb, at, packet, row)
    for first, expected in pairs(row.fixed or {}) do
        local is = packet:sub(first + 1, first + #expected)
        if is ~= expected then
            tree:add_tvb_expert_info(e.fixed, show.range(tvb, at + first, #expected),
                string.format("From byte %d on there is %s, and always %s", first, bytes.hex(is), bytes.hex(expected)))
        end
    end
end

-- The packet's tree; its text for the list of packets.
local function add_packet(tree, tvb, item, text, direction)
    local packet, at = text:sub(item.at + 1, item.at + item.size), item.at
    local row = row_of(packet, direction)
    local name = row and row.name or "unknown"
    local own = tree:add(show.packet, tvb(at, item.size))
    own:add(f.direction, tvb(at, item.size), direction):set_generated()
    local named = own:add(f.name, tvb(at, item.size), name)
    named:set_generated()

    show.add(own, f.start, tvb, at, 1, bytes.u8(packet, 0))
    show.add(own, f.length, tvb, at + 1, 1, bytes.u8(packet, 1))
    show.add(own, f.version, tvb, at + 2, 1, bytes.u8(packet, 2))
    add_sum(own, tvb, at + 3, 1, bytes.u8(packet, 3), sums.crc8(packet, 0, 3), f.crc8, f.crc8_status, e.crc8)
    if item.size < kPayload + 2 then
        own:append_text(", too short to be one of the known")
        return "short"
    end
    unit(own, f.sender, tvb, at + 4, bytes.u8(packet, 4))
    unit(own, f.receiver, tvb, at + 5, bytes.u8(packet, 5))
    add_sequence(own, tvb, at, packet, item)
    show.add(own, f.type, tvb, at + 8, 1, bytes.u8(packet, 8))
    show.add(own, f.set, tvb, at + 9, 1, bytes.u8(packet, 9))
    show.add(own, f.id, tvb, at + 10, 1, bytes.u8(packet, 10))

    local size = item.size - kPayload - 2
    local whole = bytes.u8(packet, 1) == item.size
    local payload = own
    if size > 0 then
        payload = own:add(f.payload, tvb(at + kPayload, size))
    end
    local summary = name
    if row and whole then
        local said = rows.add(payload, tvb, at, packet, row, e.value)
        add_fixed(own, tvb, at, packet, row)
        summary = said ~= "" and name .. " " .. said or name
    elseif not row then
        named:add_proto_expert_info(e.unknown)
        summary = string.format("unknown %02X %02X", bytes.u8(packet, 9), bytes.u8(packet, 10))
    end
    if whole then
        local is = bytes.u16(packet, item.size - 2)
        add_sum(own, tvb, at + item.size - 2, 2, is, sums.crc16(packet, 0, item.size - 2), f.crc16, f.crc16_status,
            e.crc16)
    else
        own:add_proto_expert_info(e.crc16, "The packet is damaged: another one begins within it")
    end
    own:add(f.summary, tvb(at, item.size), summary):set_generated()
    own:append_text(string.format(" %s: %s", direction, summary))
    return item.kind == "damaged" and "damaged " .. summary or summary
end

-- Shows what the scan has found; `text` is what the range holds. The texts for the list of packets.
function packets.add(tree, tvb, items, text, direction)
    local is_whole = tvb:len() == tvb:reported_len()
    local said = {}
    for _, item in ipairs(items) do
        if item.kind == "sound" or item.kind == "damaged" then
            table.insert(said, add_packet(tree, tvb, item, text, direction))
        else
            local range = tvb(item.at, item.size)
            local own = tree:add(f[item.kind], range)
            own:add_proto_expert_info(item.kind == "cut" and not is_whole and e.unseen or e[item.kind])
            table.insert(said, string.format("%d bytes %s", item.size,
                item.kind == "cut" and "of a packet cut off" or "that are no packet"))
        end
    end
    return said
end

packets.scan = scan

-- -- datagrams -----------------------------------------------------------------------------------

-- What goes to the port is for the camera; nothing comes back from there.
function packets.dissect_datagram(tvb, pinfo, tree)
    if pinfo.match_uint ~= pinfo.dst_port or tvb:len() == 0 then
        return 0
    end
    local text = tvb:raw(0, tvb:len())
    local key = pinfo.number .. ":" .. pinfo.src_port
    if not pinfo.visited then
        datagrams[key] = scan(text)
        packets.note_sequence(datagrams[key], text, tostring(pinfo.src) .. ":" .. pinfo.src_port, packets.to_camera)
    end
    pinfo.cols.protocol = "Camera"
    local said = packets.add(tree, tvb, datagrams[key] or scan(text), text, packets.to_camera)
    if tvb:reported_len() > kLargestDatagram then
        tree:add_proto_expert_info(e.large)
    end
    pinfo.cols.info = "to the camera: " .. table.concat(said, "; ")
    return tvb:len()
end

return packets
