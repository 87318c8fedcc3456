-- The table PathDACL: who may do what with a folder, an entry a row.

function adjust()
    setFieldTags("Entity", {FTable = "Entity", FMode = "1:1", FShow = "Name", label = "Who"})
    -- The number is shown, and can be tested, as the folder's full path.
    setFieldTags("Path", {FTable = "PathName", FShow = "Path", label = "Path"})
end
