// A census for the tests of queries: fields of every kind that stands for something else, and scripts that
// queries call.
#pragma once

#include "census/fsi_recordfilter.h"
#include "census_support.h"

// Paths and files of a seed; owners 0 to 3, and a table of each foreign kind.
struct FilterCensus {
    explicit FilterCensus(unsigned seed, size_t paths = 40, size_t files = 6) {
        model = randomCensus(seed, paths, files);
        model.paths[4].files.resize(1);
        int32_t owner = 0;
        for (ModelPath& path : model.paths)
            for (ModelFile& file : path.files) file.owner = owner++ % 4;
        writeCensus(model, folder.file(), [this](SMF_Writer& writer) { addTables(writer); });
    }

    static std::string labelOf(size_t number) { return "label" + std::to_string(number % 5); }
    // Property "color" of the owners 1 and 3; number 2 has none of that name.
    static std::string colorOf(int32_t owner) { return owner == 1 ? "red" : owner == 3 ? "blue" : ""; }

    void addTables(SMF_Writer& writer) {
        IPE_Object rows = IPE_NewList();
        for (size_t i = 1; i <= model.paths.size(); ++i)
            rows.as<IPE_ListType>()->append(
                IPE_ListOf({IPE_Int(int64_t(i)), IPE_String(labelOf(i)), IPE_Int(int64_t(i) * 1024)}));
        for (const char* name : {"FileSI", "Label"})
            addTable(writer, name, {"3 Number", "0 Label D", "4 Weight D"}, rows);
        addTable(
            writer, "Property", {"3 Number", "3 Kind D", "3 Place D", "0 Name D", "0 Value D"},
            parse_literal("[[1, 0, 7, 'color', 'red'], [2, 0, 7, 'size', 'big'], [3, 0, 7, 'size', 'small'], "
                          "[3, 0, 7, 'color', 'blue'], [3, 0, 7, 'color', 'never']]"));
    }

    // `more` are include scripts by name.
    IPE_Object host(const std::map<std::string, std::string>& more = {}) const {
        std::map<std::string, std::string> includes = scripts();
        includes.insert(more.begin(), more.end());
        return makeHost({{"File", R"(
                function adjust()
                    addFieldShadow("Path", "PathNumber", {FTable = "PathName", FShow = "Path"})
                    addFieldShadow("UNC", "PathNumber", {FTable = "PathName", FShow = "UNC"})
                    addFieldShadow("OwnerName", "Owner", {FTable = "Entity", FMode = "1:1", FShow = "Name"})
                    addFieldShadow("Small", "PathNumber", {FTable = "FileSI", FMode = "1:1", FShow = "Label"})
                    addFieldShadow("Label", "PathNumber", {FTable = "Label", FMode = "1:1", FShow = "Label"})
                    addFieldShadow("Weight", "Owner", {FTable = "Label", FMode = "1:1", FShow = "Weight"})
                    addFieldShadow("Far", "Size", {FTable = "Label", FMode = "1:1", FShow = "Label"})
                    addFieldShadow("Color", "Owner", {FTable = "Property", FMode = "UDP", FShow = "color"})
                    addFieldShadow("Bytes", "Size", {FMode = "Compare"})
                    addFieldShadow("OwnerId", "Owner", {FMode = "Compare"})
                    addFieldShadow("Loop", "Owner", {FTable = "File", FMode = "1:1", FShow = "Loop"})
                    addFieldShadow("Plain", "Owner", {FTable = "Entity", FShow = "Name"})
                    addFieldShadow("Odd", "Owner", {FTable = "PathLevel", FShow = "LastModified"})
                    addFieldShadow("Lost", "Owner", {FTable = "Nowhere", FMode = "1:1", FShow = "Name"})
                    for _, name in ipairs{"PathFiles", "Size", "Space", "Files", "Depth", "TreeSize", "TreeSpace",
                                          "TreeFiles"} do
                        addFieldShadow("Folder" .. name, "PathNumber", {FTable = "PathLevel", FShow = name})
                    end
                end)"}},
                        includes, {{"File", "Name,Size,Path"}}, R"(
                function api.GetImageEntitySchema() return {{name = "Name"}} end
                function api.names(...) return {...} end
                function api.nothing() end)");
    }

    static std::map<std::string, std::string> scripts() {
        return {{"bigger", R"(
                function before(low, path) limit, wanted = low, path; return {"Size", "Path", "OwnerName"} end
                function during(size, path, owner)
                    return size >= limit and (wanted == nil or path == wanted) and owner ~= "anna"
                end)"},
                {"skip", R"(
                function before(...)
                    names = {}
                    for _, name in ipairs{...} do names[name] = true end
                    return {"Path"}
                end
                function during(path) return not names[path], names[path] end)"},
                {"nobefore", "function during() return true end"},
                {"noduring", "function before() return {} end"},
                {"nolist", "function before() return 7 end function during() end"},
                {"nofield", "function before() return {'Nothing'} end function during() end"},
                {"toomany", R"(
                function before() local t = {} for i = 1, 300 do t[i] = "Size" end return t end
                function during() end)"},
                {"fails", "function before() return {} end function during() error('no more') end"},

                {"nothing", "function before() end function during(...) return select('#', ...) end"},
                {"silent", "function before() return {'Size'} end function during() end"},
                {"broken", "function before( return"}};
    }

    CensusFolder folder;
    ModelCensus model;
};
