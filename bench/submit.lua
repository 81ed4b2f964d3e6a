-- For wrk: posts jobs, each with a name of its own. Its argument is the number of the first
-- thread, so that two runs against one service use other names.
local threads = 0

function setup(thread)
    thread:set("id", threads)
    threads = threads + 1
end

function init(args)
    id = id + tonumber(args[1] or 0)
    number = 0
end

function request()
    number = number + 1
    local body = string.format('{"commands":["true"],"uid":"%d %d"}', id, number)
    return wrk.format("POST", "/job", nil, body)
end
