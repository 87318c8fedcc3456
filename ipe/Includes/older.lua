-- A test for queries: exec older("Modified", 365) takes rows whose date lies more than so many days back.
-- `before` gets the arguments and names the columns that `during` wants.

local limit

function before(column, days)
    limit = os.date("%Y-%m-%d %H:%M:%S", os.time() - days * 86400)
    return {column}
end

function during(moment)
    return moment < limit
end
