-- Fields and warnings: each is made at its first mention, and put into the tree where its bytes are
-- captured.
local show = {}
local fields, experts, by_name

-- Whose field or warning it is, by the first part of its name.
local owners = {
    envelope = "usb",
    packet = "packet", camera = "packet", command = "packet",
    link = "link", report = "link", app = "link",
}

local function owner_of(name)
    return assert(owners[name:match("^[^.]*")], name)
end

function show.begin(usb, packet, link)
    show.usb, show.packet, show.link = usb, packet, link
    fields, experts, by_name = { usb = {}, packet = {}, link = {} }, { usb = {}, packet = {}, link = {} }, {}
end

-- Wireshark takes the fields of a protocol once.
function show.finish()
    for owner in pairs(fields) do
        show[owner].fields = fields[owner]
        show[owner].experts = experts[owner]
    end
end

local makers = {
    u8 = ProtoField.uint8,
    u16 = ProtoField.uint16,
    uint = ProtoField.uint32,
    int = ProtoField.int32,
    text = ProtoField.string,
    float = ProtoField.float,
    bytes = ProtoField.bytes,
    frame = ProtoField.framenum,
    flag = ProtoField.bool,
}

-- show.field("u8", "packet.length"[, title[, base]]): the same one for the same name.
function show.field(kind, name, title, base)
    local abbreviation = "vantarel." .. name
    if not by_name[abbreviation] then
        title = title or (name:match("[^.]*$"):gsub("_", " "):gsub("^%l", string.upper))
        by_name[abbreviation] = base and makers[kind](abbreviation, title, base)
            or makers[kind](abbreviation, title)
        table.insert(fields[owner_of(name)], by_name[abbreviation])
    end
    return by_name[abbreviation]
end

-- show.expert("packet.gap", "Sequence numbers are missing", group, severity)
function show.expert(name, title, group, severity)
    local made = ProtoExpert.new("vantarel." .. name, title, group, severity)
    table.insert(experts[owner_of(name)], made)
    return made
end

-- What is captured of these bytes; no range at all where nothing is.
function show.range(tvb, at, size)
    if at >= tvb:len() then
        return nil
    end
    return tvb(at, math.min(size, tvb:len() - at))
end

-- Adds a value that was read from the bytes, whatever Wireshark would read there.
function show.add(tree, field, tvb, at, size, value)
    local range = show.range(tvb, at, size)
    return range and tree:add(field, range, value)
end

return show
