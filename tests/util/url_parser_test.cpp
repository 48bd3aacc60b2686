#include "util/url_parser.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using qzextensionkit::query_kv_t;
using qzextensionkit::QZEUrlParser;

struct Parts {
    std::string scheme, host, port, path, query, fragment;
};

Parts Parse(const std::string& url) {
    QZEUrlParser* parser = QZEUrlParser::parseUrl(url);
    Parts parts{parser->scheme, parser->host,  parser->port,
                parser->path,   parser->query, parser->fragment};
    EXPECT_EQ(parser->url, url);
    QZEUrlParser::destroy(&parser);
    return parts;
}

void ExpectParts(const std::string& url, const Parts& want) {
    Parts got = Parse(url);
    EXPECT_EQ(got.scheme, want.scheme) << url;
    EXPECT_EQ(got.host, want.host) << url;
    EXPECT_EQ(got.port, want.port) << url;
    EXPECT_EQ(got.path, want.path) << url;
    EXPECT_EQ(got.query, want.query) << url;
    EXPECT_EQ(got.fragment, want.fragment) << url;
}

TEST(UrlParserTest, SplitsFullUrl) {
    ExpectParts("  proto://a.b:8080/c/d?x=1&y=2#f",
                {"proto", "a.b", "8080", "/c/d", "x=1&y=2", "f"});
    // Trailing spaces belong to the last part.
    ExpectParts("http://h/p?q#frag  ", {"http", "h", "", "/p", "q", "frag  "});
}

TEST(UrlParserTest, StopsWhereAPartIsMissing) {
    ExpectParts("a.b/c", {});
    ExpectParts("", {});
    ExpectParts("mailto:x", {"mailto", "", "", "", "", ""});
    ExpectParts("a:/b", {"a", "", "", "", "", ""});
    ExpectParts("a:", {"a", "", "", "", "", ""});
    ExpectParts("proto://h", {"proto", "h", "", "", "", ""});
    ExpectParts("proto://", {"proto", "", "", "", "", ""});
    ExpectParts("proto://h?x=1", {"proto", "h", "", "", "x=1", ""});
    ExpectParts("proto://h:80?x", {"proto", "h", "80", "", "x", ""});
    ExpectParts("proto://h/p?", {"proto", "h", "", "/p", "", ""});
}

TEST(UrlParserTest, OnlyQuestionMarkEndsThePath) {
    ExpectParts("proto://h/p#f", {"proto", "h", "", "/p#f", "", ""});
    ExpectParts("proto://h/#a?b", {"proto", "h", "", "/#a", "b", ""});
    ExpectParts("proto://h#x/y", {"proto", "h#x", "", "/y", "", ""});
    ExpectParts("proto://h?a#b#c", {"proto", "h", "", "", "a", "b#c"});
}

TEST(UrlParserTest, LeadingSlashAndUserInfoAreNotSpecial) {
    ExpectParts("/abc/d", {"", "abc", "", "/d", "", ""});
    ExpectParts("//abc", {"", "", "", "/abc", "", ""});
    ExpectParts("http://user:pw@host:1/x", {"http", "user", "pw@host:1", "/x", "", ""});
}

TEST(UrlParserTest, CopiesCarryEveryField) {
    QZEUrlParser* parser = QZEUrlParser::parseUrl("s://h:1/p?q#f");
    QZEUrlParser copy(*parser);
    QZEUrlParser assigned = copy;
    assigned = *parser;
    QZEUrlParser::destroy(&parser);
    EXPECT_EQ(parser, nullptr);
    for (const QZEUrlParser* p : {&copy, &assigned}) {
        EXPECT_EQ(p->url, "s://h:1/p?q#f");
        EXPECT_EQ(p->scheme + p->host + p->port + p->path + p->query + p->fragment, "sh1/pqf");
    }
    QZEUrlParser::destroy(&parser);  // already null: nothing happens
    QZEUrlParser::destroy(nullptr);
    EXPECT_EQ(parser, nullptr);
}

using Pairs = std::vector<std::pair<std::string, std::string>>;

int Collect(void* context, std::string key, std::string value) {
    static_cast<Pairs*>(context)->emplace_back(key, value);
    return -1;  // ignored
}

Pairs Split(const std::string& text, bool skipIncomplete) {
    Pairs pairs;
    unsigned int calls = QZEUrlParser::parseKeyValue(text, &Collect, &pairs, skipIncomplete);
    EXPECT_EQ(calls, pairs.size()) << text;
    return pairs;
}

TEST(UrlParserTest, KeyValueSplitting) {
    EXPECT_EQ(Split("a=1&&b=2", false), (Pairs{{"a", "1"}, {"b", "2"}}));
    EXPECT_EQ(Split("x&a=1", false), (Pairs{{"", "x"}, {"a", "1"}}));
    EXPECT_EQ(Split("x&a=1", true), (Pairs{{"a", "1"}}));
    EXPECT_EQ(Split("a=b=c", false), (Pairs{{"b", "c"}}));
    EXPECT_EQ(Split("  k = v &q=%20#?", false), (Pairs{{"k ", " v "}, {"q", "%20#?"}}));
    EXPECT_EQ(Split("a=1&", false), (Pairs{{"a", "1"}}));
    EXPECT_EQ(Split("a=&=b", false), (Pairs{{"a", ""}, {"", "b"}}));
    EXPECT_EQ(Split("a=&=b&=", true), Pairs{});
    EXPECT_EQ(Split("", false), Pairs{});
    EXPECT_EQ(Split("    ", false), Pairs{});
    EXPECT_EQ(QZEUrlParser::parseKeyValue("a=1", nullptr, nullptr, false), 0u);
}

TEST(UrlParserTest, KeyValueContainers) {
    std::vector<query_kv_t> list(1);
    EXPECT_EQ(QZEUrlParser::parseKeyValueList(&list, "a=1&a=2&b", false), 3u);
    ASSERT_EQ(list.size(), 4u);
    EXPECT_EQ(list[2].key + "=" + list[2].value, "a=2");
    EXPECT_EQ(list[3].key + "=" + list[3].value, "=b");

    std::map<std::string, std::string> ordered;
    EXPECT_EQ(QZEUrlParser::parseKeyValueMap(&ordered, "a=1&a=2", false), 2u);
    EXPECT_EQ(ordered, (std::map<std::string, std::string>{{"a", "2"}}));

    std::unordered_map<std::string, std::string> hashed{{"z", "0"}};
    EXPECT_EQ(QZEUrlParser::parseKeyValueMap(&hashed, "a=1&b=2&a=3", true), 3u);
    EXPECT_EQ(hashed,
              (std::unordered_map<std::string, std::string>{{"z", "0"}, {"a", "3"}, {"b", "2"}}));
    EXPECT_EQ(QZEUrlParser::parseKeyValueList(nullptr, "a=1", false), 0u);
}

TEST(UrlParserTest, PathSegments) {
    std::vector<std::string> segments{"old"};
    EXPECT_EQ(QZEUrlParser::parsePath(&segments, "a/b"), 1);
    EXPECT_EQ(QZEUrlParser::parsePath(&segments, "/a/b/"), 3);
    EXPECT_EQ(segments, (std::vector<std::string>{"old", "a", "b"}));

    std::vector<std::string> empties;
    EXPECT_EQ(QZEUrlParser::parsePath(&empties, "//a//"), 3);
    EXPECT_EQ(empties, (std::vector<std::string>{"", "a", ""}));
    EXPECT_EQ(QZEUrlParser::parsePath(&empties, "/"), 3);
}

TEST(UrlParserTest, RebuildsUrlWithNewQuery) {
    QZEUrlParser* parser = QZEUrlParser::parseUrl("https://h:8/p/q?old=1#top");
    EXPECT_EQ(QZEUrlParser::kvMap2Url(parser, {{"k", "a b"}}), "https://h:8/p/q?k=a b#top");
    EXPECT_EQ(QZEUrlParser::kvMap2Url(parser, {}), "https://h:8/p/q#top");
    QZEUrlParser::destroy(&parser);

    parser = QZEUrlParser::parseUrl("s://h");
    EXPECT_EQ(QZEUrlParser::kvMap2Url(parser, {{"a", ""}}), "s://h?a=");
    QZEUrlParser::destroy(&parser);
    EXPECT_EQ(QZEUrlParser::kvMap2Url(nullptr, {{"a", "1"}}), "");
}

TEST(UrlParserTest, Encoding) {
    EXPECT_EQ(QZEUrlParser::urlEncode("a b~", true), "a+b%7E");
    EXPECT_EQ(QZEUrlParser::urlEncode("a b~", false), "a b%7E");
    EXPECT_EQ(QZEUrlParser::urlEncode("Az09_-*.", true), "Az09_-*.");
    EXPECT_EQ(QZEUrlParser::urlEncode(std::string("/?=&+%\n\0", 8), true),
              "%2F%3F%3D%26%2B%25%0A%00");
    // Bytes from 0x80 up get their plain hex value.
    EXPECT_EQ(QZEUrlParser::urlEncode("\xC3\xA9\xFF\x80", true), "%C3%A9%FF%80");

    char out[3] = {'x', 'x', 'x'};
    QZEUrlParser::toHex(out, '\x7E');
    EXPECT_EQ(std::string(out, 3), "7Ex");
    EXPECT_EQ(QZEUrlParser::toChar("7e"), '\x7E');
    EXPECT_EQ(QZEUrlParser::toChar("Ff"), '\xFF');
    for (const char* bad : {"g0", "0g", " 1", "", "1"}) {
        try {
            QZEUrlParser::toChar(bad);
            ADD_FAILURE() << "no throw for \"" << bad << "\"";
        } catch (int code) {
            EXPECT_EQ(code, 200);
        }
    }
}

TEST(UrlParserTest, Decoding) {
    EXPECT_EQ(QZEUrlParser::urlDecode("%41+", true), "A ");
    EXPECT_EQ(QZEUrlParser::urlDecode("%41+", false), "A+");
    EXPECT_EQ(QZEUrlParser::urlDecode("a%2fb%2Fc", true), "a/b/c");
    EXPECT_EQ(QZEUrlParser::urlDecode("%00", true), std::string(1, '\0'));
    for (const char* bad : {"%4", "%zz", "ab%4", "%41%", "ok%g1", "%"}) {
        EXPECT_EQ(QZEUrlParser::urlDecode(bad, true), "") << bad;
    }
}

TEST(UrlParserTest, DecodingCutsTextAtNul) {
    EXPECT_EQ(QZEUrlParser::urlDecode(std::string("a\0b", 3), true), "a");
    EXPECT_EQ(QZEUrlParser::urlDecode(std::string("%41+\0b", 6), true), "A ");
    // Any escape or "+" past the NUL starts a run beyond it.
    EXPECT_THROW(QZEUrlParser::urlDecode(std::string("\0%41", 4), true), std::out_of_range);
    EXPECT_THROW(QZEUrlParser::urlDecode(std::string("a\0b+", 4), false), std::out_of_range);
}

}  // namespace
