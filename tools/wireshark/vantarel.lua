-- Wireshark plugin: what camera and receiver say to each other over USB, and what the receiver says
-- to a main application over UDP. How to install it and to capture: docs/wireshark.md.
--
-- This file makes the protocols and hands each kind of traffic to its part; the parts beside it, in
-- the folder vantarel, keep nothing of their own, so that Wireshark may load them as plugins, too.

local here = debug.getinfo(1, "S").source:match("^@(.*[/\\])") or ""
local loaded = {}
local function part(name)
    if not loaded[name] then
        local chunk = assert(loadfile(here .. "vantarel/" .. name .. ".lua"))
        loaded[name] = chunk(part)
    end
    return loaded[name]
end

local usb = Proto("vantarel_usb", "Camera USB stream")
local packet = Proto("vantarel_packet", "Camera packet")
local link = Proto("vantarel_link", "Main application link")

local show = part("show")
show.begin(usb, packet, link)
local packets = part("packets")
local usb_stream = part("usb_stream")
local app_link = part("app_link")
show.finish()

-- A new capture begins.
function usb.init()
    usb_stream.forget()
    packets.forget()
end

function usb.dissector(tvb, pinfo, tree)
    return usb_stream.dissect(tvb, pinfo, tree) and tvb:len() or 0
end
usb:register_heuristic("usb.bulk", usb_stream.dissect)

function packet.dissector(tvb, pinfo, tree)
    return packets.dissect_datagram(tvb, pinfo, tree)
end
DissectorTable.get("udp.port"):add(6000, packet)

function link.dissector(tvb, pinfo, tree)
    return app_link.dissect(tvb, pinfo, tree)
end
DissectorTable.get("udp.port"):add(5000, link)
