// What the tests of the census share: small censuses on disk, written from a plain model, and a host in Lua.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "ipe/engines/ipe_lua.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_literal.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"
#include "runtime/epa_lifecycle.h"
#include "runtime/epa_shutdown.h"
#include "runtime/xpk_threadstate.h"
#include "store/fields/smf_datetimefield.h"
#include "store/fields/smf_i32field.h"
#include "store/fields/smf_i64field.h"
#include "store/fields/smf_stringfield.h"
#include "store/smf_writer.h"

struct ModelFile {
    std::string name;
    int64_t size = 0, space = 0;
    SMF_DateTimeValue created{}, modified{}, accessed{};
    int32_t owner = 1;
};
struct ModelRight {
    int32_t entity = 1, rights = 7;
};
struct ModelPath {
    int32_t parent = 0;
    std::string name;
    std::vector<ModelFile> files{};
    std::vector<ModelRight> rights{};
    int32_t owner = 1, group = 2, mode = 0755;
};
struct ModelEntity {
    std::string name, type;
};
// Paths in depth-first order; number n stands at n - 1, and the first one is the root.
struct ModelCensus {
    std::vector<ModelPath> paths;
    std::vector<ModelEntity> entities{{"root", "user"}, {"staff", "group"}, {"anna", "user"}};
    std::string rightsTable = "PathDACL";  // empty for none

    std::string textOf(size_t number) const {
        std::string text = "/";
        for (size_t n = number; n > 1; n = static_cast<size_t>(paths[n - 1].parent))
            text = "/" + paths[n - 1].name + text;
        return text;
    }
    bool isBelow(size_t number, size_t ancestor) const {  // or is it itself
        while (number > ancestor) number = static_cast<size_t>(paths[number - 1].parent);
        return number == ancestor;
    }
    size_t endOfTree(size_t number) const {  // the last number in the tree
        size_t last = number;
        while (last < paths.size() && isBelow(last + 1, number)) ++last;
        return last;
    }
};

inline SMF_DateTimeValue momentOf(int year, int month, int day, int hour = 12, int minute = 0) {
    SMF_DateTimeValue value;
    value.date = {static_cast<int8_t>(day), static_cast<int8_t>(month), static_cast<int16_t>(year)};
    value.time = {static_cast<int8_t>(hour), static_cast<int8_t>(minute), 0, 0};
    return value;
}

// A seeded tree of `paths` directories, up to `deepest` levels, with `files` files on average in each.
inline ModelCensus randomCensus(unsigned seed, size_t paths, size_t files, size_t deepest = 12) {
    std::mt19937 random(seed);
    auto below = [&](size_t n) { return static_cast<size_t>(random() % (n ? n : 1)); };
    static const char* const extensions[] = {".txt", ".TXT", ".log", ".iso", ".jpeg", "", ".tar.gz"};
    ModelCensus census;
    std::vector<size_t> branch;  // numbers of the open branch
    for (size_t n = 1; n <= paths; ++n) {
        ModelPath path;
        if (n == 1) {
            path.name = "/";
        } else {
            while (branch.size() >= deepest || (branch.size() > 1 && below(3) == 0)) branch.pop_back();
            path.parent = static_cast<int32_t>(branch.back());
            path.name = (below(4) ? "dir" : "Ordner \xC3\xA4 ") + std::to_string(n);
        }
        branch.push_back(n);
        path.owner = 1 + 2 * static_cast<int32_t>(below(2));
        path.mode = below(2) ? 0755 : 0700;
        for (size_t i = below(2 * files + 1); i > 0; --i) {
            ModelFile file;
            file.name = "file" + std::to_string(below(1000)) + extensions[below(7)];
            file.size = static_cast<int64_t>(below(5) ? below(100000) : below(1u << 30));
            file.space = (file.size + 4095) / 4096 * 4096;
            auto moment = [&] {
                return momentOf(2000 + static_cast<int>(below(25)), 1 + static_cast<int>(below(12)),
                                1 + static_cast<int>(below(28)), static_cast<int>(below(24)),
                                static_cast<int>(below(60)));
            };
            file.created = moment(), file.modified = moment(), file.accessed = moment();
            file.owner = 1 + 2 * static_cast<int32_t>(below(2));
            path.files.push_back(file);
        }
        for (size_t i = below(3); i > 0; --i)
            path.rights.push_back({1 + static_cast<int32_t>(below(3)), static_cast<int32_t>(below(8))});
        census.paths.push_back(path);
    }
    return census;
}

// A table out of lists of values. A field is "TYPE NAME [FORMAT | TAGS]"; without, its format is S.
inline void addTable(SMF_Writer& writer, const std::string& name, const std::vector<std::string>& fields,
                     const IPE_Object& rows, int blockSize = 4096) {
    std::string list;
    for (const std::string& field : fields) {
        std::string type, label, tags = "S";
        std::istringstream(field) >> type >> label >> tags;
        if (tags.find(':') == std::string::npos) tags = "'Format': '" + tags + "'";
        list += "{'type': " + type + ", 'name': '" + label + "', 'tags': {" + tags + "}},";
    }
    SMF_WriterTable table(writer.fileName());
    table.createFromSchema(
        name, parse_literal("({'size': " + std::to_string(blockSize) + ", 'zero': 10}, [" + list + "])"),
        writer);
    for (const IPE_Object& row : rows.as<IPE_ListType>()->items()) table.append(row);
}

// The tables Path, File, Entity and the rights. `more` adds tables of its own at the end.
inline void writeCensus(const ModelCensus& census, const std::string& file,
                        const std::function<void(SMF_Writer&)>& more = {}) {
    SMF_Writer writer;
    writer.open(file);
    IPE_Object paths = IPE_NewList(), entities = IPE_NewList(), rights = IPE_NewList();
    auto add = [](const IPE_Object& list, std::initializer_list<IPE_Object> row) {
        list.as<IPE_ListType>()->append(IPE_ListOf(row));
    };
    for (const ModelPath& path : census.paths) {
        IPE_Object number = IPE_Int(paths.as<IPE_ListType>()->count() + 1);
        add(paths, {number, IPE_Int(path.parent), IPE_String(path.name), IPE_Int(path.owner),
                    IPE_Int(path.group), IPE_Int(path.mode)});
        for (const ModelRight& row : path.rights)
            add(rights, {number, IPE_Int(row.entity), IPE_Int(row.rights)});
    }
    for (const ModelEntity& entity : census.entities)
        add(entities, {IPE_Int(entities.as<IPE_ListType>()->count() + 1), IPE_String(entity.name),
                       IPE_String(entity.type)});
    addTable(writer, "Path", {"3 Number", "3 Parent M", "0 Name D", "3 Owner D", "3 Group D", "3 Mode D"},
             paths, 16384);
    {
        SMF_WriterTable table(
            file);  // by its fields, since not every moment of the model can be read as a text
        SMF_I32 path, owner;
        SMF_String name;
        SMF_I64 size, space;
        SMF_DateTime created, modified, accessed;
        path.connect(table, "PathNumber", "S"), name.connect(table, "Name", "D");
        size.connect(table, "Size", "D"), space.connect(table, "Space", "D");
        created.connect(table, "Created", "D"), modified.connect(table, "Modified", "D");
        accessed.connect(table, "Accessed", "D"), owner.connect(table, "Owner", "D");
        table.create("File", writer, 16384, 10);
        for (size_t i = 0; i < census.paths.size(); ++i)
            for (const ModelFile& row : census.paths[i].files) {
                path.set(static_cast<int32_t>(i + 1)), name.set(row.name), size.set(row.size);
                space.set(row.space), created.set(row.created), modified.set(row.modified);
                accessed.set(row.accessed), owner.set(row.owner);
                table.commit();
            }
    }
    addTable(writer, "Entity", {"3 Number", "0 Name", "0 Type D"}, entities, 16384);
    if (!census.rightsTable.empty())
        addTable(writer, census.rightsTable, {"3 Path", "3 Entity D", "3 Rights D"}, rights, 16384);
    if (more) more(writer);
    writer.close();
}

// A folder that goes when it does.
struct CensusFolder {
    CensusFolder() {
        folder = std::filesystem::temp_directory_path() / "census-XXXXXX";
        if (!mkdtemp(folder.data())) throw std::runtime_error("no folder " + folder);
    }
    explicit CensusFolder(const ModelCensus& census) : CensusFolder() { writeCensus(census, file()); }
    ~CensusFolder() { std::filesystem::remove_all(folder); }
    std::string file(const char* name = "census.smf") const { return folder + "/" + name; }
    std::string folder;
};

// A host whose `api_call(name, argument, ...)` answers ResolveTableScript from `schemas` (by table name; a
// chunk that does nothing for others), ResolveIncludeScript from `includes`, ListMyColumns with the visible
// columns of `columns` or, for other tables, an error if the schema sets none. `more` is Lua source that may
// define api.NAME = function(...) for further calls.
inline IPE_Object makeHost(const std::map<std::string, std::string>& schemas = {},
                           const std::map<std::string, std::string>& includes = {},
                           const std::map<std::string, std::string>& columns = {},
                           const std::string& more = {}) {
    IPE_Object host = IPE_NewLua();
    auto tableOf = [](const std::map<std::string, std::string>& entries) {
        IPE_Object table = IPE_NewDict();
        for (const auto& [key, value] : entries) table.as<IPE_DictType>()->setText(key, IPE_String(value));
        return table;
    };
    IPE_Lua& lua = *IPE_LuaOf(host);
    lua.setGlobal("schemas", tableOf(schemas));
    lua.setGlobal("includes", tableOf(includes));
    lua.setGlobal("visible", tableOf(columns));  // names joined by ','
    lua.compile(R"(
        api = {}
        function api.ResolveTableScript(name)
            return schemas[string.match(name, "([^/]+)$")] or ""
        end
        function api.ResolveIncludeScript(name) return includes[name] or error("no script " .. name) end
        function api.ListMyColumns(kind, name)
            local list = {}
            for column in string.gmatch(visible[name] or "", "[^,]+") do list[#list + 1] = column end
            return list
        end
        function api.GetImageEntitySchema() return {} end
        function api.GetImageEntity(entity, options) return entity end
        function api_call(name, ...) return api[name](...) end
    )");
    if (!more.empty()) lua.compile(more);
    return host;
}

// `more` are further entries as a literal.
inline IPE_Object censusOptions(const std::string& file, const std::string& more = {}) {
    return parse_literal("{'fsi': '" + file + "', " + more + "}");
}

// "YYYY-MM-DD HH:MM:SS".
inline std::string momentText(const SMF_DateTimeValue& value) {
    char text[32];
    snprintf(text, sizeof text, "%04i-%02i-%02i %02i:%02i:%02i", value.date.year, value.date.month,
             value.date.day, value.time.hour, value.time.minute, value.time.second);
    return text;
}

// The exception of an action, "none" without one.
inline std::string faultOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const XPK_Exception& e) {
        return e.type() + ": " + e.message();
    }
    return "none";
}

// What an action ends with when the server stops after so many milliseconds.
inline std::string faultOfStopped(int milliseconds, const std::function<void()>& action) {
    std::thread stop([milliseconds] {
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
        epa_detail::running = false;
    });
    std::string fault = faultOf(action);
    stop.join();
    epa_detail::running = true;
    return fault;
}

// Cases that call reports: components publish those when they start. The time zone is UTC.
class ReportCases : public ::testing::Test {
  public:
    static void SetUpTestSuite() {
        setenv("TZ", "UTC", 1);
        tzset();
        XPK_ThreadScope primary{true};
        EPA_LifeCycle::control(true);
    }
    static void TearDownTestSuite() {
        XPK_ThreadScope primary{true};
        EPA_LifeCycle::shutdown();
    }
};
