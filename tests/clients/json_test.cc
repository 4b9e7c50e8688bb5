#include <jansson.h>

#include "support/test.h"

TEST(Json, MembersAreFoundByKeyAndPathAndKeepTheirDefaults) {
    JsonObject object;
    ASSERT_EQ(0, JsonObject::parse(R"({"s":"a\u0000b","i":-9007199254740993,"b":true,"d":1.5,"d":2.5,
        "list":["x","y"],"in":{"a/b":{"~":7},"ports":[80,{"n":443}]},"/slash":1})",
                     object));
    std::string s = "default";
    int64_t i = 1;
    bool b = false;
    double d = 0;
    std::vector<std::string> list;
    EXPECT_EQ(1, object.getString("s", s));
    EXPECT_EQ(std::string("a\0b", 3), s);
    EXPECT_EQ(1, object.getInt("i", i));
    EXPECT_EQ(-9007199254740993, i);
    EXPECT_TRUE(object.getBool("b", b) == 1 && b && object.getDouble("d", d) == 1 && d == 2.5);
    EXPECT_TRUE(object.getDouble("i", d) == 1 && d < -9e15);
    EXPECT_EQ(1, object.getStringArray("/list", list));
    EXPECT_THAT(list, ElementsAre("x", "y"));
    for (const auto &row : table(2, "/in/a~1b/~0|7|/in/ports/0|80|/in/ports/1/n|443|")) {
        EXPECT_EQ(1, object.getInt(row[0].c_str(), i)) << row[0];
        EXPECT_EQ(std::stol(row[1]), i);
    }
    for (const char *absent : {"x", "/in/x", "/in/ports/2", "/in/ports/01x", "/s/x", "/slash", "/", "/in/"}) {
        EXPECT_EQ(0, object.getString(absent, s)) << absent;
        EXPECT_FALSE(object.has(absent));
    }
    JsonObject inner;
    EXPECT_EQ(1, object.getObject("/in/a~1b", inner));
    EXPECT_EQ(R"({"~": 7})", inner.dump());
    LogCapture log;
    EXPECT_EQ(-1, object.getString("i", s));
    EXPECT_FAILS(EINVAL, -1, object.getStringArray("/in/ports", list));
    EXPECT_THAT(log.lines(), ElementsAre("22 JsonObject::getString: i is no string",
                                 "22 JsonObject::getStringArray: /in/ports is no array of strings"));
    EXPECT_THAT(list, ElementsAre("x", "y"));
}

using JsonFile = FolderTest;
TEST_F(JsonFile, IsBuiltSavedAndLoadedDurably) {
    JsonObject inner, object;
    EXPECT_EQ(0, inner.setBool("on", true) | object.setString("s", "\xc3\xbc") | object.setInt("i", 1) |
                     object.setDouble("d", 0.5) | object.setObject("o", inner) | object.setStringArray("a", {"x"}));
    JsonObject copy = object;
    EXPECT_TRUE(copy.remove("i") == 1 && copy.remove("i") == 0);
    EXPECT_EQ(R"({"s": "ü", "d": 0.5, "o": {"on": true}, "a": ["x"]})", copy.dump());
    EXPECT_TRUE(object.has("i"));
    ASSERT_EQ(0, object.save(path.c_str()));
    ASSERT_EQ(0, chmod(path.c_str(), 0600));
    ASSERT_EQ(0, copy.save(path.c_str()));
    EXPECT_EQ(0600u, modeOf(path)) << "the mode stays";
    JsonObject loaded;
    ASSERT_EQ(0, JsonObject::load(path.c_str(), loaded));
    EXPECT_EQ(copy.dump(), loaded.dump());
    EXPECT_FAILS(EILSEQ, -1, object.setString("s", "\xff"));
    EXPECT_EQ(-2, object.setStringArray("a", {"x", "\xff"}) + object.setDouble("d", NAN));
    EXPECT_EQ(-2, JsonObject::parse("{\"a\":1,\n\"b\" 2}", loaded) + JsonObject::parse("[1]", loaded));
    EXPECT_EQ(copy.dump(), loaded.dump()) << "untouched";
    EXPECT_THAT(log.lines().at(3), HasSubstr("on line 2, column 5: ':' expected near '2'"));
    EXPECT_EQ("22 JsonObject::parse: the text is no JSON object", log.lines().at(4));
    json_set_alloc_funcs([](size_t) -> void * { return errno = ENOMEM, nullptr; }, free);
    EXPECT_TRUE(object.setString("s", "x") == -1 && errno == ENOMEM);
    json_set_alloc_funcs(malloc, free);
    const std::string before = readFile(path);
    const FaultScope fault("rename", 1, ENOSPC);
    EXPECT_FAILS(ENOSPC, -1, object.save(path.c_str()));
    EXPECT_EQ(before, readFile(path));
    EXPECT_THAT(dir.list(), ElementsAre("file"));
}
