-- A table without stored rows: one row that tells which census this is and under which options it is read. Virtual
-- tables are made like this one.

function vtable()
    addFieldDefault("File", "String", "")
    addFieldDefault("Masked", "I32", 0)
    addFieldDefault("Levels", "Tree", nil)
end

function vtable_record()
    fieldSetIPE(0, options.fsi)
    fieldSetIPE(1, toboolean(options.hide_paths) and 1 or 0)
end
