#include "util/url_parser.h"

#include <cstddef>
#include <stdexcept>

#include "base/string_util.h"

namespace qzextensionkit {
namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";
// Thrown by toChar for a character that is not a hex digit.
constexpr int kBadHexDigit = 200;

bool IsUnreserved(unsigned char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '-' || c == '*' || c == '.';
}

int HexValue(char c) {
    int value = base::HexDigitValue(c);
    if (value < 0) {
        throw kBadHexDigit;
    }
    return value;
}

// Index of the first character at or after `from` that is one of `stops`,
// or the text's length.
std::size_t ScanTo(const std::string& text, std::size_t from, const char* stops) {
    std::size_t at = text.find_first_of(stops, from);
    return at == std::string::npos ? text.size() : at;
}

int AppendToList(void* context, std::string key, std::string value) {
    auto* list = static_cast<std::vector<query_kv_t>*>(context);
    query_kv_t pair;
    pair.key = std::move(key);
    pair.value = std::move(value);
    list->push_back(std::move(pair));
    return 0;
}

template <typename Map>
int StoreInMap(void* context, std::string key, std::string value) {
    (*static_cast<Map*>(context))[std::move(key)] = std::move(value);
    return 0;
}

}  // namespace

query_kv_t::query_kv_t() = default;
query_kv_t::query_kv_t(const query_kv_t& other) = default;
query_kv_t::query_kv_t(query_kv_t&& other) = default;
query_kv_t& query_kv_t::operator=(const query_kv_t& other) = default;
query_kv_t& query_kv_t::operator=(query_kv_t&& other) = default;
query_kv_t::~query_kv_t() = default;

QZEUrlParser::QZEUrlParser() = default;
QZEUrlParser::QZEUrlParser(const QZEUrlParser& other) = default;
QZEUrlParser& QZEUrlParser::operator=(const QZEUrlParser& other) = default;
QZEUrlParser::~QZEUrlParser() = default;

QZEUrlParser* QZEUrlParser::parseUrl(std::string url) {
    auto* parser = new QZEUrlParser();
    parser->url = std::move(url);
    parser->parse();
    return parser;
}

void QZEUrlParser::destroy(QZEUrlParser** parser) {
    if (parser && *parser) {
        delete *parser;
        *parser = nullptr;
    }
}

// One pass over the text; it stops as soon as a part it needs is missing and
// keeps whatever it has set by then.
void QZEUrlParser::parse() {
    const std::string& text = url;
    const std::size_t n = text.size();
    std::size_t i = 0;
    while (i < n && text[i] == ' ') {
        ++i;
    }

    if (i >= n || text[i] != '/') {
        std::size_t colon = text.find(':', i);
        if (colon == std::string::npos) {
            return;
        }
        scheme = text.substr(i, colon - i);
        if (n - colon < 3 || text[colon + 1] != '/') {
            return;
        }
        i = colon + 2;
    }
    // "scheme://host": `i` is on the second "/". A text starting with "/"
    // takes what follows its first "/" as the host.
    if (text[i] != '/') {
        return;
    }
    ++i;

    // There is no user:password@ syntax: the "@" means nothing here.
    std::size_t end = ScanTo(text, i, ":/?");
    host = text.substr(i, end - i);
    i = end;
    if (i >= n) {
        return;
    }

    if (text[i] == ':') {
        ++i;
        end = ScanTo(text, i, "/?");
        port = text.substr(i, end - i);
        i = end;
        if (i >= n) {
            return;
        }
    }

    if (text[i] != '?') {
        // A "#" does not end the path; only a "?" does.
        end = ScanTo(text, i, "?");
        path = text.substr(i, end - i);
        i = end;
        if (i >= n) {
            return;
        }
    }

    ++i;  // past the "?"
    end = ScanTo(text, i, "#");
    query = text.substr(i, end - i);
    i = end;
    if (i >= n) {
        return;
    }

    ++i;  // past the "#"
    fragment = text.substr(i);
}

unsigned int QZEUrlParser::parseKeyValue(std::string text,
                                         int (*callback)(void*, std::string, std::string),
                                         void* context, bool skipIncomplete) {
    if (!callback) {
        return 0;
    }
    const std::size_t n = text.size();
    std::size_t start = 0;
    while (start < n && text[start] == ' ') {
        ++start;
    }
    if (start >= n) {
        return 0;
    }

    unsigned int calls = 0;
    std::string key;
    for (std::size_t at = start; at <= n; ++at) {
        if (at < n && text[at] == '=') {
            // A second "=" in one pair starts the key anew: "a=b=c" has the
            // key "b".
            key = text.substr(start, at - start);
            start = at + 1;
            continue;
        }
        if (at < n && text[at] != '&') {
            continue;
        }
        std::string value = text.substr(start, at - start);
        const bool pass =
            skipIncomplete ? (!key.empty() && !value.empty()) : (!key.empty() || !value.empty());
        if (pass) {
            callback(context, key, value);
            ++calls;
        }
        key.clear();
        start = at + 1;
    }
    return calls;
}

unsigned int QZEUrlParser::parseKeyValueList(std::vector<query_kv_t>* list, std::string text,
                                             bool skipIncomplete) {
    if (!list) {
        return 0;
    }
    return parseKeyValue(std::move(text), &AppendToList, list, skipIncomplete);
}

unsigned int QZEUrlParser::parseKeyValueMap(std::map<std::string, std::string>* map,
                                            std::string text, bool skipIncomplete) {
    if (!map) {
        return 0;
    }
    return parseKeyValue(std::move(text), &StoreInMap<std::map<std::string, std::string>>, map,
                         skipIncomplete);
}

unsigned int QZEUrlParser::parseKeyValueMap(std::unordered_map<std::string, std::string>* map,
                                            std::string text, bool skipIncomplete) {
    if (!map) {
        return 0;
    }
    return parseKeyValue(std::move(text), &StoreInMap<std::unordered_map<std::string, std::string>>,
                         map, skipIncomplete);
}

int QZEUrlParser::parsePath(std::vector<std::string>* segments, std::string path) {
    if (!segments) {
        return 0;
    }
    if (path.empty() || path[0] != '/') {
        return static_cast<int>(segments->size());
    }
    const std::size_t n = path.size();
    // Every "/" with something after it starts a segment, empty ones
    // included; a trailing "/" starts none.
    std::size_t slash = 0;
    while (slash + 1 < n) {
        const std::size_t end = ScanTo(path, slash + 1, "/");
        segments->push_back(path.substr(slash + 1, end - slash - 1));
        if (end >= n) {
            break;
        }
        slash = end;
    }
    return static_cast<int>(segments->size());
}

std::string QZEUrlParser::kvMap2Url(const QZEUrlParser* parser,
                                    const std::unordered_map<std::string, std::string>& map) {
    if (!parser) {
        return std::string();
    }
    std::string out = parser->scheme + "://" + parser->host;
    if (!parser->port.empty()) {
        out += ':';
        out += parser->port;
    }
    out += parser->path;
    bool first = true;
    for (const auto& pair : map) {
        out += first ? '?' : '&';
        first = false;
        out += pair.first;
        out += '=';
        out += pair.second;
    }
    if (!parser->fragment.empty()) {
        out += '#';
        out += parser->fragment;
    }
    return out;
}

std::string QZEUrlParser::urlEncode(std::string text, bool spaceAsPlus) {
    std::string out;
    out.reserve(text.size() * 3);
    for (char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (IsUnreserved(byte)) {
            out += c;
        } else if (c == ' ') {
            out += spaceAsPlus ? '+' : ' ';
        } else {
            char hex[2];
            toHex(hex, c);
            out += '%';
            out.append(hex, 2);
        }
    }
    return out;
}

std::string QZEUrlParser::urlDecode(std::string text, bool plusAsSpace) {
    const std::size_t n = text.size();
    // Each round copies the run up to the next "%" or "+", the empty run
    // after a last escape included. Runs are taken from the text cut at its
    // first NUL, so one that starts past the NUL is out of range.
    const std::size_t limit = text.find('\0') == std::string::npos ? n : text.find('\0');
    std::string out;
    std::size_t i = 0;
    for (;;) {
        const std::size_t stop = ScanTo(text, i, "%+");
        if (i > limit) {
            throw std::out_of_range("urlDecode: text holds a NUL");
        }
        out.append(text, i, (stop < limit ? stop : limit) - i);
        if (stop >= n) {
            return out;
        }
        if (text[stop] == '+') {
            out += plusAsSpace ? ' ' : '+';
            i = stop + 1;
            continue;
        }
        if (n - stop < 3) {
            return std::string();
        }
        try {
            out += toChar(text.data() + stop + 1);
        } catch (int) {
            return std::string();
        }
        i = stop + 3;
    }
}

// Bytes from 0x80 up are written as their plain hex value, the same rule as
// below 0x80, so "\xC3" gives "C3".
void QZEUrlParser::toHex(char* out, char c) {
    if (!out) {
        return;
    }
    const auto byte = static_cast<unsigned char>(c);
    out[0] = kHexDigits[byte >> 4];
    out[1] = kHexDigits[byte & 15];
}

char QZEUrlParser::toChar(const char* digits) {
    if (!digits) {
        throw kBadHexDigit;
    }
    // The second character is read only when the first was a digit, so a
    // NUL-terminated text of one character is not overrun.
    const int high = HexValue(digits[0]);
    const int low = HexValue(digits[1]);
    return static_cast<char>((high << 4) | low);
}

}  // namespace qzextensionkit
