// The indexes' contents, against a plain recount of the census's model.
#include "index_census.h"

#include <random>

#include "census/fsi_readertable.h"
#include "ipe/values/ipe_expansion.h"

namespace {

IPE_Object optionsOf(const CensusFolder& folder, const std::string& more = {}) {
    return censusOptions(folder.file(), more);
}

std::string storedText(SMF_ReaderTable& table, const char* field, int64_t row) {
    SMF_FieldHandle handle;
    handle.connect(table, field);
    table.seek(row);
    return IPE_Object_Text(handle.asObject());
}

}  // namespace

TEST(FileIndex, EqualsARecount) {
    for (unsigned seed = 1; seed <= 6; ++seed) {
        ModelCensus census = randomCensus(seed, seed == 1 ? 1 : 40 * seed, seed, 2 + 3 * seed);
        census.rightsTable = seed % 3 == 0 ? "" : seed % 3 == 1 ? "PathDACL" : "Rights";
        // Moments out of range and on days that do not exist count as the store counts them.
        for (ModelPath& path : census.paths)
            for (size_t i = 0; i < path.files.size(); i += 3)
                path.files[i].created = momentOf(i % 2 ? 2040 : 1960 + static_cast<int>(seed) * 10, 2, 31);
        CensusFolder folder(census);
        for (bool digests : {false, true}) {
            FSI_Reader reader(optionsOf(folder, digests ? "'calc_digests': 1" : ""), {});
            FSI_PathLevelHelper index(reader);
            index.open({});
            EXPECT_EQ(index.hasDigests(), digests);
            EXPECT_EQ(index.rightsTable(), census.rightsTable);
            expectIndex(index, census);
            SMF_ReaderTable jump;
            jump.connect(index.store(), "-PathJump");
            EXPECT_EQ(jump.rows(), static_cast<int64_t>(census.paths.size()));
        }
        EXPECT_EQ(filesWith(folder, ":~FS").size(), 2u);
    }
}

TEST(FileIndex, FiltersCountTheirFilesAlone) {
    ModelCensus census = randomCensus(11, 80, 5);
    CensusFolder folder(census);
    FSI_Reader reader(optionsOf(folder, "'calc_digests': 1"), makeHost());
    auto isLarge = [](const ModelFile& file) { return file.size >= 50000; };
    FSI_PathLevelHelper all(reader), large(reader), again(reader);
    all.open({});
    large.open("Size >= 50000");
    expectIndex(large, census, isLarge);
    expectIndex(all, census);
    EXPECT_TRUE(large.hasFilter());
    again.open("Size >= 50000");
    EXPECT_FALSE(again.wasBuilt());

    // A filter that depends on more than the census is counted anew each time, and tells so.
    IPE_Object options = IPE_NewDict(), keywords = IPE_NewDict();
    for (int i = 0; i < 2; ++i) {
        again.open("Modified < now", options, keywords);
        EXPECT_TRUE(again.wasBuilt());
    }
    EXPECT_EQ(IPE_Dict_GetInt64(keywords, "_not_cacheable", 0), 1);
    // Ages count from the epoch, so each epoch has its index.
    for (const char* epoch : {"2010-01-01", "2020-01-01", "2010-01-01"}) {
        IPE_Dict_Set(options, "epoch", IPE_String(epoch));
        again.open("Modified within 3650 days", options, keywords);
        int64_t from = IPE_TimeOf(IPE_String(epoch)) - 3650 * int64_t{86400};
        expectIndex(again, census, [&](const ModelFile& file) {
            return SMF_TimeOfDateTime(file.modified.date, file.modified.time) >= from;
        });
    }
    EXPECT_EQ(filesWith(folder, "~D1~F").size() / 2, 4u);
    // A text that does not compile leaves nothing behind.
    EXPECT_NE(faultOf([&] { again.open("Size >"); }), "none");
    EXPECT_FALSE(again.isOpen());
}

TEST(FileIndex, EqualTreesHaveEqualHashes) {
    ModelFile a{"a", 1}, b{"b", 2};
    ModelCensus census;
    census.paths = {{0, "/"},           {1, "one", {a, b}}, {2, "x"},
                    {1, "two", {b, a}}, {4, "x"},           {1, "three", {b, a, a}}};
    CensusFolder folder(census);
    FSI_Reader reader(optionsOf(folder, "'calc_digests': 1"), {});
    FSI_PathLevelHelper& index = reader.pathLevelHelper();
    auto hash = [&](const char* path) { return index.locateText(path, true) ? index.treeHash() : ""; };
    EXPECT_EQ(hash("/one"), hash("/two"));
    EXPECT_NE(hash("/one"), hash("/three"));
    EXPECT_EQ(hash("/one/x"), "afd80709");  // of nothing
}

TEST(FileIndex, TextsAndNumbersAreLocated) {
    ModelCensus census;
    census.paths = {{0, "top"},          {1, "Srv"},        {2, "README"}, {2, "Readme"},
                    {2, "\xC3\x84rger"}, {2, "b\xFFl\xC3"}, {1, "base"}};
    CensusFolder folder(census);
    FSI_Reader reader(optionsOf(folder), {});
    FSI_PathLevelHelper& index = reader.pathLevelHelper();
    auto number = [&](std::string_view text) { return index.locateText(text, false) ? index.number() : 0; };
    for (const char* root : {"", "/", "\\", "//"}) EXPECT_EQ(number(root), 1);
    EXPECT_EQ(number("/srv/readme"), 3);
    EXPECT_EQ(number("Srv//README/"), 3);
    EXPECT_EQ(number("/SRV/Readme"), 4);
    EXPECT_EQ(number("/srv/\xC3\xA4RGER"), 5);
    EXPECT_EQ(number("/srv/b\xFFl\xC3"), 6);
    EXPECT_EQ(index.pathText(), "/Srv/b\xFFl\xC3/");
    EXPECT_EQ(number("/srv/B\xFFL\xC3"), 6);
    EXPECT_EQ(number("/srv/none"), 0);
    EXPECT_EQ(number("/srv/readme/deeper"), 0);
    EXPECT_FALSE(index.isLocated());
    for (int f = 0; f < FSI_FigureCount; ++f) EXPECT_EQ(index.figure(static_cast<FSI_Figure>(f)), 0);
    EXPECT_EQ(index.pathText() + std::string(index.name()), "");
    EXPECT_EQ(faultOf([&] { index.children(); }), "DevelopmentException: Unable to locate the path index");
    EXPECT_EQ(faultOf([&] { index.locateText("/srv/None", true); }),
              "PathNotFoundException: The path (/srv/None) does not exist");
    EXPECT_EQ(faultOf([&] { index.locateText("\\srv", false); }),
              "DevelopmentError: Path \\srv passed to locate()");

    auto located = [&](const IPE_Object& value) { return index.locate(value) ? index.number() : 0; };
    auto pair = [](int64_t a, int64_t b) { return IPE_TupleOf({IPE_Int(a), IPE_Int(b)}); };
    EXPECT_EQ(located(IPE_Int(5)), 5);
    EXPECT_EQ(located(IPE_String("/base")), 7);
    EXPECT_EQ(located(pair(1, 2)), 7);
    EXPECT_EQ(located(pair(0, 1)), 1);
    EXPECT_EQ(located(pair(0, 4)), 4);  // a path number
    for (const IPE_Object& none : {IPE_Int(0), IPE_Int(8), IPE_Int(-1), IPE_Int(INT64_MAX), pair(1, 3),
                                   pair(1, 0), pair(3, 1), pair(512, 1), pair(-1, 1), pair(INT64_MAX, 1)}) {
        EXPECT_EQ(located(none), 0);
        EXPECT_EQ(faultOf([&] { index.locate(none, true); }).substr(0, 21), "PathNotFoundException");
    }
    EXPECT_EQ(faultOf([&] { index.locate(IPE_None()); }).substr(0, 9), "TypeError");
    EXPECT_EQ(faultOf([&] { index.locate(IPE_TupleOf({IPE_Int(1)})); }).substr(0, 9), "TypeError");
}

// What a scan left out may come from the schema, and moments may be other than DateTime.
TEST(FileIndex, ColumnsOfTheSchema) {
    CensusFolder folder;
    SMF_Writer writer;
    writer.open(folder.file());
    addTable(writer, "Path", {"3 Number", "3 Parent", "0 Name"}, parse_literal("[[1, 0, '']]"));
    addTable(writer, "File", {"3 PathNumber", "4 Bytes", "4 Created"},
             parse_literal("[[1, 10, 999], [1, 20, 998], [1, 30, 997]]"));
    writer.close();
    const char* schema = R"(
        function adjust()
            addFieldShadow('Size', 'Bytes')
            addFieldDefault('Space', 'I64', 0)
            for _, moment in ipairs{'Modified', 'Accessed'} do addFieldDefault(moment, 'DateTime', 0) end
        end)";
    for (const char* filter : {"", "Size > 10"}) {
        FSI_Reader reader(optionsOf(folder), makeHost({{"File", schema}}));
        FSI_PathLevelHelper index(reader);
        index.open(filter);
        ASSERT_TRUE(index.locateNumber(1));
        EXPECT_EQ(index.figure(FSI_TreeFiles), 3);
        EXPECT_EQ(index.figure(FSI_TreeSize), *filter ? 50 : 60);
        EXPECT_EQ(index.figure(FSI_TreeMaxCreated), *filter ? 998 : 999);
        EXPECT_EQ(index.figure(FSI_TreeMaxModified), 0);
    }
    FSI_Reader broken(optionsOf(folder), makeHost({{"File", "error('broken')"}}));
    FSI_PathLevelHelper index(broken);
    EXPECT_EQ(faultOf([&] { index.open("Size > 20"); }).substr(0, 24), "LuaInterpreterException:");
}

// A directory with more children than lists are kept of is searched, one with fewer listed; both find the
// same.
TEST(FileIndex, DirectoriesOfAnySize) {
    for (int32_t count : {66000, 40000}) {
        ModelCensus census;
        census.paths.assign(1, {0, "/"});
        for (int32_t n = 0; n < count; ++n) census.paths.push_back({1, n % 2 ? "d" : "D"});
        for (int32_t n = 0; n < count; ++n)
            census.paths[static_cast<size_t>(n) + 1].name += std::to_string(n / 2);
        census.paths.push_back({count + 1, "below"});
        CensusFolder folder(census);
        FSI_Reader reader(optionsOf(folder), {});
        FSI_PathLevelHelper& index = reader.pathLevelHelper();
        for (int32_t n : {0, 1, 2, count - 2, count - 1}) {
            std::string own = std::to_string(n / 2);
            ASSERT_TRUE(index.locateText("/D" + own, false));
            EXPECT_EQ(index.number(), n / 2 * 2 + 2);
            ASSERT_TRUE(index.locateText("/d" + own, false));
            EXPECT_EQ(index.number(), n / 2 * 2 + 3);
        }
        EXPECT_TRUE(index.locateText("/d" + std::to_string((count - 1) / 2) + "/BELOW/", false));
        EXPECT_FALSE(index.locateText("/d" + std::to_string(count), false));
        ASSERT_TRUE(index.locateText("/", false));
        EXPECT_EQ(index.children().size(), static_cast<size_t>(count));
    }
}

TEST(PathIndexes, BaseAndMasks) {
    ModelCensus census = randomCensus(5, 120, 1, 8);
    CensusFolder folder(census);
    const std::pair<const char*, std::vector<std::string>> bases[] = {
        {"", {}},
        {"'base': ['srv', 'a/b%'],", {"srv", "a/b%"}},
        {"'base': [1, 2, 3, 4, 5],", {"1", "2", "3", "4", "5"}}};
    for (const char* hidden : {"", "'hide_paths': 1,"})
        for (const auto& [option, base] : bases) {
            FSI_Reader reader(optionsOf(folder, std::string(option) + hidden), {});
            FSI_PathNameHelper& texts = reader.pathNameHelper();
            FSI_PathLevelHelper& levels = reader.pathLevelHelper();
            EXPECT_EQ(texts.rows(), static_cast<int64_t>(census.paths.size()));
            SMF_ReaderTable table;
            table.connect(texts.store(), "PathName");
            SMF_I32 level, length, owner, number, mode, group;
            level.connect(table, "Levels"), length.connect(table, "Length"), owner.connect(table, "Owner");
            number.connect(table, "Number"), mode.connect(table, "Mode"), group.connect(table, "Group");
            std::vector<std::string> plain{"", "/"};  // without the base
            for (size_t n = 1; n <= census.paths.size(); ++n) {
                const ModelPath& path = census.paths[n - 1];
                const std::string stored = census.textOf(n);
                const auto depth = static_cast<size_t>(std::count(stored.begin(), stored.end(), '/')) - 1;
                if (n > 1)
                    plain.push_back(
                        plain[static_cast<size_t>(path.parent)] +
                        (*hidden && base.size() + depth > 4 ? SMF_PathMask(path.name) : path.name) + "/");
                std::string text = "/";
                for (const std::string& item : base) text += item + "/";
                const std::string prefix = text;
                text += plain[n].substr(1);
                EXPECT_EQ(texts.path(static_cast<int64_t>(n)), text);
                ASSERT_TRUE(levels.locateNumber(static_cast<int64_t>(n)));
                EXPECT_EQ(levels.pathText(), text);
                std::string bare;
                levels.pathText(bare, false);
                EXPECT_EQ(bare, plain[n]);
                table.seek(static_cast<int64_t>(n));
                EXPECT_EQ(
                    std::tuple(level.get(), length.get(), number.get(), owner.get(), group.get(), mode.get()),
                    std::tuple(static_cast<int32_t>(base.size() + depth), static_cast<int32_t>(text.size()),
                               static_cast<int32_t>(n), path.owner, path.group, path.mode));
                // What is looked up is the stored name, with `base` or without.
                for (const std::string& form : {stored, prefix + stored.substr(1)}) {
                    ASSERT_TRUE(levels.locateText(form, false)) << form;
                    EXPECT_EQ(levels.number(), static_cast<int64_t>(n));
                }
            }
            EXPECT_EQ(texts.path(0), "");
            EXPECT_EQ(texts.path(texts.rows() + 1), "");
            EXPECT_EQ(levels.locateText("/", false), true);
            if (base.empty()) continue;
            EXPECT_FALSE(levels.locateText("/" + base[0] + "/", false));
        }
    // One file index serves all of them; the paths indexes differ.
    EXPECT_EQ(filesWith(folder, ":~FD").size(), 1u);
    EXPECT_EQ(filesWith(folder, ":~PD").size(), 6u);
    EXPECT_EQ(filesWith(folder, ":~PS~V~H1~SRV~A%2FB%25.TXT").size(), 1u);
}

TEST(PathIndexes, TablesAreFormedAsTheyShould) {
    ModelCensus census = randomCensus(3, 60, 2);
    CensusFolder folder(census);
    FSI_Reader reader(optionsOf(folder, "'hide_paths': 1, 'calc_digests': 1"), makeHost());
    FSI_PathLevelHelper levels(reader);
    levels.open("Size >= 1");
    auto describe = [](SMF_Reader& store, const char* name) {
        SMF_ReaderTable table;
        table.connect(store, name);
        std::string out = std::to_string(table.meta().blockSize) + " " + std::to_string(table.meta().zero);
        for (const auto& field : table.meta().fields) out += " " + field->name + ":" + field->decoder->key();
        return out;
    };
    EXPECT_EQ(
        describe(levels.store(), "_PI000"),
        "16384 10 Name:ADBD PathIndex:DMAD PathParent:DMAD PathFiles:ESAD PathMatches:ESAD PathDACLs:ESAD "
        "PathSize:ESAD PathSpace:ESAD PathHash:ASBD ChildIndex:DMAD ChildCount:DMAD TreePaths:DMAD "
        "TreeFiles:ESAD TreeMatches:ESAD TreeDACLs:ESAD TreeSize:ESAD TreeSpace:ESAD TreeHash:ASBD "
        "TreeMaxCreated:DDAD TreeMaxModified:DDAD TreeMaxAccessed:DDAD FileIndex:ESAD DACLIndex:ESAD");
    EXPECT_EQ(describe(levels.store(), "-PathJump"), "8192 25 Depth:DDAD Index:DMAD");
    EXPECT_EQ(describe(reader.pathNameHelper().store(), "PathName"),
              "32768 8 Number:DSAD Owner:DMAD Group:DMAD Mode:DMAD Levels:DMAD Length:DMAD Path:ASBD");
    SMF_ReaderTable table;
    table.connect(levels.store(), "_PI001");
    EXPECT_EQ(table.meta().fields[0]->tagText("Transform"), "PathName");
    EXPECT_EQ(storedText(table, "Name", 1), SMF_PathMask(census.paths[1].name));
    table.connect(reader.pathNameHelper().store(), "PathName");
    EXPECT_EQ(table.meta().fields[6]->tagText("style"), "pathname");
}

TEST(UsersIndex, HoldsWhatTheApplicationTells) {
    ModelCensus census = randomCensus(2, 5, 1);
    CensusFolder folder(census);
    IPE_Object host = makeHost({}, {}, {}, R"(
        function api.GetImageEntitySchema()
            return {{name = "Shown", format = "D", style = "user"}, {name = "Kind"}}
        end
        function api.GetImageEntity(entity, options)
            calls = (calls or 0) + 1
            if entity.Name == "staff" then return {Shown = entity.Number .. " " .. entity.Name} end
            return {Shown = entity.Number .. " " .. entity.Name, Kind = entity.Type, Other = 1}
        end)");
    for (int hidden : {0, 1}) {
        FSI_Reader reader(optionsOf(folder, "'hide_users': " + std::to_string(hidden)), host);
        SMF_ReaderTable table;
        table.connect(reader.entityHelper().store(), "Entity");
        ASSERT_EQ(table.rows(), 3);
        for (int64_t n = 1; n <= 3; ++n) {
            const ModelEntity& entity = census.entities[static_cast<size_t>(n - 1)];
            EXPECT_EQ(storedText(table, "Number", n), std::to_string(n));
            EXPECT_EQ(storedText(table, "Shown", n), std::to_string(hidden ? 1 : n) + " " + entity.name);
            EXPECT_EQ(storedText(table, "Kind", n), n == 2 ? "" : entity.type);
            EXPECT_EQ(storedText(table, "Security", n), "");
        }
        EXPECT_EQ(table.meta().fields[1]->tagText("style"), "user");
        EXPECT_EQ(table.meta().fields[1]->tagText("Format"), "D");
    }
    {
        FSI_Reader reader(optionsOf(folder), host);
        EXPECT_FALSE(reader.entityHelper().wasBuilt());
    }
    EXPECT_EQ(IPE_LuaOf(host)->getGlobal("calls")->__int__(), 6);
    FSI_Reader alone(optionsOf(folder), {});
    EXPECT_EQ(faultOf([&] { alone.entityHelper(); }).substr(0, 14), "AssertionError");
}

TEST(PathIndexes, BadCensusesEndInNamedErrors) {
    auto faults = [](const std::function<void(ModelCensus&)>& spoil) {
        ModelCensus census = randomCensus(7, 30, 2);
        spoil(census);
        CensusFolder folder(census);
        FSI_Reader reader(optionsOf(folder), {});
        std::string out = faultOf([&] { reader.pathLevelHelper(); }).substr(0, 14) + " " +
                          faultOf([&] { reader.pathNameHelper(); }).substr(0, 14);
        for (const std::string& note : filesWith(folder, "S~V.TXT"))
            EXPECT_EQ(std::filesystem::file_size(note) == 0,
                      out[0] != 'n' || note.find("~PS") != std::string::npos);
        EXPECT_EQ(filesWith(folder, ".NEW").size(), 0u);
        return out;
    };
    const std::string both = "AssertionError AssertionError";
    EXPECT_EQ(faults([](ModelCensus& c) { c.paths[20].parent = 29; }), both);
    EXPECT_EQ(faults([](ModelCensus& c) { c.paths[20].parent = 21; }), both);
    EXPECT_EQ(faults([](ModelCensus& c) { c.paths[1].parent = -1; }), both);
    auto chain = [](ModelCensus& census, int32_t deepest) {
        census.paths.assign(1, {0, "/"});
        for (int32_t n = 1; n <= deepest; ++n) census.paths.push_back({n, "d", {{"f", 1}}});
    };
    EXPECT_EQ(faults([&](ModelCensus& c) { chain(c, 512); }), both);
    ModelCensus census;
    chain(census, 511);
    CensusFolder folder(census);
    FSI_Reader reader(optionsOf(folder), {});
    expectIndex(reader.pathLevelHelper(), census);
}

TEST(PathIndexes, StrayFiles) {
    // A row of File that no path has ends the count there.
    CensusFolder folder;
    std::string stray = folder.file("stray.smf");
    auto write = [&](int32_t third) {
        SMF_Writer writer;
        writer.open(stray);
        addTable(writer, "Path", {"3 Number", "3 Parent", "0 Name"},
                 parse_literal("[[1, 0, 'd'], [2, 1, 'd'], [" + std::to_string(third) + ", 2, 'd']]"));
        std::string rows;
        for (int32_t n : {1, 1, 2, 9, 3, 3}) rows += "[" + std::to_string(n) + ", 'f', 10, 0, '', '', ''],";
        addTable(
            writer, "File",
            {"3 PathNumber", "0 Name", "4 Size", "4 Space", "9 Created D", "9 Modified D", "9 Accessed D"},
            parse_literal("[" + rows + "]"));
        writer.close();
    };
    EXPECT_EQ(faultOf([&] { write(3); }), "none");
    FSI_Reader reader(censusOptions(stray), {});
    FSI_PathLevelHelper& index = reader.pathLevelHelper();
    ASSERT_TRUE(index.locateNumber(1));
    EXPECT_EQ(index.figure(FSI_TreeFiles), 3);
    EXPECT_EQ(index.figure(FSI_TreeSize), 30);
    ASSERT_TRUE(index.locateNumber(3));
    EXPECT_EQ(index.figure(FSI_PathFiles), 0);
    EXPECT_EQ(index.figure(FSI_FileIndex), 4);
    // The paths index needs columns that this census lacks.
    EXPECT_EQ(faultOf([&] { reader.pathNameHelper(); }), "DatabaseError: Field is not connected to a table");
    write(7);
    FSI_Reader jumbled(censusOptions(stray), {});
    EXPECT_EQ(faultOf([&] { jumbled.pathLevelHelper(); }),
              "DatabaseError: The path 7 stands at row 3 of the table Path");
}
