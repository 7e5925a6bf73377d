// The value-tree builder and its lookup: kinds with the agent's codes, numbers, the yajl_tree_get
// semantics, what counts as a parsed document.
#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "tola_json_parser.h"
#include "yajl_reference.h"

namespace {

struct Tree {
    explicit Tree(const std::string& text) : root(tola_tree_parse(text)) {}
    ~Tree() { tola_tree_free(root); }
    yajl_val root;
};

TEST(JsonTree, KindsUseTheAgentsCodes) {
    Tree t(R"({"s":"x","n":1,"o":{},"a":[],"t":true,"f":false,"z":null})");
    ASSERT_TRUE(tola_is_kind(t.root, yajl_t_object));
    const int codes[] = {1, 2, 4, 5, 6, 7, 8};  // string, number, object, array, true, false, null
    for (size_t i = 0; i < 7; ++i) {
        EXPECT_EQ(tola_object_value(t.root, i)->type, codes[i]) << tola_object_key(t.root, i);
    }
}

TEST(JsonTree, NumbersAreYajlsOwnNumberForNumber) {
    // Each number against the distribution's yajl tree: integer, double, both validity flags.
    const char* numbers[] = {"0",
                             "-0",
                             "42",
                             "-7",
                             "1.5",
                             "-2.5",
                             "2.0",
                             "1e3",
                             "1E3",
                             "-1e3",
                             "1e-2",
                             "9223372036854775807",
                             "9223372036854775808",
                             "-9223372036854775807",
                             "-9223372036854775808",
                             "-9223372036854775809",
                             "922337203685477581.0",
                             "99999999999999999999",
                             "-99999999999999999999",
                             "1e400",
                             "-1e400"};
    for (const char* text : numbers) {
        SCOPED_TRACE(text);
        ReferenceNumber expected = yajlReferenceNumber(text);
        ASSERT_TRUE(expected.parsed);
        Tree t(std::string("[") + text + "]");
        yajl_val n = tola_array_item(t.root, 0);
        ASSERT_TRUE(tola_is_kind(n, yajl_t_number));
        EXPECT_STREQ(n->u.number.r, text);
        EXPECT_EQ(n->u.number.i, expected.integer);
        EXPECT_EQ(n->u.number.d, expected.value);
        EXPECT_EQ((n->u.number.flags & YAJL_NUMBER_INT_VALID) != 0, expected.integerValid);
        EXPECT_EQ((n->u.number.flags & YAJL_NUMBER_DOUBLE_VALID) != 0, expected.doubleValid);
    }
    // What the handlers rely on: a fraction or exponent is no integer, and its integer saturates.
    Tree t("[1.5, -2.5, 1e3, 42]");
    EXPECT_EQ(tola_integer(tola_array_item(t.root, 0)), LLONG_MAX);
    EXPECT_EQ(tola_integer(tola_array_item(t.root, 1)), LLONG_MIN);
    EXPECT_EQ(tola_integer(tola_array_item(t.root, 2)), LLONG_MAX);
    EXPECT_EQ(tola_integer(tola_array_item(t.root, 3)), 42);
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
    struct Case {
        const char* text;
        bool parsed;
    } cases[] = {
        {"[1,2]", true},       {"/* comment */ [1] // trailing", true},
        {"[1,2", false},       {"", false},
        {"[1,]", false},       {"[\"\xff\"]", false},      // invalid UTF-8
        {"[1] garbage", true},                             // the root closed before the error
        {"{\"a\":1}", true},   {"[\"a\\u0000b\"]", true},  // escaped NUL: the text is cut there
    };
    for (const Case& c : cases) {
        Tree t(c.text);
        EXPECT_EQ(t.root != nullptr, c.parsed) << c.text;
    }
    Tree nul("[\"a\\u0000b\"]");
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
    yajl_val number = tola_tree_parse("[5]");
    yajl_val five = number->u.array.values[0];
    EXPECT_NE(context_add_value(&ctx, five), 0);  // an object key must be a string
    EXPECT_STREQ(errbuf, "context_add_value: Object key is not a string (0x02)");
    tola_tree_free(number);
    context_clear(&ctx);  // frees the pushed object
}

TEST(JsonTree, NestingIsBoundedAndWideTreesAreBuilt) {
    auto nested = [](size_t depth, const char* open, const char* close) {
        std::string text;
        for (size_t i = 0; i < depth; ++i) {
            text += open;
        }
        text += "1";
        for (size_t i = 0; i < depth; ++i) {
            text += close;
        }
        return text;
    };
    for (size_t depth : {TOLA_JSON_MAX_DEPTH, TOLA_JSON_MAX_DEPTH + 1, size_t{1} << 20}) {
        SCOPED_TRACE(depth);
        EXPECT_EQ(Tree(nested(depth, "[", "]")).root != nullptr, depth <= TOLA_JSON_MAX_DEPTH);
        EXPECT_EQ(Tree(nested(depth, "{\"a\":", "}")).root != nullptr, depth <= TOLA_JSON_MAX_DEPTH);
    }
    // Depth is what is open at once, not how many composites the text holds.
    std::string siblings = "[";
    for (size_t i = 0; i < 3 * TOLA_JSON_MAX_DEPTH; ++i) {
        siblings += i == 0 ? "[[]]" : ",[[]]";
    }
    EXPECT_NE(Tree(siblings + "]").root, nullptr);
    std::string wide = "[1";
    for (int i = 1; i < 100000; ++i) {
        wide += ",1";
    }
    Tree w(wide + "]");
    EXPECT_EQ(tola_array_len(w.root), 100000u);
}

}  // namespace
