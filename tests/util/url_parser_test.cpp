#include "util/url_parser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using qzextensionkit::query_kv_t;
using qzextensionkit::QZEUrlParser;

// "scheme|host|port|path|query|fragment" of `url`.
std::string Parts(const std::string& url) {
    QZEUrlParser* p = QZEUrlParser::parseUrl(url);
    EXPECT_EQ(p->url, url);
    std::string parts = p->scheme + "|" + p->host + "|" + p->port + "|" + p->path + "|" + p->query +
                        "|" + p->fragment;
    QZEUrlParser::destroy(&p);
    return parts;
}

TEST(UrlParserTest, SplitsUrlsAndStopsWhereAPartIsMissing) {
    EXPECT_EQ(Parts("  proto://a.b:8080/c/d?x=1&y=2#f"), "proto|a.b|8080|/c/d|x=1&y=2|f");
    EXPECT_EQ(Parts("http://h/p?q#frag  "), "http|h||/p|q|frag  ");
    EXPECT_EQ(Parts("a.b/c"), "|||||");
    EXPECT_EQ(Parts("mailto:x"), "mailto|||||");
    EXPECT_EQ(Parts("a:/b"), "a|||||");
    EXPECT_EQ(Parts("proto://"), "proto|||||");
    EXPECT_EQ(Parts("proto://h:80?x"), "proto|h|80||x|");
    EXPECT_EQ(Parts("proto://h/p?"), "proto|h||/p||");
    // Only "?" ends the path, and "#" doesn't end the host.
    EXPECT_EQ(Parts("proto://h/p#f"), "proto|h||/p#f||");
    EXPECT_EQ(Parts("proto://h/#a?b"), "proto|h||/#a|b|");
    EXPECT_EQ(Parts("proto://h#x/y"), "proto|h#x||/y||");
    EXPECT_EQ(Parts("proto://h?a#b#c"), "proto|h|||a|b#c");
    // A leading "/" starts the host; user info has no meaning.
    EXPECT_EQ(Parts("/abc/d"), "|abc||/d||");
    EXPECT_EQ(Parts("//abc"), "|||/abc||");
    EXPECT_EQ(Parts("http://user:pw@host:1/x"), "http|user|pw@host:1|/x||");
    QZEUrlParser* none = nullptr;
    QZEUrlParser::destroy(&none);  // nothing happens
}

int Collect(void* context, std::string key, std::string value) {
    *static_cast<std::string*>(context) += "(" + key + "," + value + ")";
    return -1;  // ignored
}

// The pairs of `text` as "(key,value)...", checking the count of calls.
std::string Split(const std::string& text, bool skipIncomplete) {
    std::string pairs;
    unsigned int calls = QZEUrlParser::parseKeyValue(text, &Collect, &pairs, skipIncomplete);
    EXPECT_EQ(calls, std::count(pairs.begin(), pairs.end(), '(')) << text;
    return pairs;
}

TEST(UrlParserTest, KeyValueSplitting) {
    EXPECT_EQ(Split("a=1&&b=2", false), "(a,1)(b,2)");
    EXPECT_EQ(Split("x&a=1", false), "(,x)(a,1)");
    EXPECT_EQ(Split("x&a=1", true), "(a,1)");
    EXPECT_EQ(Split("a=b=c", false), "(b,c)");
    EXPECT_EQ(Split("  k = v &q=%20#?", false), "(k , v )(q,%20#?)");
    EXPECT_EQ(Split("a=&=b", false), "(a,)(,b)");
    EXPECT_EQ(Split("a=&=b&=", true), "");
    EXPECT_EQ(Split("    ", false), "");
}

TEST(UrlParserTest, KeyValueContainersAppendAndLaterKeysWin) {
    std::vector<query_kv_t> list(1);
    EXPECT_EQ(QZEUrlParser::parseKeyValueList(&list, "a=1&a=2&b", false), 3u);
    std::string pairs;
    for (const query_kv_t& kv : list) {
        pairs += "(" + kv.key + "," + kv.value + ")";
    }
    EXPECT_EQ(pairs, "(,)(a,1)(a,2)(,b)");
    // The count is of pairs, not the map's size.
    std::map<std::string, std::string> ordered{{"z", "0"}};
    EXPECT_EQ(QZEUrlParser::parseKeyValueMap(&ordered, "a=1&b=&a=2", true), 2u);
    EXPECT_EQ(ordered, (std::map<std::string, std::string>{{"a", "2"}, {"z", "0"}}));
    std::unordered_map<std::string, std::string> hashed;
    EXPECT_EQ(QZEUrlParser::parseKeyValueMap(&hashed, "a=1&a=3", false), 2u);
    EXPECT_EQ(hashed, (std::unordered_map<std::string, std::string>{{"a", "3"}}));
}

TEST(UrlParserTest, PathSegmentsAreAppendedAndTheSizeReturned) {
    using Strings = std::vector<std::string>;
    for (auto c : {std::make_pair("a/b", Strings{"old"}),
                   {"/", {"old"}},
                   {"/a/b/", {"old", "a", "b"}},
                   {"//a//", {"old", "", "a", ""}}}) {
        Strings segments{"old"};
        EXPECT_EQ(QZEUrlParser::parsePath(&segments, c.first), static_cast<int>(c.second.size()));
        EXPECT_EQ(segments, c.second) << c.first;
    }
}

TEST(UrlParserTest, RebuildsUrlWithNewQuery) {
    QZEUrlParser* parser = QZEUrlParser::parseUrl("https://h:8/p/q?old=1#top");
    EXPECT_EQ(QZEUrlParser::kvMap2Url(parser, {{"k", "a b"}}), "https://h:8/p/q?k=a b#top");
    EXPECT_EQ(QZEUrlParser::kvMap2Url(parser, {}), "https://h:8/p/q#top");
    QZEUrlParser::destroy(&parser);
    parser = QZEUrlParser::parseUrl("s://h");
    EXPECT_EQ(QZEUrlParser::kvMap2Url(parser, {{"a", ""}}), "s://h?a=");
    QZEUrlParser::destroy(&parser);
}

TEST(UrlParserTest, EncodingAndDecoding) {
    EXPECT_EQ(QZEUrlParser::urlEncode("a b~", true), "a+b%7E");
    EXPECT_EQ(QZEUrlParser::urlEncode("a b~Az09_-*.", false), "a b%7EAz09_-*.");
    EXPECT_EQ(QZEUrlParser::urlEncode(std::string("/?=&+%\n\0", 8), true),
              "%2F%3F%3D%26%2B%25%0A%00");

    EXPECT_EQ(QZEUrlParser::urlDecode("%41+", false), "A+");
    EXPECT_EQ(QZEUrlParser::urlDecode("a%2fb%2F%00", true), std::string("a/b/\0", 5));
    // A bad escape empties the whole result.
    for (const char* bad : {"%4", "%zz", "%41%", "ok%g1"}) {
        EXPECT_EQ(QZEUrlParser::urlDecode(bad, true), "") << bad;
    }
    // Text is cut at a NUL; an escape or "+" past it starts a run beyond it.
    EXPECT_EQ(QZEUrlParser::urlDecode(std::string("a\0b", 3), true), "a");
    EXPECT_EQ(QZEUrlParser::urlDecode(std::string("%41+\0b", 6), true), "A ");
    EXPECT_THROW(QZEUrlParser::urlDecode(std::string("\0%41", 4), true), std::out_of_range);
    EXPECT_THROW(QZEUrlParser::urlDecode(std::string("a\0b+", 4), false), std::out_of_range);
}

TEST(UrlParserTest, HexDigits) {
    char out[3] = {'x', 'x', 'x'};
    QZEUrlParser::toHex(out, '\x7E');
    EXPECT_EQ(std::string(out, 3), "7Ex");  // no terminator
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

}  // namespace
