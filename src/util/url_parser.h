#pragma once

#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/export.h"

namespace qzextensionkit {

// One key and value pair of a query text, as it stands (not decoded).
struct QZEKIT_EXPORT query_kv_t {
    query_kv_t();
    query_kv_t(const query_kv_t& other);
    query_kv_t(query_kv_t&& other);
    query_kv_t& operator=(const query_kv_t& other);
    query_kv_t& operator=(query_kv_t&& other);
    ~query_kv_t();

    std::string key;
    std::string value;
};

// A small scanner that splits a URL into its parts, splits query texts into
// pairs and encodes and decodes URL text. It validates nothing and never
// fails: what it cannot read it leaves empty.
//
// Objects come only from parseUrl and go back through destroy.
class QZEKIT_EXPORT QZEUrlParser {
public:
    QZEUrlParser(const QZEUrlParser& other);
    QZEUrlParser& operator=(const QZEUrlParser& other);
    virtual ~QZEUrlParser();

    // A new object holding `url` and its parts. Free it with destroy.
    static QZEUrlParser* parseUrl(std::string url);
    // Deletes `*parser` when it is set, and nulls it.
    static void destroy(QZEUrlParser** parser);

    // Splits "k=v&k2=v2" and calls `callback(context, key, value)` per pair.
    // With `skipIncomplete` a pair needs both key and value; without it only
    // a pair with neither is dropped. Returns the number of calls made; the
    // callback's own result is ignored.
    static unsigned int parseKeyValue(std::string text,
                                      int (*callback)(void*, std::string, std::string),
                                      void* context, bool skipIncomplete);
    // Appends every pair in order, duplicates included. Returns the count of
    // pairs appended.
    static unsigned int parseKeyValueList(std::vector<query_kv_t>* list, std::string text,
                                          bool skipIncomplete);
    // Stores every pair; a later pair with the same key wins. Returns the
    // count of pairs, not the map's size.
    static unsigned int parseKeyValueMap(std::map<std::string, std::string>* map, std::string text,
                                         bool skipIncomplete);
    static unsigned int parseKeyValueMap(std::unordered_map<std::string, std::string>* map,
                                         std::string text, bool skipIncomplete);
    // Appends the segments of an absolute path ("/a/b" gives "a" and "b").
    // A path that does not start with "/" adds nothing. Returns the vector's
    // size afterwards.
    static int parsePath(std::vector<std::string>* segments, std::string path);
    // Rebuilds a URL from the parser's parts with `map` as its query, in the
    // map's own order. Nothing is encoded; the parser's own query is unused.
    static std::string kvMap2Url(const QZEUrlParser* parser,
                                 const std::unordered_map<std::string, std::string>& map);

    // Copies ASCII letters, digits and "_-*."; a space becomes "+" or stays a
    // space; every other byte becomes "%XX" with capital hex digits.
    static std::string urlEncode(std::string text, bool spaceAsPlus);
    // Undoes "%XX" escapes, and "+" when `plusAsSpace`. A short or non-hex
    // escape makes the whole result empty. Text holding a NUL is not
    // supported: what follows the first NUL is dropped, and a "%" or "+"
    // after it throws std::out_of_range.
    static std::string urlDecode(std::string text, bool plusAsSpace);
    // Writes the two capital hex digits of `c` to out[0] and out[1], with no
    // terminator.
    static void toHex(char* out, char c);
    // The byte written by the two hex digits at `digits` (either case).
    // Throws the int 200 when either is not a hex digit.
    static char toChar(const char* digits);

    std::string url;
    std::string scheme;
    std::string host;
    std::string port;
    std::string path;
    std::string query;
    std::string fragment;

private:
    QZEUrlParser();
    void parse();
};

}  // namespace qzextensionkit
