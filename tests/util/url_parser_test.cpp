#include "util/url_parser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

namespace {

using qzextensionkit::QZEUrlParser;

// Rows are "url => scheme|host|port|path|query|fragment".
TEST(UrlParserTest, SplitsUrlsAndStopsWhereAPartIsMissing) {
    for (const std::string row :
         {"  proto://a.b:8080/c/d?x=1&y=2#f => proto|a.b|8080|/c/d|x=1&y=2|f", "a.b/c => |||||",
          "mailto:x => mailto|||||", "proto:// => proto|||||", "proto://h:80?x => proto|h|80||x|",
          "proto://h/p? => proto|h||/p||",
          // Only "?" ends the path, and "#" doesn't end the host.
          "proto://h/p#f => proto|h||/p#f||", "proto://h#x/y => proto|h#x||/y||",
          // A leading "/" starts the host; user info has no meaning.
          "/abc/d => |abc||/d||", "http://user:pw@host:1/x => http|user|pw@host:1|/x||"}) {
        QZEUrlParser* p = QZEUrlParser::parseUrl(row.substr(0, row.find(" => ")));
        EXPECT_EQ(p->url + " => " + p->scheme + "|" + p->host + "|" + p->port + "|" + p->path +
                      "|" + p->query + "|" + p->fragment,
                  row);
        QZEUrlParser::destroy(&p);
        QZEUrlParser::destroy(&p);  // a second destroy does nothing
        EXPECT_EQ(p, nullptr);
    }
}

int Collect(void* context, std::string key, std::string value) {
    *static_cast<std::string*>(context) += "(" + key + "," + value + ")";
    return -1;  // ignored
}

TEST(UrlParserTest, KeyValuesAndPathSegmentsSplitAndUrlsRebuild) {
    // Rows are "text => pairs => pairs skipping incomplete ones".
    for (const std::string row : {"  k = v &&q=%20#? => (k , v )(q,%20#?) => (k , v )(q,%20#?)",
                                  "x&a=1 => (,x)(a,1) => (a,1)", "a=b=c => (b,c) => (b,c)",
                                  "a=&=b => (a,)(,b) => ", "     =>  => "}) {
        const std::string text = row.substr(0, row.find(" => "));
        std::string got = text;
        for (bool skip : {false, true}) {
            std::string pairs;
            const unsigned calls = QZEUrlParser::parseKeyValue(text, &Collect, &pairs, skip);
            EXPECT_EQ(calls, std::count(pairs.begin(), pairs.end(), '(')) << row;
            got += " => " + pairs;
        }
        EXPECT_EQ(got, row);
    }
    // The count is of pairs, not the map's size; later keys win.
    std::map<std::string, std::string> ordered{{"z", "0"}};
    EXPECT_EQ(QZEUrlParser::parseKeyValueMap(&ordered, "a=1&b=&a=2", true), 2u);
    EXPECT_EQ(ordered, (std::map<std::string, std::string>{{"a", "2"}, {"z", "0"}}));
    // Segments are appended; no leading "/" adds nothing.
    std::vector<std::string> segments{"old"};
    EXPECT_EQ(QZEUrlParser::parsePath(&segments, "//a//"), 4);
    EXPECT_EQ(QZEUrlParser::parsePath(&segments, "a/b") + QZEUrlParser::parsePath(&segments, "/"),
              8);
    EXPECT_EQ(segments, (std::vector<std::string>{"old", "", "a", ""}));
    QZEUrlParser* parser = QZEUrlParser::parseUrl("https://h:8/p/q?old=1#top");
    EXPECT_EQ(QZEUrlParser::kvMap2Url(parser, {{"k", "a b"}}), "https://h:8/p/q?k=a b#top");
    EXPECT_EQ(QZEUrlParser::kvMap2Url(parser, {}), "https://h:8/p/q#top");
    QZEUrlParser::destroy(&parser);
}

TEST(UrlParserTest, EncodingAndDecoding) {
    EXPECT_EQ(QZEUrlParser::urlEncode("a b~", true) + QZEUrlParser::urlEncode(" Az09_-*.", false),
              "a+b%7E Az09_-*.");
    EXPECT_EQ(QZEUrlParser::urlEncode(std::string("/?=&+%\n\0", 8), true),
              "%2F%3F%3D%26%2B%25%0A%00");
    for (const char* bad : {"%4", "%41%", "ok%g1"}) {
        EXPECT_EQ(QZEUrlParser::urlDecode(bad, true), "") << bad;  // the whole result goes
    }
    EXPECT_EQ(QZEUrlParser::urlDecode("a%2fb%2F%00", true), std::string("a/b/\0", 5));
    EXPECT_EQ(QZEUrlParser::urlDecode(std::string("%41+\0b", 6), true), "A ");  // cut at a NUL
    EXPECT_EQ(QZEUrlParser::urlDecode("%41+", false), "A+");
}

}  // namespace
