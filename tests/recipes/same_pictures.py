#!/usr/bin/env python3
"""same_pictures.py CLIP ARRIVED [LEAST]: whether the H.264 byte stream ARRIVED has the pictures of CLIP, which is
played again and again, bit for bit: from a key frame on, none left out, and at least so many.

Containers add delimiters and move parameter sets; so the slices are compared, one after the other, and the parameter
sets as a set."""
import sys

SLICE, KEY_SLICE, SPS, PPS = 1, 5, 7, 8


def units(path):
    with open(path, "rb") as file:
        data = file.read()
    for piece in data.split(b"\0\0\1")[1:]:
        piece = piece.rstrip(b"\0")
        if piece:
            yield piece


def main():
    clip, arrived = list(units(sys.argv[1])), list(units(sys.argv[2]))
    least = int(sys.argv[3]) if len(sys.argv) > 3 else 60
    slices = {name: [u for u in all_ if u[0] & 31 in (SLICE, KEY_SLICE)] for name, all_ in
              (("clip", clip), ("arrived", arrived))}
    sets = [{u for u in all_ if u[0] & 31 in (SPS, PPS)} for all_ in (clip, arrived)]
    got, wanted = slices["arrived"], slices["clip"]
    if len(got) < least:
        return f"{len(got)} pictures arrived, not {least}"
    if got[0][0] & 31 != KEY_SLICE:
        return "the first picture is no key frame"
    if got[0] not in wanted:
        return "the first picture is none of the clip's"
    at = wanted.index(got[0])
    for number, unit in enumerate(got):
        # The last one may have been under way when the recipe was ended.
        same = bytes.startswith if number == len(got) - 1 else bytes.__eq__
        if not same(wanted[(at + number) % len(wanted)], unit):
            return f"picture {number} of {len(got)} is another"
    if sets[0] != sets[1]:
        return "the parameter sets differ"
    print(f"{len(got)} pictures, bit for bit")
    return 0


sys.exit(main())
