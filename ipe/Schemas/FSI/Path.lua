-- The table Path. With the helper indexes it is the paths index: Number, Owner, Group, Mode, Levels, Length and the
-- full text, Path; without, the stored table.

function adjust()
    setFieldTags("Owner", {FTable = "Entity", FMode = "1:1", FShow = "Name", label = "Owner"})
    setFieldTags("Group", {FTable = "Entity", FMode = "1:1", FShow = "Name", label = "Group"})

    -- Figures out of the file index: of the folder itself and of all below it.
    local figures = {
        {"Size", "Size"}, {"Space", "Space"}, {"Files", "Files"},
        {"TreeSize", "TreeSize"}, {"TreeSpace", "TreeSpace"}, {"TreeFiles", "TreeFiles"},
        {"LastCreated", "LastCreated"}, {"LastModified", "LastModified"}, {"LastAccessed", "LastAccessed"},
    }
    for _, figure in ipairs(figures) do
        addFieldShadow(figure[1], "Number", {FTable = "PathLevel", FShow = figure[2]})
    end
end
