-- For wrk: posts jobs, each with a name of its own; counts the answers that are no acceptance.
local threads = 0

function setup(thread)
    thread:set("id", threads)
    threads = threads + 1
end

function init(args)
    number = 0
end

function request()
    number = number + 1
    local body = string.format('{"commands":["true"],"uid":"%d %d"}', id, number)
    return wrk.format("POST", "/job", nil, body)
end
