-- The table Problem: what the scan could not read.

function adjust()
    addFieldShadow("Folder", "Path", {FTable = "PathName", FShow = "Path", label = "Path"})
end
