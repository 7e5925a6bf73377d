// The value-tree builder and its lookup: kinds with the agent's codes, numbers as yajl's own tree
// gives them (corpus/cases/numbers.txt), the yajl_tree_get semantics, what counts as parsed.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "case_rows.h"
#include "tola_json_parser.h"

namespace {

struct Tree {
    explicit Tree(const std::string& text) : root(tola_tree_parse(text)) {}
    ~Tree() { tola_tree_free(root); }
    yajl_val root;
};

std::string repeat(const std::string& text, size_t times) {
    std::string out;
    for (size_t i = 0; i < times; ++i) {
        out += text;
    }
    return out;
}

TEST(JsonTree, KindsUseTheAgentsCodes) {
    Tree t(R"({"s":"x","n":1,"o":{},"a":[],"t":true,"f":false,"z":null})");
    ASSERT_TRUE(tola_is_kind(t.root, yajl_t_object));
    const int codes[] = {1, 2, 4, 5, 6, 7, 8};  // string, number, object, array, true, false, null
    for (size_t i = 0; i < 7; ++i) {
        EXPECT_EQ(tola_object_value(t.root, i)->type, codes[i]) << tola_object_key(t.root, i);
    }
}

TEST(JsonTree, NumbersAreYajlsOwnNumberForNumber) {
    for (const tola_test::CaseRow& c : tola_test::readCaseRows("numbers.txt")) {
        SCOPED_TRACE(c.where);
        Tree t("[" + c[0] + "]");
        yajl_val n = tola_array_item(t.root, 0);
        ASSERT_TRUE(tola_is_kind(n, yajl_t_number));
        EXPECT_EQ(n->u.number.r, c[0]);
        EXPECT_EQ(n->u.number.i, std::stoll(c[1]));
        EXPECT_EQ(n->u.number.d, std::strtod(c[2].c_str(), nullptr));
        EXPECT_EQ(std::to_string((n->u.number.flags & YAJL_NUMBER_INT_VALID) != 0) + " " +
                      std::to_string((n->u.number.flags & YAJL_NUMBER_DOUBLE_VALID) != 0),
                  c[3]);
    }
}

TEST(JsonTree, LookupFollowsThePathAndTakesTheFirstDuplicate) {
    Tree t(R"({"a":{"b":"first","b":"second","c":[1]}})");
    const char* ab[] = {"a", "b", nullptr};
    const char* ac[] = {"a", "c", nullptr};
    const char* ax[] = {"a", "x", nullptr};
    const char* acb[] = {"a", "c", "b", nullptr};
    EXPECT_STREQ(tola_string(tola_tree_get(t.root, ab, yajl_t_string)), "first");
    EXPECT_EQ(tola_tree_get(t.root, ab, yajl_t_number), nullptr);
    EXPECT_NE(tola_tree_get(t.root, ac, yajl_t_any), nullptr);
    EXPECT_EQ(tola_tree_get(t.root, ax, yajl_t_any), nullptr);
    EXPECT_EQ(tola_tree_get(t.root, acb, yajl_t_any), nullptr);  // through an array: no match
    EXPECT_EQ(tola_tree_get(t.root, nullptr, yajl_t_any), nullptr);
    EXPECT_EQ(tola_tree_get(nullptr, ab, yajl_t_any), nullptr);
}

TEST(JsonTree, OnlyACompletedRootCounts) {
    // Invalid UTF-8 fails; "[1] garbage" counts, its root closed before the error.
    for (const char* text : {"[1,2]", "/* comment */ [1] // trailing", "[1] garbage", "{\"a\":1}"}) {
        EXPECT_NE(Tree(text).root, nullptr) << text;
    }
    for (const char* text : {"[1,2", "", "[1,]", "[\"\xff\"]"}) {
        EXPECT_EQ(Tree(text).root, nullptr) << text;
    }
    // An escaped NUL cuts the text there.
    Tree nul("[\"a\\u0000b\"]");
    ASSERT_NE(nul.root, nullptr);
    EXPECT_STREQ(tola_string(tola_array_item(nul.root, 0)), "a");
}

TEST(JsonTree, BuilderRefusesMisuse) {
    char errbuf[128] = "";
    context_t ctx{};
    ctx.errbuf = errbuf;
    ctx.errbuf_size = sizeof(errbuf);
    EXPECT_EQ(context_pop(&ctx), nullptr);
    EXPECT_STREQ(errbuf, "context_pop: Bottom of stack reached prematurely");
    yajl_val obj = tola_tree_parse("{}");
    ASSERT_EQ(context_push(&ctx, obj), 0);
    Tree number("[5]");
    EXPECT_NE(context_add_value(&ctx, tola_array_item(number.root, 0)), 0);  // a key must be a string
    EXPECT_STREQ(errbuf, "context_add_value: Object key is not a string (0x02)");
    context_clear(&ctx);  // frees the pushed object
}

TEST(JsonTree, NestingIsBoundedAndWideTreesAreBuilt) {
    auto nested = [](size_t depth, const std::string& open, const std::string& close) {
        return repeat(open, depth) + "1" + repeat(close, depth);
    };
    for (size_t depth : {TOLA_JSON_MAX_DEPTH, TOLA_JSON_MAX_DEPTH + 1, size_t{1} << 20}) {
        SCOPED_TRACE(depth);
        EXPECT_EQ(Tree(nested(depth, "[", "]")).root != nullptr, depth <= TOLA_JSON_MAX_DEPTH);
        EXPECT_EQ(Tree(nested(depth, "{\"a\":", "}")).root != nullptr, depth <= TOLA_JSON_MAX_DEPTH);
    }
    // Depth is what is open at once, not how many composites the text holds.
    EXPECT_NE(Tree("[" + repeat("[[]],", 3 * TOLA_JSON_MAX_DEPTH) + "[[]]]").root, nullptr);
    Tree w("[" + repeat("1,", 99999) + "1]");
    EXPECT_EQ(tola_array_len(w.root), 100000u);
}

}  // namespace
