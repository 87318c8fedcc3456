-- The table Problem: what the scan could not read.

function adjust()
    setFieldTags("Path", {FTable = "PathName", FShow = "Path", label = "Path"})
end
