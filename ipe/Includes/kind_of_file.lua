-- A transform for the groupings: what kind of content an extension stands for.

local kinds = {
    ["documents"] = "pdf doc docx odt rtf txt md tex html htm xml json csv man",
    ["pictures"] = "png jpg jpeg gif svg svgz bmp tif tiff webp ico xpm",
    ["sound and video"] = "mp3 ogg oga wav flac mp4 mkv webm avi mov",
    ["archives"] = "gz xz bz2 zip tar tgz zst 7z deb rpm jar whl",
    ["programs"] = "so exe dll o a ko bin class pyc",
    ["sources"] = "c h cc cpp hpp hh py pl pm rb js ts go rs java sh lua s cmake in el vim",
    ["data"] = "db sqlite dat mo po ttf otf woff woff2 pak smf",
}
local kind_of = {}
for kind, extensions in pairs(kinds) do
    for extension in string.gmatch(extensions, "%S+") do kind_of[extension] = kind end
end

function before(options)
    return {regex = "\\.([A-Za-z0-9_]+)(?:\\.[0-9]+)*$", regex_dvalue = "", columns = {}}
end

function during(values)
    return kind_of[string.lower(values[1])] or "other"
end
