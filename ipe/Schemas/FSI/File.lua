-- The table File: everything that is not a directory, a row for each name.
--
-- A schema runs before the table is connected; `adjust` runs once the stored fields are there. The names that a
-- user sees and asks for in queries are made here.

function adjust()
    -- The folder's full path, out of the paths index. A query can test it (Path = '/mail/') or ask for a column of
    -- the folder (Path.Levels > 3).
    addFieldShadow("Path", "PathNumber", {FTable = "PathName", FShow = "Path", label = "Path"})

    -- Owners and groups are numbers of entities; queries test their names (Owner = '^root$').
    if hasField("Owner") then
        setFieldTags("Owner", {FTable = "Entity", FMode = "1:1", FShow = "Name", label = "Owner"})
        addFieldShadow("OwnerName", "Owner", {FTable = "Entity", FMode = "1:1", FShow = "FullName", label = "Full name"})
    end
    if hasField("Group") then
        setFieldTags("Group", {FTable = "Entity", FMode = "1:1", FShow = "Name", label = "Group"})
    end

    -- Figures of the folder, out of the file index (FolderSize >= 1GB).
    addFieldShadow("FolderSize", "PathNumber", {FTable = "PathLevel", FShow = "Size", label = "Size of the folder"})
    addFieldShadow("FolderFiles", "PathNumber", {FTable = "PathLevel", FShow = "Files", label = "Files in the folder"})
    addFieldShadow("Depth", "PathNumber", {FTable = "PathLevel", FShow = "Depth", label = "Depth"})

    setFieldStyle("Size", "bytes")
    setFieldStyle("Space", "bytes")
end
