-- A test for queries on folders: exec leave_out("/proc/", "/sys/") drops these folders with all below them. The second
-- result of `during` asks the walk to go on behind the tree.

local names = {}

function before(...)
    for _, name in ipairs({...}) do names[name] = true end
    return {"Path"}
end

function during(path)
    if names[path] then return false, true end
    return true, false
end
