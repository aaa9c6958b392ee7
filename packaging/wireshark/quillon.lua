-- Quillon in Wireshark and tshark: the UDP traffic between consoles and endpoints, and the serial
-- frames of the HID chip (CH9329 or CH9350). docs/protocols.md has the bytes.
--
--     tshark -X lua_script:quillon.lua -r capture.pcapng -Y 'quillon.kind == "keyboard"'
--
-- Wireshark loads it from the folder of personal Lua plugins. Serial captures have link type USER0
-- (147), one frame in a packet; the direction in the packet flags, if any, is the endpoint's.

local quillon = Proto("quillon", "Quillon Console Protocol")
local hidchip = Proto("hidchip", "HID Chip Serial Frame")
local console, chip = {}, {}  -- fields, field types and notes of each protocol; filled below

-- Names

local modifierNames = {"ctrl", "shift", "alt", "gui", "rctrl", "rshift", "altgr", "rgui"}
local buttonNames = {"left", "right", "middle", "button 4", "button 5"}
local bitNames = {modifiers = modifierNames, buttons = buttonNames}
local statusNames = {
    [0x00] = "done", [0xE1] = "byte too late", [0xE2] = "wrong head", [0xE3] = "unknown command",
    [0xE4] = "wrong checksum", [0xE5] = "wrong parameter", [0xE6] = "not carried out",
}

-- Usages of the HID keyboard page, named as the console's key combinations name them.
local keyNames = {[0] = "none"}
for usage = 1, 255 do keyNames[usage] = string.format("key 0x%02x", usage) end
for first, names in pairs({
    [0x04] = "a b c d e f g h i j k l m n o p q r s t u v w x y z 1 2 3 4 5 6 7 8 9 0",
    [0x28] = "enter escape backspace tab space - = [ ] \\",
    [0x33] = "; ' ` , . / capslock f1 f2 f3 f4 f5 f6 f7 f8 f9 f10 f11 f12 printscreen scrolllock",
    [0x48] = "pause insert home pageup delete end pagedown right left down up numlock",
    [0x65] = "menu",
    [0x68] = "f13 f14 f15 f16 f17 f18 f19 f20 f21 f22 f23 f24",
}) do
    local usage = first
    for name in names:gmatch("%S+") do keyNames[usage], usage = name, usage + 1 end
end

-- Names of the set bits. It divides, because Lua 5.2 and 5.4 have no bit operators in common.
local function namesOf(value, names)
    local set = {}
    for i, name in ipairs(names) do
        if math.floor(value / 2 ^ (i - 1)) % 2 == 1 then set[#set + 1] = name end
    end
    return table.concat(set, "+")
end

local lockNames = {[0] = "locks off", [0xFF] = "locks unknown"}  -- until the computer sets them
for leds = 1, 7 do lockNames[leds] = namesOf(leds, {"num", "caps", "scroll"}) .. " on" end

-- Longer than any known text, bytes. A longer text is cut before it is matched, because some
-- patterns take time that grows with the square of its length.
local kLongestText = 1024

-- Text for the Info column, which would show control characters as they are.
local function printable(text)
    if #text > 100 then text = text:sub(1, 100) .. "..." end
    return (text:gsub("[^ -~]", "?"))
end

-- Replaces each {name} in words by its value. wordings may hold a function or a table for a name,
-- which gives the text for the value.
local function fill(words, values, wordings)
    return (words:gsub("{([%a_]+)}", function(name)
        local value, wording = values[name], (wordings or {})[name]
        if type(wording) == "function" then return wording(value) end
        return wording and (wording[value] or "unknown") or value
    end))
end

-- Readers of reports and of a frame's data. The caller has checked that all bytes are there. They
-- return the text for the Info column.

local sizes = {uint8 = 1, int8 = 1, uint16 = 2, uint32 = 4}

-- Adds consecutive fields, "_" for a byte to skip; returns their values and items. Numbers have the
-- low byte first, except the line speed of a CH9329.
local function addShape(tvb, offset, tree, side, shape)
    local values, items = {}, {}
    for name in shape:gmatch("%S+") do
        local kind = side.types[name]
        local range = tvb(offset, sizes[kind] or 1)
        if kind then
            local add = kind == "uint32" and tree.add or tree.add_le
            local read = kind == "uint32" and range.uint or kind == "int8" and range.int
            values[name] = (read or range.le_uint)(range)
            items[name] = add(tree, side.fields[name], range)
            local set = bitNames[name] and namesOf(values[name], bitNames[name]) or ""
            if set ~= "" then items[name]:append_text(" (" .. set .. ")") end
        end
        offset = offset + range:len()
    end
    return values, items
end

local function addKeyboard(tvb, offset, tree, side)
    local values = addShape(tvb, offset, tree, side, "modifiers _ usage")
    local words = {namesOf(values.modifiers, modifierNames)}
    if words[1] == "" then words = {} end
    for at = offset + 2, offset + 7 do
        local usage = tvb(at, 1):uint()
        if usage ~= 0 then words[#words + 1] = keyNames[usage] end
        if usage ~= 0 and at > offset + 2 then
            local item = tree:add(side.fields.usage, tvb(at, 1))
            if side.notes.keys then item:add_proto_expert_info(side.notes.keys) end
        end
    end
    return "keyboard: " .. (words[1] and table.concat(words, " ") or "all keys up")
end

-- The next two make readers of other shapes, whose words contain the values.
local function pointer(shape, where)
    return function(tvb, offset, tree, side)
        local values, items = addShape(tvb, offset, tree, side, shape)
        local words = "pointer " .. fill(where, values)
        local buttons = namesOf(values.buttons, buttonNames)
        if buttons ~= "" then words = words .. ", " .. buttons .. " down" end
        if not buttons:find("^%a*$") and side.notes.several then
            items.buttons:add_proto_expert_info(side.notes.several)
        end
        return words .. (values.wheel ~= 0 and string.format(", wheel %+d", values.wheel) or "")
    end
end

local function plain(shape, words, wordings)
    return function(tvb, offset, tree, side)
        return fill(words, addShape(tvb, offset, tree, side, shape), wordings)
    end
end

local kAnswer, kRefusal = 0x80, 0xC0  -- added to a CH9329's command

local function addAnswer(tvb, offset, tree, side, name)
    local status, code = addShape(tvb, offset, tree, side, "status").status, tvb(3, 1):uint()
    if status == 0 and code < kRefusal then return "acknowledged: " .. name end
    return "refused: " .. name .. ", " .. (statusNames[status] or string.format("0x%02x", status))
end

local addRelative = pointer("buttons dx dy wheel", "by {dx},{dy}")
local addRelativeData = pointer("_ buttons dx dy wheel", "by {dx},{dy}")
local addAbsolute = pointer("_ buttons x y wheel", "at {x},{y}")
local addParameters = plain("mode serial_mode own_address baud", "parameters: {baud} baud")
local addInformation = plain("version usb leds", "information: USB {usb}, {leds}",
                             {usb = {[0] = "not attached", [1] = "attached"}, leds = lockNames})
local addStatus = plain("_ _ _ _ leds usb", "status: USB {usb}, {leds}",
                        {usb = {[0x04] = "not attached", [0x07] = "attached"}, leds = lockNames})

-- Commands of a CH9329: name, size and reader of the request's data, and the same for the answer's
-- data unless that is a status. Data without a reader is shown as bytes.
local commands = {
    [0x01] = {"information", {0, words = "asks for information"}, {8, addInformation}},
    [0x02] = {"keyboard", {8, addKeyboard}},
    [0x03] = {"media keys"},
    [0x04] = {"absolute mouse", {7, addAbsolute}},
    [0x05] = {"relative mouse", {5, addRelativeData}},
    [0x06] = {"custom report"},
    [0x07] = {"custom report from the computer", {}, {}},
    [0x08] = {"parameters", {0, words = "asks for parameters"}, {50, addParameters}},
    [0x09] = {"set parameters", {50, function(...) return "set " .. addParameters(...) end}},
    [0x0A] = {"USB string", {1}, {}},
    [0x0B] = {"set USB string"},
    [0x0C] = {"factory settings", {0}},
    [0x0F] = {"reset", {0}},
}
local anyData, statusOnly = {}, {1, addAnswer}
local codeNames = {}
for code, command in pairs(commands) do
    codeNames[code] = command[1]
    codeNames[code + kAnswer] = command[1] .. ", answer"
    codeNames[code + kRefusal] = command[1] .. ", refusal"
end

-- Frames of a CH9350 by their third byte; they have neither length nor checksum. Console records go
-- to this chip as they are, except for scaled positions.
local rawFrames = {
    [0x01] = {11, addKeyboard, kind = "keyboard"},
    [0x02] = {7, addRelative, kind = "relative mouse"},
    [0x04] = {10, addAbsolute, kind = "absolute mouse"},
    [0x12] = {11, addStatus, fromChip = true},
    [0x40] = {4, plain("state", "state {state}")},
    [0x80] = {4, plain("request", "asks for the status")},
}

-- Fields, and notes on what is wrong

local labels = {usb = "USB state", leds = "Lock LEDs", dx = "X movement", dy = "Y movement"}
local bases = {uint8 = base.HEX, length = base.DEC, checksum_status = base.DEC}
local valueNames = {usage = keyNames, command = codeNames, status = statusNames, leds = lockNames,
                    checksum_status = {[0] = "Bad", [1] = "Good"}}

local function setFields(protocol, side, prefix, namesOfType)
    side.fields, side.types = {}, {}
    for kind, names in pairs(namesOfType) do
        for name in names:gmatch("%S+") do
            local label = labels[name] or name:gsub("_", " "):gsub("^%l", string.upper)
            local filter = prefix .. name:gsub("checksum_", "checksum.")
            side.types[name] = kind
            side.fields[name] = ProtoField[kind](filter, label, bases[name] or bases[kind],
                                                 valueNames[name])
        end
    end
    protocol.fields = side.fields
end

local function note(name, text, group, severity)
    return ProtoExpert.new(name, text, expert.group[group], expert.severity[severity])
end

setFields(quillon, console, "quillon.", {
    uint8 = "modifiers usage buttons", uint16 = "x y", int8 = "dx dy wheel", bool = "software",
    int32 = "level code width height",
    string = "kind text endpoint user output mouse caps num switch attached answer_to setting",
})
console.notes = {
    keys = note("quillon.keys", "A CH9329 is sent the first key alone", "PROTOCOL", "NOTE"),
    several = note("quillon.several", "A CH9329 is sent no button then", "PROTOCOL", "NOTE"),
    type = note("quillon.type", "The type byte is another record's", "PROTOCOL", "WARN"),
    length = note("quillon.length", "No record has this length", "MALFORMED", "WARN"),
    form = note("quillon.form", "Fields are missing, or too many", "MALFORMED", "WARN"),
    refused = note("quillon.refused", "The endpoint refuses this value", "PROTOCOL", "WARN"),
    unknown = note("quillon.unknown", "Not understood by who gets it", "UNDECODED", "WARN"),
    long = note("quillon.long", "Longer than what is received", "PROTOCOL", "WARN"),
    cut = note("quillon.cut", "Cut short by the capture", "UNDECODED", "NOTE"),
}
quillon.experts = console.notes

setFields(hidchip, chip, "hidchip.", {
    uint8 = "modifiers usage buttons address command length checksum checksum_status status " ..
        "version usb leds state request mode serial_mode own_address",
    uint16 = "x y", int8 = "dx dy wheel", uint32 = "baud", bool = "from_chip",
    string = "model text", bytes = "data filler",
})
chip.notes = {
    sum = note("hidchip.checksum.bad", "Bad checksum", "CHECKSUM", "ERROR"),
    length = note("hidchip.length.bad", "Not the length of this command", "MALFORMED", "WARN"),
    cut = note("hidchip.cut", "The frame is cut short", "MALFORMED", "WARN"),
    outside = note("hidchip.outside", "Bytes outside of frames", "UNDECODED", "NOTE"),
    direction = note("hidchip.direction", "The packet flags say otherwise", "PROTOCOL", "WARN"),
}
hidchip.experts = chip.notes

-- Serial packets

local function addData(tvb, tree, code, length)
    local command = commands[code % 0x40] or {string.format("command 0x%02x", code % 0x40)}
    local name, data = command[1], command[2] or anyData
    if code >= kAnswer then data = code < kRefusal and command[3] or statusOnly end
    local size, reader = data[1] or length, data[2]
    if size ~= length then
        tree:add_proto_expert_info(chip.notes.length)
    elseif reader then
        return reader(tvb, 5, tree, chip, name)
    end
    if length > 0 then tree:add(chip.fields.data, tvb(5, length)) end
    return data.words or name
end

local function addChecksum(tvb, tree, at)
    local sum = 0
    for i = 0, at - 1 do sum = (sum + tvb(i, 1):uint()) % 256 end
    local range = tvb(at, 1)
    local good = sum == range:uint()
    tree:add(chip.fields.checksum, range)
    local item = tree:add(chip.fields.checksum_status, range, good and 1 or 0):set_generated()
    if good then return "" end
    item:add_proto_expert_info(chip.notes.sum, string.format("Bad checksum, not 0x%02x", sum))
    return " [bad checksum]"
end

local function addFrame(tvb, tree)
    local values = addShape(tvb, 2, tree, chip, "address command length")
    local words = addData(tvb, tree, values.command, values.length)
    words = words .. addChecksum(tvb, tree, 5 + values.length)
    local size = 6 + values.length
    if tvb:len() > size then tree:add(chip.fields.filler, tvb(size)) end
    return words, values.command >= kAnswer
end

local kLargestData = 64  -- bytes of data in a frame of a CH9329

-- Chip and size of the frame that begins at an offset, nil if there is none. The third byte of a
-- CH9329's frame is its address, in this system always 00. Two extra zero bytes follow its relative
-- mouse frames.
local function frameAt(bytes, offset)
    local head1, head2, third, code, length = bytes:byte(offset + 1, offset + 5)
    if head1 ~= 0x57 or head2 ~= 0xAB then return nil end
    local raw = rawFrames[third]
    if raw then return "CH9350", raw[1] end
    if third ~= 0 or (length or 0) > kLargestData then return nil end
    local size = 6 + (length or 0)
    local filled = code == 0x05 and bytes:sub(offset + size + 1, offset + size + 2) == "\0\0"
    return "CH9329", filled and size + 2 or size
end

local function addOutside(tvb, tree)
    local bytes = tvb:raw(0, math.min(tvb:len(), kLongestText))
    if bytes == "\0\0" then
        tree:add(chip.fields.filler, tvb())
        return "filler behind a relative report"
    end
    if bytes:find("^[%g%s]+$") then  -- a microcontroller's commands and answers
        tree:add(chip.fields.text, tvb())
        return "text: " .. printable(bytes:match("^(.-)%s*$"))
    end
    tree:add(chip.fields.data, tvb()):add_proto_expert_info(chip.notes.outside)
    return tvb:len() .. " bytes outside of frames"
end

-- Returns the words, and whether the piece came from the chip if its content shows that.
local function addPiece(tvb, tree, model, size)
    if not model then return addOutside(tvb, tree) end
    tree:add(chip.fields.model, tvb(), model):set_generated()
    if tvb:len() < size then
        tree:add(chip.fields.data, tvb()):add_proto_expert_info(chip.notes.cut)
        return "cut frame"
    end
    if model == "CH9329" then return addFrame(tvb, tree) end
    local raw = rawFrames[tvb(2, 1):uint()]
    return raw[2](tvb, 3, tree, chip), raw.fromChip or false
end

local directionFlags = Field.new("frame.packet_flags_direction")
local flaggedFromChip = {[1] = true, [2] = false}  -- inbound, outbound

local function addDirection(pinfo, tree, fromChip)
    local flags = directionFlags()
    local flagged = flags and flaggedFromChip[flags.value]
    if fromChip == nil then fromChip = flagged end
    if fromChip == nil then return end
    local item = tree:add(chip.fields.from_chip, fromChip):set_generated()
    if flagged == not fromChip then item:add_proto_expert_info(chip.notes.direction) end
    pinfo.cols.src = fromChip and "chip" or "endpoint"
    pinfo.cols.dst = fromChip and "endpoint" or "chip"
end

function hidchip.dissector(tvb, pinfo, tree)
    local bytes, offset, said = tvb:raw(), 0, {}
    while offset < #bytes do
        local model, size = frameAt(bytes, offset)
        local nextHead = bytes:find("\x57\xAB", offset + 2, true) or #bytes + 1
        local piece = tvb(offset, math.min(size or nextHead - 1 - offset, #bytes - offset))
        local branch = tree:add(hidchip, piece)
        local words, fromChip = addPiece(piece:tvb(), branch, model, size)
        branch:append_text(", " .. words)
        addDirection(pinfo, branch, fromChip)
        said[#said + 1] = words
        offset = offset + piece:len()
    end
    pinfo.cols.protocol = "HIDCHIP"
    pinfo.cols.info = table.concat(said, "; ", 1, math.min(#said, 8))
end

-- UDP texts. {user} stands for the field of that name in a text, and for its value in the words.

-- Reads a number as the endpoint does: it ignores what follows the digits.
local function number(value) return tonumber(value:match("^[+-]?%d+")) end

local function onOff(value) return (number(value) or 0) ~= 0 and "on" or "off" end
local mouseWords = {rel = "relative", abs = "absolute"}
local codeWords = {["0"] = "refused", ["1"] = "granted", ["2"] = "not granted, nobody answered"}
local function consent(value) return number(value) == 0 and "refused" or "granted" end

-- Texts by speaker; the first that matches counts. One marked `whole` must be the whole text, not
-- only its beginning. In a `loose` vocabulary any number of bars and blanks separates the fields.
-- `room` is the number of bytes that the receiver reads.
local vocabularies = {
    request = {
        room = 256,
        {"syncled", "asks for the lock keys"},
        {"link", "asks for picture and mouse mode"},
        {"capslock", "asks for Caps Lock", whole = true},
        {"numlock", "asks for Num Lock", whole = true},
        {"out={caps}&num={num}", "sets caps {caps}, num {num}"},
        {"out", "sets the lock keys"},
    },
    answer = {
        {"vi_w={width}&vi_h={height}&kvm={mouse}", "picture {width}x{height}, {mouse} mouse",
         mouse = mouseWords},
        {"capslock={caps}&numlock={num}", "caps {caps}, num {num}"},
        {"on", "on", whole = true},
        {"off", "off", whole = true},
    },
    command = {
        room = 256, loose = true,
        {"query", "query"},
        {"connect|{user}|{output}|{level}", "{user} connects, level {level}, output {output}"},
        {"apply|{user}|{output}|{level}", "{user} applies, level {level}, output {output}"},
        {"disconnect|{user}|{level}", "{user} disconnects"},
        {"chip={mouse}", "{mouse} mouse", mouse = mouseWords},
        {"per_enable={switch}", "permissions {switch}", switch = onOff},
        {"getKvmInfo:{endpoint}", "asks for the settings of {endpoint}, to the group"},
        {"getKvmInfo", "asks for the settings"},
        {"[seq]\n[controlled]={endpoint}\n[answer]={answer_to}\nusb_is_link_pc",
         "is a computer attached to {endpoint}?"},
        {"kUsbPower={switch}", "USB power {switch}", switch = onOff},
    },
    reply = {
        {"query|{endpoint}|0|{user}|{level}", "held by nobody"},
        {"query|{endpoint}|1|{user}|{level}", "held by {user}, level {level}"},
        {"[ack]\n[controlled]={endpoint}\nusb_is_link_pc={attached}",
         "{attached} computer is attached to {endpoint}", attached = {["0"] = "no", ["1"] = "a"}},
        {"", "settings", pattern = "=[^\n]*\n", kind = "settings"},
    },
    link = {
        {"connect|{endpoint}|1|{user}|{level}", "held by {user}, level {level}"},
        {"disconnect|{endpoint}|0|{user}|{level}", "no longer held by {user}, level {level}"},
        {"apply|{endpoint}|{user}", "{user} asks for control"},
        {"reply|{endpoint}|{code}", "control {code}", code = codeWords},
    },
    consent = {
        room = 64, loose = true,
        {"reply|{output}|{user}|{code}", "{user} is {code}", code = consent},
        {"reply", "granted, with a field left out"},
    },
    heartbeat = {
        {"heart", "heartbeat", whole = true},
        {"ackheart", "heartbeat answered", whole = true},
    },
}

-- Makes the Lua patterns of a whole text and of its beginning; their captures are field positions.
local function compile(entry, loose)
    local text, pattern, fields = entry[1], "^", {}
    local bar, stops, count = "%%|", "|\n", "*"
    if loose then bar, stops, count = "[|%%s]+", "|%s", "+" end
    for literal, field, at in text:gmatch("([^{]*){?([%a_]*)}?()") do
        pattern = pattern .. literal:gsub("%p", "%%%0"):gsub("%%|", bar)
        if field ~= "" then
            local stop = text:sub(at, at):gsub("%p", "%%%0")
            entry.beginning = entry.beginning or pattern
            pattern = pattern .. "()[^" .. stops .. stop .. "]" .. count .. "()"
            fields[#fields + 1] = field
        end
    end
    local whole = entry.whole or not loose and fields[1]
    entry.fields, entry.pattern = fields, entry.pattern or pattern .. (whole and "$" or "")
end
for _, vocabulary in pairs(vocabularies) do
    for _, entry in ipairs(vocabulary) do compile(entry, vocabulary.loose) end
end

-- Returns the speaker, the entry and the positions of its fields, which are nil when only the
-- beginning of the text matches.
local function find(text, speakers)
    for _, by in ipairs({"pattern", "beginning"}) do
        for _, speaker in ipairs(speakers) do
            for _, entry in ipairs(vocabularies[speaker]) do
                local found = {text:find(entry[by] or "^\0")}  -- matches no text
                if found[1] then return speaker, entry, by == "pattern" and found or nil end
            end
        end
    end
end

-- Longest values that an endpoint stores. It refuses longer ones, and those with "=", which would
-- be read back as another setting. The name in "disconnect" is only compared.
local longest = {user = 31, output = 15, switch = 7}

local function addFields(tvb, tree, text, entry, found, isCommand)
    local values = {}
    for i, name in ipairs(entry.fields) do
        local at, behind = found[2 * i + 1], found[2 * i + 2]
        local value, range = text:sub(at, behind - 1), tvb(at - 1, behind - at)
        local shown = value == "" and "none" or printable(value)
        local item
        if console.types[name] == "int32" then
            shown = math.max(-0x80000000, math.min(number(value) or 0, 0x7FFFFFFF))
            item = tree:add(console.fields[name], range, shown)
        else
            item = tree:add(console.fields[name], range)
        end
        values[name] = entry[name] and value or shown
        local kept = isCommand and longest[name] and not entry[1]:find("^disconnect")
        if kept and (value:find("=") or #value > longest[name]) then item:add_proto_expert_info(console.notes.refused) end
    end
    return values
end

-- Returns kind and words of a text, which ends at its first zero byte.
local function addText(tvb, tree, speakers)
    local text = tvb:raw(0, math.min(tvb:len(), kLongestText)):match("^[^\0]*")
    local speaker, entry, found = find(text, speakers)
    local item, notes = tree:add(console.fields.text, tvb(0, #text)), console.notes
    if tvb:len() > (speaker and vocabularies[speaker].room or tvb:len()) then
        item:add_proto_expert_info(notes.long)
    end
    if not found then
        item:add_proto_expert_info(speaker and notes.form or notes.unknown)
        local wrong = speaker and "wrong fields: " or "not understood: "
        return speaker or "unknown", wrong .. printable(text)
    end
    if entry.kind == "settings" then
        for at, line in text:gmatch("()([^\n]+)") do
            tree:add(console.fields.setting, tvb(at - 1, #line))
        end
    end
    local values = addFields(tvb, tree, text, entry, found, speaker == "command")
    return entry.kind or speaker, fill(entry[2], values, entry)
end

-- UDP datagrams

local records = {}  -- by length, which alone identifies a record
for code, frame in pairs(rawFrames) do
    if frame.kind then records[frame[1]] = {type = code, kind = frame.kind, add = frame[2]} end
end

local function addRecord(tvb, tree, size)
    local record = records[size]
    if not record then
        tree:add_proto_expert_info(console.notes.length)
        return "unknown", "no record has " .. size .. " bytes"
    end
    if tvb:len() < size then return record.kind, record.kind end
    if tvb(2, 1):uint() ~= record.type then tree:add_proto_expert_info(console.notes.type) end
    return record.kind, record.add(tvb, 3, tree, console)
end

local function addRecordOrText(tvb, tree, speakers, size)
    if tvb:raw():find("^\x57\xAB") then return addRecord(tvb, tree, size) end
    return addText(tvb, tree, speakers)
end

-- A datagram with "software=" anywhere in its text loses its first 9 bytes, but only a keyboard or
-- absolute mouse record counts as 9 bytes shorter.
local function addRequest(tvb, tree, speakers)
    local tag, shorter, size = "software=", {[19] = 10, [20] = 11}, tvb:reported_len()
    local text = tvb:raw(0, math.min(tvb:len(), kLongestText)):match("^[^\0]*")
    local wrapped = text:find(tag, 1, true) and tvb:len() > #tag
    if not wrapped then return addRecordOrText(tvb, tree, speakers, size) end
    tree:add(console.fields.software, tvb(0, #tag), true)
    local kind, words = addRecordOrText(tvb(#tag):tvb(), tree, speakers, shorter[size] or size)
    return kind, words .. " (software)"
end

-- The speakers by source port and by destination port.
local fromPort = {[41301] = "heartbeat", [41237] = "heartbeat", [41302] = "reply",
                  [41303] = "link", [41304] = "link"}
local toPort = {[41301] = "heartbeat", [41237] = "heartbeat", [41302] = "command",
                [41303] = "consent", [2333] = "link", [4001] = "reply"}
local dataPort

-- Other ports were chosen by "Decode As", for another data server port.
local function speakersOf(from, to)
    local speakers = {fromPort[from]}
    speakers[#speakers + 1] = toPort[to]
    if from == dataPort or to == dataPort or not speakers[1] then
        speakers[#speakers + 1] = "answer"
        speakers[#speakers + 1] = "request"
    end
    return speakers
end

function quillon.dissector(tvb, pinfo, tree)
    if tvb:len() == 0 then return 0 end
    local branch, speakers = tree:add(quillon, tvb()), speakersOf(pinfo.src_port, pinfo.dst_port)
    local add = speakers[#speakers] == "request" and addRequest or addText
    local kind, words = add(tvb, branch, speakers)
    branch:add(console.fields.kind, tvb(), kind):set_generated()
    if tvb:len() < tvb:reported_len() then
        words = words .. " [cut short]"
        branch:add_proto_expert_info(console.notes.cut)
    end
    branch:append_text(", " .. words)
    pinfo.cols.protocol = "QUILLON"
    pinfo.cols.info = words
end

-- Registration

local udp = DissectorTable.get("udp.port")
local function setDataPort()
    local isOther = dataPort and not (fromPort[dataPort] or toPort[dataPort])
    if isOther then udp:remove(dataPort, quillon) end
    dataPort = math.min(quillon.prefs.port, 65535)
    udp:add(dataPort, quillon)
end
quillon.prefs.port = Pref.uint("Data server port", 80, "Where consoles send their records")
quillon.prefs_changed = setDataPort
setDataPort()
for _, ports in ipairs({fromPort, toPort}) do
    for port in pairs(ports) do udp:add(port, quillon) end
end

DissectorTable.get("wtap_encap"):add((wtap_encaps or wtap).USER0, hidchip)
