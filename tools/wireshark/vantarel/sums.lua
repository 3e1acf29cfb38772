-- The two sums of a camera packet: reflected, seeded, without a final XOR.
local sums = {}

local function table_of(polynomial)
    local rows = {}
    for index = 0, 255 do
        local sum = index
        for _ = 1, 8 do
            local low = bit.band(sum, 1)
            sum = bit.rshift(sum, 1)
            if low == 1 then
                sum = bit.bxor(sum, polynomial)
            end
        end
        rows[index] = sum
    end
    return rows
end

local function summer(polynomial, seed)
    local rows = table_of(polynomial)
    return function(text, at, count)
        local sum = seed
        for i = at + 1, at + count do
            sum = bit.bxor(rows[bit.band(bit.bxor(sum, text:byte(i)), 0xFF)], bit.rshift(sum, 8))
        end
        return sum
    end
end

sums.crc8 = summer(0x8C, 0x77)
sums.crc16 = summer(0x8408, 0x3692)

return sums
