// Feeds arbitrary text to the URL scanner, the key-value splitters and the
// encoder and decoder, and checks what must hold for any input.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

#include "util/url_parser.h"

using qzextensionkit::query_kv_t;
using qzextensionkit::QZEUrlParser;

namespace {

void Check(bool ok) {
    if (!ok) {
        std::abort();
    }
}

bool IsPartOf(const std::string& part, const std::string& whole) {
    return part.empty() || whole.find(part) != std::string::npos;
}

int CountPair(void* context, std::string key, std::string value) {
    (void)key;
    (void)value;
    ++*static_cast<unsigned int*>(context);
    return 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const bool flag = (data[0] & 1) != 0;
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);

    QZEUrlParser* parser = QZEUrlParser::parseUrl(text);
    Check(parser->url == text);
    for (const std::string* part : {&parser->scheme, &parser->host, &parser->port, &parser->path,
                                    &parser->query, &parser->fragment}) {
        Check(IsPartOf(*part, text));
    }
    Check(parser->path.empty() || parser->path[0] == '/');
    QZEUrlParser copy(*parser);
    Check(copy.host == parser->host && copy.fragment == parser->fragment);

    unsigned int counted = 0;
    const unsigned int calls =
        QZEUrlParser::parseKeyValue(parser->query, &CountPair, &counted, flag);
    Check(calls == counted);
    std::vector<query_kv_t> list;
    Check(QZEUrlParser::parseKeyValueList(&list, text, flag) == list.size());
    for (const query_kv_t& pair : list) {
        Check(flag ? (!pair.key.empty() && !pair.value.empty())
                   : (!pair.key.empty() || !pair.value.empty()));
        Check(pair.key.find_first_of("=&") == std::string::npos);
        Check(pair.value.find_first_of("=&") == std::string::npos);
    }
    std::map<std::string, std::string> ordered;
    Check(QZEUrlParser::parseKeyValueMap(&ordered, text, flag) == list.size());
    Check(ordered.size() <= list.size());
    std::unordered_map<std::string, std::string> hashed;
    Check(QZEUrlParser::parseKeyValueMap(&hashed, text, flag) == list.size());
    Check(hashed.size() == ordered.size());

    std::vector<std::string> segments;
    const int count = QZEUrlParser::parsePath(&segments, parser->path);
    Check(count == static_cast<int>(segments.size()));

    const std::string rebuilt = QZEUrlParser::kvMap2Url(parser, hashed);
    Check(rebuilt.size() >= parser->scheme.size() + 3 + parser->host.size());
    QZEUrlParser::destroy(&parser);
    Check(parser == nullptr);

    // Whatever the encoder writes, the decoder reads back to the input.
    const std::string encoded = QZEUrlParser::urlEncode(text, flag);
    Check(encoded.find('\0') == std::string::npos);
    Check(QZEUrlParser::urlDecode(encoded, flag) == text);

    // Raw text: a NUL before a "%" or "+" is the one documented throw.
    try {
        QZEUrlParser::urlDecode(text, flag);
    } catch (const std::out_of_range&) {
        const std::size_t nul = text.find('\0');
        Check(nul != std::string::npos && text.find_first_of("%+", nul) != std::string::npos);
    }

    if (size >= 3) {
        char hex[2];
        QZEUrlParser::toHex(hex, static_cast<char>(data[1]));
        Check(QZEUrlParser::toChar(hex) == static_cast<char>(data[1]));
    }
    return 0;
}
